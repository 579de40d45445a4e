#ifndef QUELVANE_QV_ASSERT_INTERNAL_H
#define QUELVANE_QV_ASSERT_INTERNAL_H

#include <cassert>

// An assertion that ends the process in every build type, Release included,
// and reports the expression, the file and the line that the library's
// documentation gives for it (not the line of this source file).
#define QV_ASSERT_AT(expr, exprText, fileName, lineNo)                       \
    ((expr) ? static_cast<void>(0)                                           \
            : __assert_fail(exprText, fileName, lineNo, __PRETTY_FUNCTION__))

#endif
