#ifndef QUELVANE_CONN_ELEMENT_INTERNAL_H
#define QUELVANE_CONN_ELEMENT_INTERNAL_H

#include <cstddef>
#include <cstdio>

class Tavrel_ConnectionElement;

// tavrel_readln with the size of `buf` known: the line read from `f` is cut to
// fit (the rest of it is consumed). Event lines arriving on `elt` meanwhile go
// to its callback exactly as in tavrel_readln.
__attribute__((visibility("hidden"))) int tavrel_readlnBounded(FILE* f, char* buf, size_t size,
                                                           Tavrel_ConnectionElement* elt);

#endif
