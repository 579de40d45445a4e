// The table of event words.
#include "events/event_names_internal.h"

const EventNameRow EventNamesP[33] = {
    {"mount", 5},              //  0 MountActionEvent
    {"unmount", 7},            //  1 MountActionEvent
    {"adddisk", 7},            //  2 DiskActionEvent
    {"deldisk", 7},            //  3 DiskActionEvent
    {"chdisk", 6},             //  4 ChdiskEvent
    {"takeover", 8},           //  5 SgmgrTakeoverEvent
    {"failure", 7},            //  6 NodeStatusEvent
    {"recovery", 8},           //  7 NodeStatusEvent
    {"createfs", 8},           //  8 FilesystemActionEvent
    {"deletefs", 8},           //  9 FilesystemActionEvent
    {"fsstatechange", 13},     // 10 FilesystemStateChangeEvent
    {"newconnection", 13},     // 11 NodeStatusEvent
    {"exception", 9},          // 12 known word without a record
    {"sgStats", 7},            // 13 TmStatsEvent
    {"hungthread", 10},        // 14 HungThreadEvent
    {"poolutil", 8},           // 15 StgPoolUtilizationEvent
    {"sdrChanged", 10},        // 16 SDRChangedEvent
    {"vkadddisk", 9},          // 17 DiskCmdEvent
    {"vkdeldisk", 9},          // 18 DiskCmdEvent
    {"consoleLog", 10},        // 19 ConsoleLogEvent
    {"longIO", 6},             // 20 LongIoTimeEvent
    {"userEvent", 9},          // 21 UserGeneratedEvent
    {"rgTakeover", 10},        // 22 RgTakeoverEvent
    {"rgRelinquish", 12},      // 23 RgRelinquishEvent
    {"rgOpenFailed", 12},      // 24 RgOpenFailedEvent
    {"rgPanic", 7},            // 25 RgPanicEvent
    {"pdFailed", 8},           // 26 PdFailedEvent
    {"pdRecovered", 11},       // 27 PdRecoveredEvent
    {"pdReplacePdisk", 14},    // 28 PdReplacePdiskEvent
    {"pdPathFailed", 12},      // 29 PdPathFailedEvent
    {"daRebuildFailed", 15},   // 30 DaRebuildFailedEvent
    {"nsdCksumMismatch", 16},  // 31 NsdCksumMismatchEvent
    {nullptr, 0},
};
