#include <quelvane/command_wrapper_utils.h>

#include <cctype>
#include <cstdio>
#include <cstring>

CommandWrapperUtils* theCommandWrapperUtils = nullptr;

MErrno CommandWrapperUtils::init(int debug)
{
    if (theCommandWrapperUtils != nullptr)
        return 0;
    MErrno err = 0;
    theCommandWrapperUtils = new CommandWrapperUtils(&err, debug);
    if (err != 0) {
        delete theCommandWrapperUtils;
        theCommandWrapperUtils = nullptr;
    }
    return err;
}

void CommandWrapperUtils::term()
{
    delete theCommandWrapperUtils;
    theCommandWrapperUtils = nullptr;
}

CommandWrapperUtils::CommandWrapperUtils(MErrno* err, int debug) : listSave(nullptr), debug(debug)
{
    *err = commonInits();
}

CommandWrapperUtils::~CommandWrapperUtils() {}

int CommandWrapperUtils::commonInits()
{
    return 0;
}

int CommandWrapperUtils::skipLines(FILE* stream, int count)
{
    char buf[400];
    for (int i = 0; i < count; i++) {
        if (fgets(buf, sizeof(buf), stream) == nullptr)
            break;
    }
    return 0;
}

char* CommandWrapperUtils::getTableNextToken(char* line, char** save)
{
    if (*save == nullptr)
        return strtok_r(line, " ", save);
    return strtok_r(nullptr, " ", save);
}

char* CommandWrapperUtils::beginListParsing(char* list)
{
    listSave = nullptr;
    char* tok = strtok_r(list, ",", &listSave);
    if (debug != 0) {
        fprintf(stderr, "First tok = %s\n", tok != nullptr ? tok : "(null)");
        fflush(stderr);
    }
    return tok;
}

char* CommandWrapperUtils::getListNextToken()
{
    if (listSave == nullptr)
        return nullptr;
    return strtok_r(nullptr, ",", &listSave);
}

int percentDecode(char* text)
{
    if (text == nullptr)
        return -1;
    static const char digits[] = "0123456789ABCDEF";
    char* rd = text;
    char* wr = text;
    while (*rd != '\0') {
        if (*rd == '%' && rd[1] != '\0' && rd[2] != '\0') {
            int hi = toupper(static_cast<unsigned char>(rd[1]));
            int lo = toupper(static_cast<unsigned char>(rd[2]));
            const char* ph = hi != 0 ? strchr(digits, hi) : nullptr;
            const char* pl = lo != 0 ? strchr(digits, lo) : nullptr;
            if (ph != nullptr && pl != nullptr) {
                *wr++ = static_cast<char>(((ph - digits) << 4) | (pl - digits));
                rd += 3;
                continue;
            }
        }
        *wr++ = *rd++;
    }
    *wr = '\0';
    return 0;
}
