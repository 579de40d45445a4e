#ifndef QUELVANE_TAVREL_WRAPPER_UTILS_H
#define QUELVANE_TAVREL_WRAPPER_UTILS_H

#include <cstdio>

#include <quelvane/api_conn_element.h>
#include <quelvane/export.h>
#include <quelvane/merrno.h>

// A request session with the daemon: one request line out, the response
// spooled whole into "/var/vesk/tavrel/response", then scanned line by line and
// token by token. Over 3 MiB: always made with new.
class QUELVANE_API TavrelWrapperUtils
{
public:
    Tavrel_ConnectionElement* connection;   // the socket (owned)
    FILE* responseFile;                     // the spool (owned), opened "w+"
    char responsePath[256];
    char lineBuffer[1048576];               // current response line
    char valueBuffer[1048576];              // scratch of getBufferedValue
    char valueCopy[1048576];                // what getBufferedValue hands out
    char* tokenSave;                        // tokeniser state in lineBuffer
    FILE* eventPipeIn;                      // read end of the event pipe
    FILE* eventPipeOut;                     // write end of the event pipe
    int debug;                              // debug and trace level

    static MErrno init(int debug);
    static void term();

    TavrelWrapperUtils(MErrno* err, int debug);
    ~TavrelWrapperUtils();

    int commonInits();
    int connect();

    int processCommand(const char* cmd);
    int sendCommand(const char* cmd);
    int getResponse(const char* cmd);
    int prepBuffer();
    int cleanupCommand();

    bool getNextInstance(const char* prefix);
    int getNextResponse(const char* prefix);
    int getInstanceCount(const char* prefix);
    char* beginParsing();
    char* getNextToken();
    char* getBufferedValue(const char* keyword, unsigned int atLineStart, int len);

    void registerEvents(int (*cb)(char*, void*));
    void waitEvents();

    TavrelWrapperUtils(const TavrelWrapperUtils&) = delete;
    TavrelWrapperUtils& operator=(const TavrelWrapperUtils&) = delete;
};

// The session of the polling handler; null when there is none.
extern QUELVANE_API TavrelWrapperUtils* theTavrelWrapperUtils;

#endif
