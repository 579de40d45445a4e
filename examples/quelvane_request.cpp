// Sends one request to the daemon and prints the spooled response.
//   quelvane_request "get nodes"
#include <quelvane/quelvane.h>

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv)
{
    if (argc < 2) {
        fprintf(stderr, "usage: %s REQUEST [DEBUG]\n", argv[0]);
        return 2;
    }
    int debug = argc > 2 ? atoi(argv[2]) : 0;
    if (TavrelWrapperUtils::init(debug) != 0) {
        fprintf(stderr, "cannot reach the daemon at %s\n", vesk_named_socket);
        return 1;
    }
    TavrelWrapperUtils* session = theTavrelWrapperUtils;
    while (session->processCommand(argv[1]) == 2) {
    }
    session->prepBuffer();
    int lines = 0;
    while (session->getNextInstance("")) {
        printf("%s\n", session->lineBuffer);
        ++lines;
    }
    session->cleanupCommand();
    printf("(%d lines)\n", lines);
    TavrelWrapperUtils::term();
    return 0;
}
