#ifndef QUELVANE_EXPORT_H
#define QUELVANE_EXPORT_H

// The library is built with hidden visibility: only what carries QUELVANE_API
// is exported from libquelvane.so. It stands on every class, free function
// and global of the public headers. The list of exported names is kept in
// quelvane.symbols at the top of the source tree; the test abi.symbols
// compares it with the built library, so that an export is never gained or
// lost by accident.
#define QUELVANE_API __attribute__((visibility("default")))

#endif
