// Decoding of event lines: the event word, the keywords of every event, the
// special forms, number conversions and the sdrChanged refresh.
#include <quelvane/events_handler.h>

#include "../events/sdr_refresh_internal.h"
#include "support/files.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <memory>
#include <new>
#include <regex>
#include <string>
#include <thread>
#include <vector>

using namespace qvtest;

namespace {

// A handler made directly, without a session: decoding needs none.
struct Decoder
{
    MErrno err = -1;
    EventsHandler handler{&err, 0};

    int type(const std::string& line)
    {
        std::string copy = line;
        return handler.getEventType(&copy[0]);
    }

    Event* create(int t, const std::string& line)
    {
        std::string copy = line;
        return handler.createEventObject(t, &copy[0]);
    }

    // Finds the number and builds the record, as the send thread does.
    template <class C>
    std::unique_ptr<C> decode(const std::string& line, int expectedType)
    {
        int t = type(line);
        EXPECT_EQ(t, expectedType) << line;
        if (t < 0)
            return nullptr;
        return std::unique_ptr<C>(static_cast<C*>(create(t, line)));
    }
};

std::string errorLineRegex(const std::string& text)
{
    return std::string("^") + kTimeRegex + ": quelvane_lib: " + text + "\n$";
}

} // namespace

// ---------------------------------------------------------------- registration

namespace {

int unusedCallback(Event*, void*)
{
    return 0;
}

} // namespace

// A number outside 0 to 31 names no slot: neither the handler nor the memory
// on either side of it changes, however far out the number lies.
TEST(EventRegistration, NumberOutsideTheTableWritesNothing)
{
    const size_t guard = 1024 * sizeof(EventCallbackSlot);
    alignas(EventsHandler) static unsigned char area[2 * guard + sizeof(EventsHandler)];
    memset(area, 0xa5, sizeof(area));
    MErrno err = -1;
    EventsHandler* h = new (area + guard) EventsHandler(&err, 0);
    ASSERT_EQ(err, 0);
    int data = 0;
    h->registerEventCallback(3, unusedCallback, &data);

    std::vector<unsigned char> before(area, area + sizeof(area));
    for (int type : {-1, -2, -32, -1000, 32, 33, 64, 1000, INT_MIN, INT_MAX})
        h->registerEventCallback(type, unusedCallback, &data);
    EXPECT_EQ(memcmp(before.data(), area, sizeof(area)), 0);

    // The slots at both ends still take their callbacks.
    h->registerEventCallback(0, unusedCallback, &data);
    h->registerEventCallback(31, unusedCallback, &data);
    EXPECT_EQ(h->eventCallbacks[0].callback, &unusedCallback);
    EXPECT_EQ(h->eventCallbacks[31].callbackData, &data);
    h->~EventsHandler();
}

// ---------------------------------------------------------------- event word

TEST(EventType, EveryWordGivesItsRowNumber)
{
    Decoder d;
    const char* words[32] = {
        "mount",        "unmount",      "adddisk",        "deldisk",      "chdisk",
        "takeover",     "failure",      "recovery",       "createfs",     "deletefs",
        "fsstatechange", "newconnection", "exception",    "sgStats",      "hungthread",
        "poolutil",     "sdrChanged",   "vkadddisk",      "vkdeldisk",    "consoleLog",
        "longIO",       "userEvent",    "rgTakeover",     "rgRelinquish", "rgOpenFailed",
        "rgPanic",      "pdFailed",     "pdRecovered",    "pdReplacePdisk", "pdPathFailed",
        "daRebuildFailed", "nsdCksumMismatch",
    };
    for (int i = 0; i < 32; ++i)
        EXPECT_EQ(d.type(std::string("_event_ ") + words[i] + " _node_ n1"), i) << words[i];
}

TEST(EventType, AdddiskAndVkadddiskAreNotConfused)
{
    Decoder d;
    EXPECT_EQ(d.type("_event_ adddisk _node_ n1"), 2);
    EXPECT_EQ(d.type("_event_ vkadddisk _node_ n1"), 17);
    EXPECT_EQ(d.type("_event_ deldisk"), 3);
    EXPECT_EQ(d.type("_event_ vkdeldisk"), 18);
}

TEST(EventType, AWordThatBeginsWithATableWordCountsAsThatWord)
{
    Decoder d;
    EXPECT_EQ(d.type("_event_ mountain _node_ n1"), 0);
    EXPECT_EQ(d.type("_event_ unmounted"), 1);
    EXPECT_EQ(d.type("_event_ recoveryX"), 7);
}

TEST(EventType, UnknownWordGivesMinusOneSilently)
{
    Decoder d;
    StderrCapture cap;
    EXPECT_EQ(d.type("_event_ bogus _node_ n1"), -1);
    EXPECT_EQ(d.type("_event_ moun _node_ n1"), -1);   // shorter than the table word
    EXPECT_EQ(d.type("_event_ Mount"), -1);            // case counts
    EXPECT_EQ(cap.finish(), "");
}

TEST(EventType, LineWithoutEventKeywordPrintsTheParsingError)
{
    Decoder d;
    StderrCapture cap;
    EXPECT_EQ(d.type("_node_ n1 _fs_ fs1"), -1);
    std::string err = cap.finish();
    EXPECT_TRUE(std::regex_search(err, std::regex(errorLineRegex(
                                           "_error_ answer parsing error \\.\\.\\.\\."))))
        << err;
}

TEST(EventType, EventKeywordWithoutBlankBehindIsNotFound)
{
    Decoder d;
    StderrCapture cap;
    EXPECT_EQ(d.type("_event_mount _node_ n1"), -1);
    EXPECT_EQ(d.type("_event_"), -1);
    std::string err = cap.finish();
    EXPECT_EQ(splitLines(err).size(), 2u) << err;
}

TEST(EventType, EventKeywordMayStandAnywhereInTheLine)
{
    Decoder d;
    EXPECT_EQ(d.type("xx _event_ mount _node_ n1 _fs_ f"), 0);
    auto rec = d.decode<MountActionEvent>("xx _event_ mount _node_ n1 _fs_ f", 0);
    ASSERT_NE(rec, nullptr);
    EXPECT_STREQ(rec->node, "n1");
    EXPECT_STREQ(rec->fs, "f");
}

TEST(EventType, DebugPrintsTheAnswer)
{
    MErrno err = -1;
    EventsHandler h(&err, 1);
    EXPECT_EQ(err, 0);
    StderrCapture cap;
    char line[] = "_event_ poolutil _fs_ f";
    EXPECT_EQ(h.getEventType(line), 15);
    EXPECT_EQ(cap.finish(), "answer = poolutil\n");
}

TEST(EventType, NoAnswerTraceWithoutDebug)
{
    Decoder d;
    StderrCapture cap;
    EXPECT_EQ(d.type("_event_ poolutil _fs_ f"), 15);
    EXPECT_EQ(cap.finish(), "");
}

TEST(EventType, OverlongEventWordIsCutSafely)
{
    Decoder d;
    std::string line = "_event_ mount" + std::string(3000, 'z') + " _node_ n";
    EXPECT_EQ(d.type(line), 0);
    std::string unknown = "_event_ " + std::string(3000, 'q');
    EXPECT_EQ(d.type(unknown), -1);
}

// ------------------------------------------------------ one line per event

TEST(EventDecode, Mount)
{
    Decoder d;
    auto r = d.decode<MountActionEvent>("_event_ mount _node_ n1 _fs_ fs1 _severity_ INFO", 0);
    ASSERT_NE(r, nullptr);
    EXPECT_STREQ(r->node, "n1");
    EXPECT_STREQ(r->fs, "fs1");
    EXPECT_STREQ(r->severity, "INFO");
}

TEST(EventDecode, Unmount)
{
    Decoder d;
    auto r = d.decode<MountActionEvent>("_event_ unmount _node_ n2 _fs_ fs2 _severity_ WARN", 1);
    ASSERT_NE(r, nullptr);
    EXPECT_STREQ(r->node, "n2");
    EXPECT_STREQ(r->fs, "fs2");
    EXPECT_STREQ(r->severity, "WARN");
}

TEST(EventDecode, AdddiskAndDeldisk)
{
    Decoder d;
    auto a = d.decode<DiskActionEvent>("_event_ adddisk _node_ n1 _fs_ f1 _disk_ d1 _severity_ S", 2);
    ASSERT_NE(a, nullptr);
    EXPECT_STREQ(a->node, "n1");
    EXPECT_STREQ(a->fs, "f1");
    EXPECT_STREQ(a->disk, "d1");
    EXPECT_STREQ(a->severity, "S");
    auto b = d.decode<DiskActionEvent>("_event_ deldisk _disk_ d2 _fs_ f2 _node_ n2", 3);
    ASSERT_NE(b, nullptr);
    EXPECT_STREQ(b->node, "n2");
    EXPECT_STREQ(b->fs, "f2");
    EXPECT_STREQ(b->disk, "d2");
    EXPECT_STREQ(b->severity, "");
}

TEST(EventDecode, Chdisk)
{
    Decoder d;
    auto r = d.decode<ChdiskEvent>(
        "_event_ chdisk _node_ n _fs_ f _disk_ d _status_ ready _availability_ up _fg_ 4001 "
        "_meta_ yes _data_ no _severity_ INFO",
        4);
    ASSERT_NE(r, nullptr);
    EXPECT_STREQ(r->node, "n");
    EXPECT_STREQ(r->fs, "f");
    EXPECT_STREQ(r->disk, "d");
    EXPECT_STREQ(r->status, "ready");
    EXPECT_STREQ(r->availability, "up");
    EXPECT_STREQ(r->fg, "4001");
    EXPECT_STREQ(r->meta, "yes");
    EXPECT_STREQ(r->data, "no");
    EXPECT_STREQ(r->severity, "INFO");
}

TEST(EventDecode, Takeover)
{
    Decoder d;
    auto r = d.decode<SgmgrTakeoverEvent>(
        "_event_ takeover _node_ new1 _prevnode_ old1 _fs_ gpfs1 _severity_ INFO", 5);
    ASSERT_NE(r, nullptr);
    EXPECT_STREQ(r->node, "new1");
    EXPECT_STREQ(r->prevNode, "old1");
    EXPECT_STREQ(r->fs, "gpfs1");
    EXPECT_STREQ(r->severity, "INFO");
}

TEST(EventDecode, FailureRecoveryAndNewconnection)
{
    Decoder d;
    auto f = d.decode<NodeStatusEvent>("_event_ failure _node_ nf _severity_ ERROR", 6);
    ASSERT_NE(f, nullptr);
    EXPECT_STREQ(f->node, "nf");
    EXPECT_STREQ(f->severity, "ERROR");
    auto r = d.decode<NodeStatusEvent>("_event_ recovery _node_ nr", 7);
    ASSERT_NE(r, nullptr);
    EXPECT_STREQ(r->node, "nr");
    EXPECT_STREQ(r->severity, "");
    // newconnection names its node with "_n_", not "_node_".
    auto c = d.decode<NodeStatusEvent>("_event_ newconnection _n_ nc _node_ wrong _severity_ I", 11);
    ASSERT_NE(c, nullptr);
    EXPECT_STREQ(c->node, "nc");
    EXPECT_STREQ(c->severity, "I");
    auto c2 = d.decode<NodeStatusEvent>("_event_ newconnection _node_ only", 11);
    ASSERT_NE(c2, nullptr);
    EXPECT_STREQ(c2->node, "");
}

TEST(EventDecode, CreatefsAndDeletefs)
{
    Decoder d;
    auto c = d.decode<FilesystemActionEvent>("_event_ createfs _node_ n1 _fs_ newfs _severity_ I", 8);
    ASSERT_NE(c, nullptr);
    EXPECT_STREQ(c->node, "n1");
    EXPECT_STREQ(c->fs, "newfs");
    EXPECT_STREQ(c->severity, "I");
    auto x = d.decode<FilesystemActionEvent>("_event_ deletefs _node_ n2 _fs_ oldfs", 9);
    ASSERT_NE(x, nullptr);
    EXPECT_STREQ(x->node, "n2");
    EXPECT_STREQ(x->fs, "oldfs");
}

TEST(EventDecode, Fsstatechange)
{
    Decoder d;
    auto r = d.decode<FilesystemStateChangeEvent>(
        "_event_ fsstatechange _fs_ f _user_ a _meta_ b _illreplicated_ _user_ c _meta_ d "
        "_exposed_ _user_ e _meta_ g _severity_ WARNING",
        10);
    ASSERT_NE(r, nullptr);
    EXPECT_STREQ(r->fs, "f");
    EXPECT_STREQ(r->user, "a");
    EXPECT_STREQ(r->meta, "b");
    EXPECT_STREQ(r->illReplicatedUser, "c");
    EXPECT_STREQ(r->illReplicatedMeta, "d");
    EXPECT_STREQ(r->exposedUser, "e");
    EXPECT_STREQ(r->exposedMeta, "g");
    EXPECT_STREQ(r->severity, "WARNING");
}

TEST(EventDecode, FsstatechangeGroupsInAnotherOrder)
{
    // The exposed marker is searched in the whole line, the ill-replicated
    // group from its own marker on.
    Decoder d;
    auto r = d.decode<FilesystemStateChangeEvent>(
        "_event_ fsstatechange _fs_ f _user_ 1 _meta_ 2 _exposed_ _user_ 5 _meta_ 6 "
        "_illreplicated_ _user_ 3 _meta_ 4",
        10);
    ASSERT_NE(r, nullptr);
    EXPECT_STREQ(r->user, "1");
    EXPECT_STREQ(r->meta, "2");
    EXPECT_STREQ(r->illReplicatedUser, "3");
    EXPECT_STREQ(r->illReplicatedMeta, "4");
    EXPECT_STREQ(r->exposedUser, "5");
    EXPECT_STREQ(r->exposedMeta, "6");
}

TEST(EventDecode, FsstatechangeWithoutExposedGivesNoRecord)
{
    Decoder d;
    EXPECT_EQ(d.create(10, "_event_ fsstatechange _fs_ f _user_ 1 _meta_ 2 _illreplicated_ "
                           "_user_ 3 _meta_ 4"),
              nullptr);
}

TEST(EventDecode, FsstatechangeWithoutIllreplicatedGivesNoRecord)
{
    Decoder d;
    EXPECT_EQ(d.create(10, "_event_ fsstatechange _fs_ f _user_ 1 _meta_ 2 _exposed_ _user_ 5 "
                           "_meta_ 6"),
              nullptr);
}

TEST(EventDecode, FsstatechangeMarkersAreFoundAsPlainSubstrings)
{
    Decoder d;
    auto r = d.decode<FilesystemStateChangeEvent>(
        "_event_ fsstatechange _fs_ f _user_ 1 _meta_ 2 x_illreplicated_y _user_ 3 _meta_ 4 "
        "z_exposed_ _user_ 5 _meta_ 6",
        10);
    ASSERT_NE(r, nullptr);
    EXPECT_STREQ(r->illReplicatedUser, "3");
    EXPECT_STREQ(r->exposedMeta, "6");
}

TEST(EventDecode, FsstatechangeMissingCountsAreEmpty)
{
    Decoder d;
    auto r = d.decode<FilesystemStateChangeEvent>(
        "_event_ fsstatechange _illreplicated_ _exposed_", 10);
    ASSERT_NE(r, nullptr);
    EXPECT_STREQ(r->fs, "");
    EXPECT_STREQ(r->user, "");
    EXPECT_STREQ(r->meta, "");
    EXPECT_STREQ(r->illReplicatedUser, "");
    EXPECT_STREQ(r->illReplicatedMeta, "");
    EXPECT_STREQ(r->exposedUser, "");
    EXPECT_STREQ(r->exposedMeta, "");
}

TEST(EventDecode, ExceptionYieldsNoRecord)
{
    Decoder d;
    EXPECT_EQ(d.type("_event_ exception"), 12);
    EXPECT_EQ(d.create(12, "_event_ exception"), nullptr);
    EXPECT_EQ(d.create(12, "_event_ exception _node_ n _severity_ SEVERE"), nullptr);
}

TEST(EventDecode, SgStats)
{
    Decoder d;
    auto r = d.decode<TmStatsEvent>(
        "_event_ sgStats _node_ n1 _fs_ f1 _tmSpace_ 1234 _tmRequest_ -56 _severity_ I", 13);
    ASSERT_NE(r, nullptr);
    EXPECT_STREQ(r->node, "n1");
    EXPECT_STREQ(r->fs, "f1");
    EXPECT_EQ(r->tmSpace, 1234);
    EXPECT_EQ(r->tmRequest, -56);
    EXPECT_STREQ(r->severity, "I");
}

TEST(EventDecode, Hungthread)
{
    Decoder d;
    auto r = d.decode<HungThreadEvent>(
        "_event_ hungthread _node_ n1 _wait_ 300 _diagnosis_ 'waiting for lock' _severity_ W", 14);
    ASSERT_NE(r, nullptr);
    EXPECT_STREQ(r->node, "n1");
    EXPECT_EQ(r->wait, 300L);
    EXPECT_STREQ(r->diagnosis, "waiting for lock");
    EXPECT_STREQ(r->severity, "W");
}

TEST(EventDecode, PoolutilPutsStatusAndUtilRight)
{
    Decoder d;
    auto r = d.decode<StgPoolUtilizationEvent>(
        "_event_ poolutil _fs_ fs1 _pool_ data _util_ 93 _status_ high _severity_ WARNING", 15);
    ASSERT_NE(r, nullptr);
    EXPECT_STREQ(r->fs, "fs1");
    EXPECT_STREQ(r->pool, "data");
    EXPECT_STREQ(r->status, "high");
    EXPECT_EQ(r->util, 93);
    EXPECT_STREQ(r->severity, "WARNING");
}

TEST(EventDecode, SdrChanged)
{
    Decoder d;
    auto r = d.decode<SDRChangedEvent>("_event_ sdrChanged _node_ n5 _severity_ INFO", 16);
    ASSERT_NE(r, nullptr);
    EXPECT_STREQ(r->node, "n5");
    EXPECT_STREQ(r->severity, "INFO");
}

TEST(EventDecode, VkadddiskAndVkdeldisk)
{
    Decoder d;
    auto a = d.decode<DiskCmdEvent>(
        "_event_ vkadddisk _node_ n1 _fs_ f1 _disk_ d1 _cmd_ add _status_ done _rc_ 0 _severity_ I",
        17);
    ASSERT_NE(a, nullptr);
    EXPECT_STREQ(a->node, "n1");
    EXPECT_STREQ(a->fs, "f1");
    EXPECT_STREQ(a->disk, "d1");
    EXPECT_STREQ(a->cmd, "add");
    EXPECT_STREQ(a->status, "done");
    EXPECT_EQ(a->rc, 0);
    EXPECT_STREQ(a->severity, "I");
    auto b = d.decode<DiskCmdEvent>(
        "_event_ vkdeldisk _node_ n2 _fs_ f2 _disk_ d2 _cmd_ del _status_ failed _rc_ 22", 18);
    ASSERT_NE(b, nullptr);
    EXPECT_STREQ(b->node, "n2");
    EXPECT_STREQ(b->fs, "f2");
    EXPECT_STREQ(b->disk, "d2");
    EXPECT_STREQ(b->cmd, "del");
    EXPECT_STREQ(b->status, "failed");
    EXPECT_EQ(b->rc, 22);
}

TEST(EventDecode, ConsoleLogMessageIsTheWholeRemainder)
{
    Decoder d;
    auto r = d.decode<ConsoleLogEvent>("_event_ consoleLog _n_ n1 _level_ 2 _msg_ disk 'x' failed",
                                       19);
    ASSERT_NE(r, nullptr);
    EXPECT_STREQ(r->node, "n1");
    EXPECT_EQ(r->level, 2);
    EXPECT_STREQ(r->msg, "disk 'x' failed");
    EXPECT_STREQ(r->severity, "");
}

TEST(EventDecode, ConsoleLogMessageSwallowsLaterKeywords)
{
    Decoder d;
    auto r = d.decode<ConsoleLogEvent>(
        "_event_ consoleLog _severity_ ERROR _n_ n1 _msg_ 'quoted' text _level_ 3", 19);
    ASSERT_NE(r, nullptr);
    EXPECT_STREQ(r->msg, "'quoted' text _level_ 3");
    EXPECT_EQ(r->level, 3);   // still found in the line
    EXPECT_STREQ(r->severity, "ERROR");
}

TEST(EventDecode, LongIO)
{
    Decoder d;
    auto r = d.decode<LongIoTimeEvent>(
        "_event_ longIO _n_ n1 _fs_ f1 _disk_ d1 _cmd_ write _len_ 1048576 _time_ 5 _severity_ W",
        20);
    ASSERT_NE(r, nullptr);
    EXPECT_STREQ(r->node, "n1");
    EXPECT_STREQ(r->fs, "f1");
    EXPECT_STREQ(r->disk, "d1");
    EXPECT_STREQ(r->cmd, "write");
    EXPECT_EQ(r->len, 1048576);
    EXPECT_EQ(r->time, 0);   // the duration does not reach the record
    EXPECT_STREQ(r->severity, "W");
}

TEST(EventDecode, UserEvent)
{
    Decoder d;
    auto r = d.decode<UserGeneratedEvent>("_event_ userEvent _n_ n1 _arg_ 'hello world' _severity_ I",
                                          21);
    ASSERT_NE(r, nullptr);
    EXPECT_STREQ(r->node, "n1");
    EXPECT_STREQ(r->arg, "hello world");
    EXPECT_STREQ(r->severity, "I");
}

template <class C>
void checkRg(const char* word, int type)
{
    Decoder d;
    auto r = d.decode<C>(std::string("_event_ ") + word +
                             " _n_ n1 _rg_ rgA _err_ -5 _reason_ 'disk lost' _severity_ SEVERE",
                         type);
    ASSERT_NE(r, nullptr);
    EXPECT_STREQ(r->node, "n1");
    EXPECT_STREQ(r->rg, "rgA");
    EXPECT_STREQ(r->reason, "disk lost");
    EXPECT_EQ(r->err, -5);
    EXPECT_STREQ(r->severity, "SEVERE");
}

TEST(EventDecode, RgTakeover) { checkRg<RgTakeoverEvent>("rgTakeover", 22); }
TEST(EventDecode, RgRelinquish) { checkRg<RgRelinquishEvent>("rgRelinquish", 23); }
TEST(EventDecode, RgOpenFailed) { checkRg<RgOpenFailedEvent>("rgOpenFailed", 24); }
TEST(EventDecode, RgPanic) { checkRg<RgPanicEvent>("rgPanic", 25); }

static const char kPdKeys[] =
    " _n_ n1 _location_ SV1-2 _fru_ 00Y _wwn_ 5000c5 _rg_ rgA _da_ DA1 _pdisk_ e1d1s01";

template <class C>
void checkPdCommon(const C& r)
{
    EXPECT_STREQ(r.node, "n1");
    EXPECT_STREQ(r.location, "SV1-2");
    EXPECT_STREQ(r.fru, "00Y");
    EXPECT_STREQ(r.wwn, "5000c5");
    EXPECT_STREQ(r.rg, "rgA");
    EXPECT_STREQ(r.da, "DA1");
    EXPECT_STREQ(r.pdisk, "e1d1s01");
}

TEST(EventDecode, PdFailed)
{
    Decoder d;
    auto r = d.decode<PdFailedEvent>(std::string("_event_ pdFailed") + kPdKeys +
                                         " _state_ dead _severity_ E",
                                     26);
    ASSERT_NE(r, nullptr);
    checkPdCommon(*r);
    EXPECT_STREQ(r->state, "dead");
    EXPECT_STREQ(r->severity, "E");
}

TEST(EventDecode, PdRecovered)
{
    Decoder d;
    auto r = d.decode<PdRecoveredEvent>(std::string("_event_ pdRecovered") + kPdKeys, 27);
    ASSERT_NE(r, nullptr);
    checkPdCommon(*r);
    EXPECT_STREQ(r->severity, "");
}

TEST(EventDecode, PdReplacePdisk)
{
    Decoder d;
    auto r = d.decode<PdReplacePdiskEvent>(std::string("_event_ pdReplacePdisk") + kPdKeys +
                                               " _priority_ 7 _state_ replace",
                                           28);
    ASSERT_NE(r, nullptr);
    checkPdCommon(*r);
    EXPECT_STREQ(r->state, "replace");
    EXPECT_EQ(r->priority, 7);
}

TEST(EventDecode, PdPathFailed)
{
    Decoder d;
    auto r = d.decode<PdPathFailedEvent>(std::string("_event_ pdPathFailed") + kPdKeys +
                                             " _device_ /dev/sdq",
                                         29);
    ASSERT_NE(r, nullptr);
    checkPdCommon(*r);
    EXPECT_STREQ(r->device, "/dev/sdq");
}

TEST(EventDecode, DaRebuildFailed)
{
    Decoder d;
    auto r = d.decode<DaRebuildFailedEvent>(
        "_event_ daRebuildFailed _n_ n1 _rg_ rgB _da_ DA2 _remainingRedundancy_ 1 _severity_ S",
        30);
    ASSERT_NE(r, nullptr);
    EXPECT_STREQ(r->node, "n1");
    EXPECT_STREQ(r->rg, "rgB");
    EXPECT_STREQ(r->da, "DA2");
    EXPECT_EQ(r->remainingRedundancy, 1);
    EXPECT_STREQ(r->severity, "S");
}

TEST(EventDecode, NsdCksumMismatch)
{
    Decoder d;
    auto r = d.decode<NsdCksumMismatchEvent>(
        "_event_ nsdCksumMismatch _n_ n1 _role_ server _othernode_ n2 _nsd_ nsd7 "
        "_reason_ 'bad crc' _sector_ 81604378624 _dlen_ 8192 _ecc_ 3000000000 _ecs_ 17 "
        "_ecnsd_ 4294967295 _ri_ -2 _severity_ E",
        31);
    ASSERT_NE(r, nullptr);
    EXPECT_STREQ(r->node, "n1");
    EXPECT_STREQ(r->role, "server");
    EXPECT_STREQ(r->otherNode, "n2");
    EXPECT_STREQ(r->nsd, "nsd7");
    EXPECT_STREQ(r->reason, "bad crc");
    EXPECT_EQ(r->sector, 81604378624LL);   // 64 bits kept
    EXPECT_EQ(r->dlen, 8192);
    EXPECT_EQ(r->ecc, 3000000000u);
    EXPECT_EQ(r->ecs, 17u);
    EXPECT_EQ(r->ecnsd, 4294967295u);
    EXPECT_EQ(r->ri, -2);
    EXPECT_STREQ(r->severity, "E");
}

// ------------------------------------------------------- scanning rules

TEST(EventDecode, MountWithoutSeverityHasEmptySeverity)
{
    Decoder d;
    auto r = d.decode<MountActionEvent>("_event_ mount _node_ n1 _fs_ fs1", 0);
    ASSERT_NE(r, nullptr);
    EXPECT_STREQ(r->node, "n1");
    EXPECT_STREQ(r->fs, "fs1");
    EXPECT_STREQ(r->severity, "");
}

TEST(EventDecode, QuotedValueKeepsItsBlankAndOrderDoesNotMatter)
{
    Decoder d;
    auto r = d.decode<MountActionEvent>("_event_ unmount _severity_ WARNING _fs_ 'my fs' _node_ n1",
                                        1);
    ASSERT_NE(r, nullptr);
    EXPECT_STREQ(r->fs, "my fs");
    EXPECT_STREQ(r->node, "n1");
    EXPECT_STREQ(r->severity, "WARNING");
}

TEST(EventDecode, ValueWithoutClosingCharacterRunsToTheEnd)
{
    Decoder d;
    auto r = d.decode<MountActionEvent>("_event_ mount _node_ n1 _fs_ 'open quote and more", 0);
    ASSERT_NE(r, nullptr);
    EXPECT_STREQ(r->fs, "open quote and more");
    auto s = d.decode<MountActionEvent>("_event_ mount _fs_ f _node_ last", 0);
    ASSERT_NE(s, nullptr);
    EXPECT_STREQ(s->node, "last");
}

TEST(EventDecode, KeywordAtTheVeryStartIsNotFound)
{
    Decoder d;
    auto r = d.decode<MountActionEvent>("_node_ n1 _event_ mount _fs_ f", 0);
    ASSERT_NE(r, nullptr);
    EXPECT_STREQ(r->node, "");
    EXPECT_STREQ(r->fs, "f");
}

TEST(EventDecode, FirstOccurrenceWinsEvenInsideAQuotedValue)
{
    Decoder d;
    auto r = d.decode<UserGeneratedEvent>("_event_ userEvent _arg_ 'x _n_ inner y' _n_ outer", 21);
    ASSERT_NE(r, nullptr);
    EXPECT_STREQ(r->node, "inner");
    EXPECT_STREQ(r->arg, "x _n_ inner y");
}

TEST(EventDecode, NodeKeywordSplit)
{
    // Events 0 to 10 and 13 to 18 read "_node_", 11 and 19 to 31 read "_n_".
    Decoder d;
    auto a = d.decode<SDRChangedEvent>("_event_ sdrChanged _n_ short _node_ long", 16);
    ASSERT_NE(a, nullptr);
    EXPECT_STREQ(a->node, "long");
    auto b = d.decode<DaRebuildFailedEvent>("_event_ daRebuildFailed _node_ long _n_ short", 30);
    ASSERT_NE(b, nullptr);
    EXPECT_STREQ(b->node, "short");
    auto c = d.decode<UserGeneratedEvent>("_event_ userEvent _node_ long", 21);
    ASSERT_NE(c, nullptr);
    EXPECT_STREQ(c->node, "");
}

TEST(EventDecode, LineWithoutEventWordYieldsNoRecord)
{
    Decoder d;
    StderrCapture cap;
    EXPECT_EQ(d.type("_node_ n1 _fs_ fs1"), -1);
    EXPECT_EQ(d.create(-1, "_node_ n1 _fs_ fs1"), nullptr);
    EXPECT_TRUE(std::regex_search(cap.finish(),
                                  std::regex(errorLineRegex("_error_ answer parsing error \\.\\.\\.\\."))));
}

TEST(EventDecode, NumberOutOfTheTableGivesNoRecord)
{
    Decoder d;
    EXPECT_EQ(d.create(32, "_event_ mount _node_ n _fs_ f"), nullptr);
    EXPECT_EQ(d.create(-1, "_event_ mount _node_ n _fs_ f"), nullptr);
    EXPECT_EQ(d.create(1000, "_event_ mount _node_ n _fs_ f"), nullptr);
}

TEST(EventDecode, NumbersStopAtTheFirstNonDigit)
{
    Decoder d;
    auto a = d.decode<TmStatsEvent>("_event_ sgStats _node_ n _fs_ f _tmSpace_ 12x _tmRequest_ x", 13);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->tmSpace, 12);
    EXPECT_EQ(a->tmRequest, 0);
    auto b = d.decode<TmStatsEvent>("_event_ sgStats _node_ n _fs_ f _tmSpace_ x", 13);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(b->tmSpace, 0);
    EXPECT_EQ(b->tmRequest, 0);   // absent
}

TEST(EventDecode, NumbersAreCutTo32Bits)
{
    Decoder d;
    auto a = d.decode<TmStatsEvent>(
        "_event_ sgStats _node_ n _fs_ f _tmSpace_ 4294967297 _tmRequest_ 2147483648", 13);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->tmSpace, 1);
    EXPECT_EQ(a->tmRequest, -2147483647 - 1);
    // strtol saturates; its low 32 bits are all ones.
    auto b = d.decode<TmStatsEvent>(
        "_event_ sgStats _node_ n _fs_ f _tmSpace_ 99999999999999999999999 _tmRequest_ -1", 13);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(b->tmSpace, -1);
    EXPECT_EQ(b->tmRequest, -1);
    auto c = d.decode<NsdCksumMismatchEvent>(
        "_event_ nsdCksumMismatch _n_ n _ecc_ -1 _ecs_ 4294967296 _ecnsd_ 4294967297 "
        "_sector_ -9000000000 _dlen_ 8589934593 _ri_ 7",
        31);
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c->ecc, 4294967295u);
    EXPECT_EQ(c->ecs, 0u);
    EXPECT_EQ(c->ecnsd, 1u);
    EXPECT_EQ(c->sector, -9000000000LL);
    EXPECT_EQ(c->dlen, 1);
    EXPECT_EQ(c->ri, 7);
}

TEST(EventDecode, WaitIsCutTo32BitsThenSignExtended)
{
    Decoder d;
    auto a = d.decode<HungThreadEvent>("_event_ hungthread _node_ n _wait_ 4294967295", 14);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->wait, -1L);
    auto b = d.decode<HungThreadEvent>("_event_ hungthread _node_ n _wait_ 2147483648", 14);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(b->wait, -2147483648L);
    auto c = d.decode<HungThreadEvent>("_event_ hungthread _node_ n _wait_ 6000000000", 14);
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c->wait, 1705032704L);   // 6000000000 - 2^32
}

TEST(EventDecode, ValueOfExactly255CharactersFits)
{
    Decoder d;
    std::string v(255, 'v');
    auto r = d.decode<MountActionEvent>("_event_ mount _node_ " + v + " _fs_ f", 0);
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(std::string(r->node), v);
    EXPECT_STREQ(r->fs, "f");
}

TEST(EventDecode, LongerValuesAreCutAt255Characters)
{
    Decoder d;
    std::string v(600, 'w');
    auto r = d.decode<MountActionEvent>("_event_ mount _node_ " + v + " _fs_ f _severity_ " + v, 0);
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(std::string(r->node), std::string(255, 'w'));
    EXPECT_EQ(std::string(r->severity), std::string(255, 'w'));
    EXPECT_STREQ(r->fs, "f");

    std::string msg(1000, 'm');
    auto c = d.decode<ConsoleLogEvent>("_event_ consoleLog _n_ n _level_ 1 _msg_ " + msg, 19);
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(std::string(c->msg), std::string(255, 'm'));
    EXPECT_EQ(c->level, 1);
}

TEST(EventDecode, MissingKeywordsGiveEmptyTextsAndZeros)
{
    // Also for the keywords whose scratch fields the daemon is expected to
    // fill: every scratch field is cleared, so an earlier line leaves nothing
    // behind.
    Decoder d;
    auto full = d.decode<DiskCmdEvent>(
        "_event_ vkadddisk _node_ n1 _fs_ f1 _disk_ d1 _cmd_ add _status_ done _rc_ 9", 17);
    ASSERT_NE(full, nullptr);
    auto bare = d.decode<DiskCmdEvent>("_event_ vkdeldisk", 18);
    ASSERT_NE(bare, nullptr);
    EXPECT_STREQ(bare->node, "");
    EXPECT_STREQ(bare->fs, "");
    EXPECT_STREQ(bare->disk, "");
    EXPECT_STREQ(bare->cmd, "");
    EXPECT_STREQ(bare->status, "");
    EXPECT_EQ(bare->rc, 0);
    EXPECT_STREQ(bare->severity, "");

    auto cl1 = d.decode<ConsoleLogEvent>("_event_ consoleLog _n_ n1 _level_ 4 _msg_ m", 19);
    auto cl2 = d.decode<ConsoleLogEvent>("_event_ consoleLog", 19);
    ASSERT_NE(cl2, nullptr);
    EXPECT_STREQ(cl2->node, "");
    EXPECT_STREQ(cl2->msg, "");
    EXPECT_EQ(cl2->level, 0);

    auto l1 = d.decode<LongIoTimeEvent>("_event_ longIO _n_ n1 _cmd_ read _len_ 3", 20);
    auto l2 = d.decode<LongIoTimeEvent>("_event_ longIO", 20);
    ASSERT_NE(l2, nullptr);
    EXPECT_STREQ(l2->node, "");
    EXPECT_STREQ(l2->cmd, "");
    EXPECT_EQ(l2->len, 0);

    auto n1 = d.decode<NsdCksumMismatchEvent>("_event_ nsdCksumMismatch _ecs_ 5 _reason_ r", 31);
    auto n2 = d.decode<NsdCksumMismatchEvent>("_event_ nsdCksumMismatch", 31);
    ASSERT_NE(n2, nullptr);
    EXPECT_EQ(n2->ecs, 0u);
    EXPECT_STREQ(n2->reason, "");
    EXPECT_EQ(n2->sector, 0);
    EXPECT_EQ(n2->ecc, 0u);
    for (size_t i = 0; i < sizeof(n2->otherNode); ++i)
        ASSERT_EQ(n2->otherNode[i], '\0');

    auto p = d.decode<PdReplacePdiskEvent>("_event_ pdReplacePdisk", 28);
    ASSERT_NE(p, nullptr);
    EXPECT_STREQ(p->node, "");
    EXPECT_STREQ(p->state, "");
    EXPECT_EQ(p->priority, 0);
}

TEST(EventDecode, RecordTimeIsTheTimeOfDecoding)
{
    Decoder d;
    std::string line = "_event_ mount _node_ n _fs_ f";
    timeval t0;
    gettimeofday(&t0, nullptr);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    auto r = d.decode<MountActionEvent>(line, 0);
    ASSERT_NE(r, nullptr);
    long long rec = static_cast<long long>(r->tv.tv_sec) * 1000000 + r->tv.tv_usec;
    long long start = static_cast<long long>(t0.tv_sec) * 1000000 + t0.tv_usec;
    EXPECT_GE(rec - start, 20000);
}

// ------------------------------------------------------ sdrChanged refresh

namespace {

std::vector<PollingHandler*> refreshed;

void recordRefresh(PollingHandler* h)
{
    refreshed.push_back(h);
}

struct HookGuard
{
    SdrRefreshHook previous;
    HookGuard() : previous(setSdrRefreshHook(recordRefresh)) { refreshed.clear(); }
    ~HookGuard() { setSdrRefreshHook(previous); }
};

} // namespace

TEST(SdrRefresh, RunsWithTheHandlerOnlyForSdrChanged)
{
    HookGuard guard;
    Decoder d;
    PollingHandler* fake = reinterpret_cast<PollingHandler*>(&d);
    d.handler.pollingHandler = fake;

    auto other = d.decode<NodeStatusEvent>("_event_ failure _node_ n", 6);
    EXPECT_TRUE(refreshed.empty());
    auto sdr = d.decode<SDRChangedEvent>("_event_ sdrChanged _node_ n", 16);
    ASSERT_NE(sdr, nullptr);
    ASSERT_EQ(refreshed.size(), 1u);
    EXPECT_EQ(refreshed[0], fake);
}

TEST(SdrRefresh, NullHandlerSwitchesTheRefreshOff)
{
    HookGuard guard;
    Decoder d;
    EXPECT_EQ(d.handler.pollingHandler, nullptr);
    auto sdr = d.decode<SDRChangedEvent>("_event_ sdrChanged _node_ n", 16);
    ASSERT_NE(sdr, nullptr);
    EXPECT_TRUE(refreshed.empty());
}

TEST(SdrRefresh, DefaultHookIsRestoredByNull)
{
    SdrRefreshHook first = setSdrRefreshHook(recordRefresh);
    EXPECT_EQ(first, defaultSdrRefresh);
    EXPECT_EQ(setSdrRefreshHook(nullptr), recordRefresh);
    EXPECT_EQ(setSdrRefreshHook(nullptr), defaultSdrRefresh);
}
