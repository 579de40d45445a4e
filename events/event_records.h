#ifndef QUELVANE_EVENT_RECORDS_H
#define QUELVANE_EVENT_RECORDS_H

#include <sys/time.h>

#include <quelvane/export.h>

// Records of the daemon's asynchronous events.
//
// One small class per shape of event, all deriving from Event. They are plain
// data: public fields, one constructor that copies its arguments in, nothing
// else. A callback receives an Event* and knows the concrete class from the
// event number under which it registered (see EventsHandler): no record
// carries its event number.
//
// Records are made with a plain `new` by the library and owned by the
// callback that receives them. Event has no virtual destructor, so a record
// is freed through a pointer of its concrete class.
//
// Every text field is char[256] and always zero-terminated. A constructor
// argument longer than 255 characters is cut to 255 characters; the bytes
// behind the terminator are zero.

// Size of every text field of the event records, terminator included.
#define EVENT_TEXT_SIZE 256

class QUELVANE_API Event
{
public:
    struct timeval tv;                  // when the library built the record
    char severity[EVENT_TEXT_SIZE] = {};     // value of "_severity_", set after construction

    // Clears tv and severity, then stamps tv with the current time.
    Event();
    ~Event();
};

// Events 0 "mount" and 1 "unmount".
class QUELVANE_API MountActionEvent : public Event
{
public:
    char node[EVENT_TEXT_SIZE] = {};
    char fs[EVENT_TEXT_SIZE] = {};

    MountActionEvent(char* node, char* fs);
    ~MountActionEvent();
};

// Events 2 "adddisk" and 3 "deldisk".
class QUELVANE_API DiskActionEvent : public Event
{
public:
    char node[EVENT_TEXT_SIZE] = {};
    char fs[EVENT_TEXT_SIZE] = {};
    char disk[EVENT_TEXT_SIZE] = {};

    DiskActionEvent(char* node, char* fs, char* disk);
    ~DiskActionEvent();
};

// Event 4 "chdisk".
class QUELVANE_API ChdiskEvent : public Event
{
public:
    char node[EVENT_TEXT_SIZE] = {};
    char fs[EVENT_TEXT_SIZE] = {};
    char disk[EVENT_TEXT_SIZE] = {};
    char status[EVENT_TEXT_SIZE] = {};
    char availability[EVENT_TEXT_SIZE] = {};
    char fg[EVENT_TEXT_SIZE] = {};
    char meta[EVENT_TEXT_SIZE] = {};
    char data[EVENT_TEXT_SIZE] = {};

    ChdiskEvent(char* node, char* fs, char* disk, char* status, char* availability,
                char* fg, char* meta, char* data);
    ~ChdiskEvent();
};

// Event 5 "takeover".
class QUELVANE_API SgmgrTakeoverEvent : public Event
{
public:
    char node[EVENT_TEXT_SIZE] = {};
    char prevNode[EVENT_TEXT_SIZE] = {};
    char fs[EVENT_TEXT_SIZE] = {};

    SgmgrTakeoverEvent(char* node, char* prevNode, char* fs);
    ~SgmgrTakeoverEvent();
};

// Events 6 "failure", 7 "recovery" and 11 "newconnection".
class QUELVANE_API NodeStatusEvent : public Event
{
public:
    char node[EVENT_TEXT_SIZE] = {};

    NodeStatusEvent(char* node);
    ~NodeStatusEvent();
};

// Events 8 "createfs" and 9 "deletefs".
class QUELVANE_API FilesystemActionEvent : public Event
{
public:
    char node[EVENT_TEXT_SIZE] = {};
    char fs[EVENT_TEXT_SIZE] = {};

    FilesystemActionEvent(char* node, char* fs);
    ~FilesystemActionEvent();
};

// Event 10 "fsstatechange": three groups of counts, kept as text.
class QUELVANE_API FilesystemStateChangeEvent : public Event
{
public:
    char fs[EVENT_TEXT_SIZE] = {};
    char user[EVENT_TEXT_SIZE] = {};
    char meta[EVENT_TEXT_SIZE] = {};
    char illReplicatedUser[EVENT_TEXT_SIZE] = {};
    char illReplicatedMeta[EVENT_TEXT_SIZE] = {};
    char exposedUser[EVENT_TEXT_SIZE] = {};
    char exposedMeta[EVENT_TEXT_SIZE] = {};

    FilesystemStateChangeEvent(char* fs, char* user, char* meta, char* illReplicatedUser,
                               char* illReplicatedMeta, char* exposedUser, char* exposedMeta);
    ~FilesystemStateChangeEvent();
};

// Event 13 "sgStats".
class QUELVANE_API TmStatsEvent : public Event
{
public:
    char node[EVENT_TEXT_SIZE] = {};
    char fs[EVENT_TEXT_SIZE] = {};
    int tmSpace;
    int tmRequest;

    TmStatsEvent(char* node, char* fs, int tmSpace, int tmRequest);
    ~TmStatsEvent();
};

// Event 14 "hungthread".
class QUELVANE_API HungThreadEvent : public Event
{
public:
    char node[EVENT_TEXT_SIZE] = {};
    long wait;
    char diagnosis[EVENT_TEXT_SIZE] = {};

    HungThreadEvent(char* node, long wait, char* diagnosis);
    ~HungThreadEvent();
};

// Event 15 "poolutil".
class QUELVANE_API StgPoolUtilizationEvent : public Event
{
public:
    char fs[EVENT_TEXT_SIZE] = {};
    char pool[EVENT_TEXT_SIZE] = {};
    char status[EVENT_TEXT_SIZE] = {};
    int util;

    StgPoolUtilizationEvent(char* fs, char* pool, char* status, int util);
    ~StgPoolUtilizationEvent();
};

// Event 16 "sdrChanged".
class QUELVANE_API SDRChangedEvent : public Event
{
public:
    char node[EVENT_TEXT_SIZE] = {};

    SDRChangedEvent(char* node);
    ~SDRChangedEvent();
};

// Events 17 "vkadddisk" and 18 "vkdeldisk".
class QUELVANE_API DiskCmdEvent : public Event
{
public:
    char node[EVENT_TEXT_SIZE] = {};
    char fs[EVENT_TEXT_SIZE] = {};
    char disk[EVENT_TEXT_SIZE] = {};
    char cmd[EVENT_TEXT_SIZE] = {};
    char status[EVENT_TEXT_SIZE] = {};
    int rc;

    DiskCmdEvent(char* node, char* fs, char* disk, char* cmd, char* status, int rc);
    ~DiskCmdEvent();
};

// Event 19 "consoleLog".
class QUELVANE_API ConsoleLogEvent : public Event
{
public:
    char node[EVENT_TEXT_SIZE] = {};
    char msg[EVENT_TEXT_SIZE] = {};
    int level;

    ConsoleLogEvent(char* node, char* msg, int level);
};

// Event 20 "longIO". The constructor takes the duration as its last argument
// and does not store it: `time` stays 0 and must not be read.
class QUELVANE_API LongIoTimeEvent : public Event
{
public:
    char node[EVENT_TEXT_SIZE] = {};
    char fs[EVENT_TEXT_SIZE] = {};
    char disk[EVENT_TEXT_SIZE] = {};
    char cmd[EVENT_TEXT_SIZE] = {};
    int len;
    long time = 0;

    LongIoTimeEvent(char* node, char* fs, char* disk, char* cmd, int len, long time);
};

// Event 21 "userEvent".
class QUELVANE_API UserGeneratedEvent : public Event
{
public:
    char node[EVENT_TEXT_SIZE] = {};
    char arg[EVENT_TEXT_SIZE] = {};

    UserGeneratedEvent(char* node, char* arg);
    ~UserGeneratedEvent();
};

// Event 22 "rgTakeover".
class QUELVANE_API RgTakeoverEvent : public Event
{
public:
    char node[EVENT_TEXT_SIZE] = {};
    char rg[EVENT_TEXT_SIZE] = {};
    char reason[EVENT_TEXT_SIZE] = {};
    int err;

    RgTakeoverEvent(char* node, char* rg, char* reason, int err);
};

// Event 23 "rgRelinquish".
class QUELVANE_API RgRelinquishEvent : public Event
{
public:
    char node[EVENT_TEXT_SIZE] = {};
    char rg[EVENT_TEXT_SIZE] = {};
    char reason[EVENT_TEXT_SIZE] = {};
    int err;

    RgRelinquishEvent(char* node, char* rg, char* reason, int err);
};

// Event 24 "rgOpenFailed".
class QUELVANE_API RgOpenFailedEvent : public Event
{
public:
    char node[EVENT_TEXT_SIZE] = {};
    char rg[EVENT_TEXT_SIZE] = {};
    char reason[EVENT_TEXT_SIZE] = {};
    int err;

    RgOpenFailedEvent(char* node, char* rg, char* reason, int err);
};

// Event 25 "rgPanic".
class QUELVANE_API RgPanicEvent : public Event
{
public:
    char node[EVENT_TEXT_SIZE] = {};
    char rg[EVENT_TEXT_SIZE] = {};
    char reason[EVENT_TEXT_SIZE] = {};
    int err;

    RgPanicEvent(char* node, char* rg, char* reason, int err);
};

// Event 26 "pdFailed".
class QUELVANE_API PdFailedEvent : public Event
{
public:
    char node[EVENT_TEXT_SIZE] = {};
    char location[EVENT_TEXT_SIZE] = {};
    char fru[EVENT_TEXT_SIZE] = {};
    char wwn[EVENT_TEXT_SIZE] = {};
    char rg[EVENT_TEXT_SIZE] = {};
    char da[EVENT_TEXT_SIZE] = {};
    char pdisk[EVENT_TEXT_SIZE] = {};
    char state[EVENT_TEXT_SIZE] = {};

    PdFailedEvent(char* node, char* location, char* fru, char* wwn, char* rg, char* da,
                  char* pdisk, char* state);
};

// Event 27 "pdRecovered".
class QUELVANE_API PdRecoveredEvent : public Event
{
public:
    char node[EVENT_TEXT_SIZE] = {};
    char location[EVENT_TEXT_SIZE] = {};
    char fru[EVENT_TEXT_SIZE] = {};
    char wwn[EVENT_TEXT_SIZE] = {};
    char rg[EVENT_TEXT_SIZE] = {};
    char da[EVENT_TEXT_SIZE] = {};
    char pdisk[EVENT_TEXT_SIZE] = {};

    PdRecoveredEvent(char* node, char* location, char* fru, char* wwn, char* rg, char* da,
                     char* pdisk);
};

// Event 28 "pdReplacePdisk".
class QUELVANE_API PdReplacePdiskEvent : public Event
{
public:
    char node[EVENT_TEXT_SIZE] = {};
    char location[EVENT_TEXT_SIZE] = {};
    char fru[EVENT_TEXT_SIZE] = {};
    char wwn[EVENT_TEXT_SIZE] = {};
    char rg[EVENT_TEXT_SIZE] = {};
    char da[EVENT_TEXT_SIZE] = {};
    char pdisk[EVENT_TEXT_SIZE] = {};
    char state[EVENT_TEXT_SIZE] = {};
    int priority;

    PdReplacePdiskEvent(char* node, char* location, char* fru, char* wwn, char* rg, char* da,
                        char* pdisk, char* state, int priority);
};

// Event 29 "pdPathFailed".
class QUELVANE_API PdPathFailedEvent : public Event
{
public:
    char node[EVENT_TEXT_SIZE] = {};
    char location[EVENT_TEXT_SIZE] = {};
    char fru[EVENT_TEXT_SIZE] = {};
    char wwn[EVENT_TEXT_SIZE] = {};
    char rg[EVENT_TEXT_SIZE] = {};
    char da[EVENT_TEXT_SIZE] = {};
    char pdisk[EVENT_TEXT_SIZE] = {};
    char device[EVENT_TEXT_SIZE] = {};

    PdPathFailedEvent(char* node, char* location, char* fru, char* wwn, char* rg, char* da,
                      char* pdisk, char* device);
};

// Event 30 "daRebuildFailed".
class QUELVANE_API DaRebuildFailedEvent : public Event
{
public:
    char node[EVENT_TEXT_SIZE] = {};
    char rg[EVENT_TEXT_SIZE] = {};
    char da[EVENT_TEXT_SIZE] = {};
    int remainingRedundancy;

    DaRebuildFailedEvent(char* node, char* rg, char* da, int remainingRedundancy);
};

// Event 31 "nsdCksumMismatch".
class QUELVANE_API NsdCksumMismatchEvent : public Event
{
public:
    char node[EVENT_TEXT_SIZE] = {};
    char role[EVENT_TEXT_SIZE] = {};
    char otherNode[EVENT_TEXT_SIZE] = {};
    char nsd[EVENT_TEXT_SIZE] = {};
    char reason[EVENT_TEXT_SIZE] = {};
    long long sector;
    int dlen;
    unsigned int ecc;
    unsigned int ecs;
    unsigned int ecnsd;
    int ri;

    NsdCksumMismatchEvent(char* node, char* role, char* otherNode, char* nsd, char* reason,
                          long long sector, int dlen, unsigned int ecc, unsigned int ecs,
                          unsigned int ecnsd, int ri);
};

#endif
