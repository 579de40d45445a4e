#ifndef QUELVANE_MERRNO_H
#define QUELVANE_MERRNO_H

// Status of the library's operations: 0 is success, any other value failure.
// Constructors cannot return it, so they take an MErrno* and fill it in.
typedef int MErrno;

#endif
