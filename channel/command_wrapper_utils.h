#ifndef QUELVANE_COMMAND_WRAPPER_UTILS_H
#define QUELVANE_COMMAND_WRAPPER_UTILS_H

#include <cstdio>

#include <quelvane/export.h>
#include <quelvane/merrno.h>

// Small parsing aids for the output of the administration tools.
class QUELVANE_API CommandWrapperUtils
{
public:
    char* listSave;     // tokeniser state of beginListParsing / getListNextToken
    int debug;          // debug level

    static MErrno init(int debug);
    static void term();

    CommandWrapperUtils(MErrno* err, int debug);
    ~CommandWrapperUtils();

    int commonInits();
    int skipLines(FILE* stream, int count);
    char* getTableNextToken(char* line, char** save);
    char* beginListParsing(char* list);
    char* getListNextToken();

    CommandWrapperUtils(const CommandWrapperUtils&) = delete;
    CommandWrapperUtils& operator=(const CommandWrapperUtils&) = delete;
};

// The tool wrapper of the polling handler; null when there is none.
extern QUELVANE_API CommandWrapperUtils* theCommandWrapperUtils;

// Decodes "%XX" escapes of a tool's text field in place. 0, or -1 for null.
QUELVANE_API int percentDecode(char* text);

#endif
