#ifndef QUELVANE_QV_ASSERT_INTERNAL_H
#define QUELVANE_QV_ASSERT_INTERNAL_H

#include <cassert>
#include <sys/cdefs.h>

// <cassert> leaves __assert_fail undeclared when NDEBUG is set; the macro below
// needs it in every build type, so it is declared here as glibc has it.
extern "C" void __assert_fail(const char* assertion, const char* file, unsigned int line,
                              const char* function) __THROW __attribute__((__noreturn__));

// An assertion that ends the process in every build type, Release included,
// and reports the expression, the file and the line that the library's
// documentation gives for it (not the line of this source file).
#define QV_ASSERT_AT(expr, exprText, fileName, lineNo)                       \
    QV_ASSERT_IN(expr, exprText, fileName, lineNo, __PRETTY_FUNCTION__)

// The same, naming the function explicitly: for a check that lives in a
// helper but belongs to the public function that the message names.
#define QV_ASSERT_IN(expr, exprText, fileName, lineNo, functionName)         \
    ((expr) ? static_cast<void>(0)                                           \
            : __assert_fail(exprText, fileName, lineNo, functionName))

#endif
