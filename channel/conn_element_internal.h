#ifndef QUELVANE_CONN_ELEMENT_INTERNAL_H
#define QUELVANE_CONN_ELEMENT_INTERNAL_H

#include <cstddef>
#include <cstdio>

class Tavrel_ConnectionElement;

// Neither is exported: the library is built with hidden visibility and only
// QUELVANE_API names leave it.

// tavrel_readln with the size of `buf` known: the line read from `f` is cut to
// fit (the rest of it is consumed). Event lines arriving on `elt` meanwhile go
// to its callback exactly as in tavrel_readln.
int tavrel_readlnBounded(FILE* f, char* buf, size_t size, Tavrel_ConnectionElement* elt);

// Spools the response waiting on `elt` into `spool`, with the results of
// drainStringSocket(buf, size, tavrel_blastLineToFile, spool): every line up
// to and including the one that reads "_response_ end" is written with its
// newline, event lines go to the element's callback in their place in the
// order, the trace and error texts are those of readSocketLine. It takes
// whole blocks of lines per recv but never a byte behind the end line, and at
// an overrun, the end of the stream or a failure it has consumed exactly what
// readSocketLine would have. 0 at the end line, -1 otherwise. A null `spool`
// drops the lines. `buf` is scratch of `size` bytes.
int tavrel_spoolResponse(Tavrel_ConnectionElement* elt, char* buf, int size, FILE* spool);

#endif
