// Temporary weak stand-ins for the request session, so that the library links
// before the session's implementation is merged. The real (strong) definitions
// take precedence as soon as they are part of the build; this file is removed
// then.

#include <quelvane/tavrel_wrapper_utils.h>

#define QV_WEAK __attribute__((weak))

QV_WEAK TavrelWrapperUtils* theTavrelWrapperUtils = nullptr;

QV_WEAK MErrno TavrelWrapperUtils::init(int) { return 1; }
QV_WEAK void TavrelWrapperUtils::term() {}
QV_WEAK int TavrelWrapperUtils::processCommand(const char*) { return 0; }
QV_WEAK int TavrelWrapperUtils::prepBuffer() { return 0; }
QV_WEAK int TavrelWrapperUtils::cleanupCommand() { return 0; }
QV_WEAK bool TavrelWrapperUtils::getNextInstance(const char*) { return false; }
QV_WEAK int TavrelWrapperUtils::getInstanceCount(const char*) { return 0; }
QV_WEAK char* TavrelWrapperUtils::beginParsing() { return nullptr; }
QV_WEAK char* TavrelWrapperUtils::getNextToken() { return nullptr; }
QV_WEAK char* TavrelWrapperUtils::getBufferedValue(const char*, unsigned int, int) { return nullptr; }
