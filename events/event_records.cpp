// Constructors and destructors of the event records.
#include <quelvane/event_records.h>

#include <cstring>
#include <sys/time.h>

namespace {

// Copies `src` into a text field of the records: at most 255 characters and
// always a terminator. A null source gives an empty text.
void copyText(char (&dst)[EVENT_TEXT_SIZE], const char* src)
{
    if (src == nullptr) {
        dst[0] = '\0';
        return;
    }
    size_t n = strnlen(src, EVENT_TEXT_SIZE - 1);
    memcpy(dst, src, n);
    dst[n] = '\0';
}

} // namespace

Event::Event()
{
    memset(&tv, 0, sizeof(tv));
    severity[0] = '\0';
    gettimeofday(&tv, nullptr);
}

Event::~Event() {}

MountActionEvent::MountActionEvent(char* node, char* fs)
{
    copyText(this->node, node);
    copyText(this->fs, fs);
}

MountActionEvent::~MountActionEvent() {}

DiskActionEvent::DiskActionEvent(char* node, char* fs, char* disk)
{
    copyText(this->node, node);
    copyText(this->fs, fs);
    copyText(this->disk, disk);
}

DiskActionEvent::~DiskActionEvent() {}

ChdiskEvent::ChdiskEvent(char* node, char* fs, char* disk, char* status, char* availability,
                         char* fg, char* meta, char* data)
{
    copyText(this->node, node);
    copyText(this->fs, fs);
    copyText(this->disk, disk);
    copyText(this->status, status);
    copyText(this->availability, availability);
    copyText(this->fg, fg);
    copyText(this->meta, meta);
    copyText(this->data, data);
}

ChdiskEvent::~ChdiskEvent() {}

SgmgrTakeoverEvent::SgmgrTakeoverEvent(char* node, char* prevNode, char* fs)
{
    copyText(this->node, node);
    copyText(this->prevNode, prevNode);
    copyText(this->fs, fs);
}

SgmgrTakeoverEvent::~SgmgrTakeoverEvent() {}

NodeStatusEvent::NodeStatusEvent(char* node)
{
    copyText(this->node, node);
}

NodeStatusEvent::~NodeStatusEvent() {}

FilesystemActionEvent::FilesystemActionEvent(char* node, char* fs)
{
    copyText(this->node, node);
    copyText(this->fs, fs);
}

FilesystemActionEvent::~FilesystemActionEvent() {}

FilesystemStateChangeEvent::FilesystemStateChangeEvent(char* fs, char* user, char* meta,
                                                       char* illReplicatedUser,
                                                       char* illReplicatedMeta,
                                                       char* exposedUser, char* exposedMeta)
{
    copyText(this->fs, fs);
    copyText(this->user, user);
    copyText(this->meta, meta);
    copyText(this->illReplicatedUser, illReplicatedUser);
    copyText(this->illReplicatedMeta, illReplicatedMeta);
    copyText(this->exposedUser, exposedUser);
    copyText(this->exposedMeta, exposedMeta);
}

FilesystemStateChangeEvent::~FilesystemStateChangeEvent() {}

TmStatsEvent::TmStatsEvent(char* node, char* fs, int tmSpace, int tmRequest)
{
    copyText(this->node, node);
    copyText(this->fs, fs);
    this->tmSpace = tmSpace;
    this->tmRequest = tmRequest;
}

TmStatsEvent::~TmStatsEvent() {}

HungThreadEvent::HungThreadEvent(char* node, long wait, char* diagnosis)
{
    copyText(this->node, node);
    this->wait = wait;
    copyText(this->diagnosis, diagnosis);
}

HungThreadEvent::~HungThreadEvent() {}

StgPoolUtilizationEvent::StgPoolUtilizationEvent(char* fs, char* pool, char* status, int util)
{
    copyText(this->fs, fs);
    copyText(this->pool, pool);
    copyText(this->status, status);
    this->util = util;
}

StgPoolUtilizationEvent::~StgPoolUtilizationEvent() {}

SDRChangedEvent::SDRChangedEvent(char* node)
{
    copyText(this->node, node);
}

SDRChangedEvent::~SDRChangedEvent() {}

DiskCmdEvent::DiskCmdEvent(char* node, char* fs, char* disk, char* cmd, char* status, int rc)
{
    copyText(this->node, node);
    copyText(this->fs, fs);
    copyText(this->disk, disk);
    copyText(this->cmd, cmd);
    copyText(this->status, status);
    this->rc = rc;
}

DiskCmdEvent::~DiskCmdEvent() {}

ConsoleLogEvent::ConsoleLogEvent(char* node, char* msg, int level)
{
    copyText(this->node, node);
    copyText(this->msg, msg);
    this->level = level;
}

// The duration is accepted and dropped on purpose: the record never carries
// it, and `time` keeps its initial 0.
LongIoTimeEvent::LongIoTimeEvent(char* node, char* fs, char* disk, char* cmd, int len,
                                 long /* time */)
{
    copyText(this->node, node);
    copyText(this->fs, fs);
    copyText(this->disk, disk);
    copyText(this->cmd, cmd);
    this->len = len;
}

UserGeneratedEvent::UserGeneratedEvent(char* node, char* arg)
{
    copyText(this->node, node);
    copyText(this->arg, arg);
}

UserGeneratedEvent::~UserGeneratedEvent() {}

RgTakeoverEvent::RgTakeoverEvent(char* node, char* rg, char* reason, int err)
{
    copyText(this->node, node);
    copyText(this->rg, rg);
    copyText(this->reason, reason);
    this->err = err;
}

RgRelinquishEvent::RgRelinquishEvent(char* node, char* rg, char* reason, int err)
{
    copyText(this->node, node);
    copyText(this->rg, rg);
    copyText(this->reason, reason);
    this->err = err;
}

RgOpenFailedEvent::RgOpenFailedEvent(char* node, char* rg, char* reason, int err)
{
    copyText(this->node, node);
    copyText(this->rg, rg);
    copyText(this->reason, reason);
    this->err = err;
}

RgPanicEvent::RgPanicEvent(char* node, char* rg, char* reason, int err)
{
    copyText(this->node, node);
    copyText(this->rg, rg);
    copyText(this->reason, reason);
    this->err = err;
}

PdFailedEvent::PdFailedEvent(char* node, char* location, char* fru, char* wwn, char* rg,
                             char* da, char* pdisk, char* state)
{
    copyText(this->node, node);
    copyText(this->location, location);
    copyText(this->fru, fru);
    copyText(this->wwn, wwn);
    copyText(this->rg, rg);
    copyText(this->da, da);
    copyText(this->pdisk, pdisk);
    copyText(this->state, state);
}

PdRecoveredEvent::PdRecoveredEvent(char* node, char* location, char* fru, char* wwn, char* rg,
                                   char* da, char* pdisk)
{
    copyText(this->node, node);
    copyText(this->location, location);
    copyText(this->fru, fru);
    copyText(this->wwn, wwn);
    copyText(this->rg, rg);
    copyText(this->da, da);
    copyText(this->pdisk, pdisk);
}

PdReplacePdiskEvent::PdReplacePdiskEvent(char* node, char* location, char* fru, char* wwn,
                                         char* rg, char* da, char* pdisk, char* state,
                                         int priority)
{
    copyText(this->node, node);
    copyText(this->location, location);
    copyText(this->fru, fru);
    copyText(this->wwn, wwn);
    copyText(this->rg, rg);
    copyText(this->da, da);
    copyText(this->pdisk, pdisk);
    copyText(this->state, state);
    this->priority = priority;
}

PdPathFailedEvent::PdPathFailedEvent(char* node, char* location, char* fru, char* wwn, char* rg,
                                     char* da, char* pdisk, char* device)
{
    copyText(this->node, node);
    copyText(this->location, location);
    copyText(this->fru, fru);
    copyText(this->wwn, wwn);
    copyText(this->rg, rg);
    copyText(this->da, da);
    copyText(this->pdisk, pdisk);
    copyText(this->device, device);
}

DaRebuildFailedEvent::DaRebuildFailedEvent(char* node, char* rg, char* da,
                                           int remainingRedundancy)
{
    copyText(this->node, node);
    copyText(this->rg, rg);
    copyText(this->da, da);
    this->remainingRedundancy = remainingRedundancy;
}

NsdCksumMismatchEvent::NsdCksumMismatchEvent(char* node, char* role, char* otherNode, char* nsd,
                                             char* reason, long long sector, int dlen,
                                             unsigned int ecc, unsigned int ecs,
                                             unsigned int ecnsd, int ri)
{
    copyText(this->node, node);
    copyText(this->role, role);
    copyText(this->otherNode, otherNode);
    copyText(this->nsd, nsd);
    copyText(this->reason, reason);
    this->sector = sector;
    this->dlen = dlen;
    this->ecc = ecc;
    this->ecs = ecs;
    this->ecnsd = ecnsd;
    this->ri = ri;
}
