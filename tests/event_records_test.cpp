// Event records: fields and their order, constructors, exported destructors,
// the table of event words.
#include <quelvane/event_records.h>
#include <quelvane/events_handler.h>

#include "../events/event_names_internal.h"

#include <gtest/gtest.h>

#include <cstring>
#include <dlfcn.h>
#include <string>
#include <sys/time.h>
#include <type_traits>

namespace {

// Mutable copy of a text, for the char* arguments of the constructors.
struct Text
{
    std::string s;
    explicit Text(std::string v) : s(std::move(v)) {}
    operator char*() { return &s[0]; }
};

template <class C, class M1, class M2>
bool before(const C&, const M1& a, const M2& b)
{
    return reinterpret_cast<const char*>(&a) < reinterpret_cast<const char*>(&b);
}

long long usecOf(const timeval& tv)
{
    return static_cast<long long>(tv.tv_sec) * 1000000 + tv.tv_usec;
}

long long nowUsec()
{
    timeval tv;
    gettimeofday(&tv, nullptr);
    return usecOf(tv);
}

} // namespace

TEST(EventRecords, BaseFieldsAreTimeAndSeverity)
{
    static_assert(std::is_same<decltype(Event::tv), struct timeval>::value, "tv");
    static_assert(sizeof(Event::severity) == 256, "severity");
    static_assert(std::is_polymorphic<Event>::value == false, "no virtual operations");
    long long before = nowUsec();
    Event e;
    long long after = nowUsec();
    EXPECT_GE(usecOf(e.tv), before);
    EXPECT_LE(usecOf(e.tv), after);
    EXPECT_STREQ(e.severity, "");
    EXPECT_LT(reinterpret_cast<char*>(&e.tv), e.severity);
}

TEST(EventRecords, EveryClassDerivesFromEventWithoutVirtualOperations)
{
    static_assert(std::is_base_of<Event, MountActionEvent>::value, "");
    static_assert(std::is_base_of<Event, DiskActionEvent>::value, "");
    static_assert(std::is_base_of<Event, ChdiskEvent>::value, "");
    static_assert(std::is_base_of<Event, SgmgrTakeoverEvent>::value, "");
    static_assert(std::is_base_of<Event, NodeStatusEvent>::value, "");
    static_assert(std::is_base_of<Event, FilesystemActionEvent>::value, "");
    static_assert(std::is_base_of<Event, FilesystemStateChangeEvent>::value, "");
    static_assert(std::is_base_of<Event, TmStatsEvent>::value, "");
    static_assert(std::is_base_of<Event, HungThreadEvent>::value, "");
    static_assert(std::is_base_of<Event, StgPoolUtilizationEvent>::value, "");
    static_assert(std::is_base_of<Event, SDRChangedEvent>::value, "");
    static_assert(std::is_base_of<Event, DiskCmdEvent>::value, "");
    static_assert(std::is_base_of<Event, ConsoleLogEvent>::value, "");
    static_assert(std::is_base_of<Event, LongIoTimeEvent>::value, "");
    static_assert(std::is_base_of<Event, UserGeneratedEvent>::value, "");
    static_assert(std::is_base_of<Event, RgTakeoverEvent>::value, "");
    static_assert(std::is_base_of<Event, RgRelinquishEvent>::value, "");
    static_assert(std::is_base_of<Event, RgOpenFailedEvent>::value, "");
    static_assert(std::is_base_of<Event, RgPanicEvent>::value, "");
    static_assert(std::is_base_of<Event, PdFailedEvent>::value, "");
    static_assert(std::is_base_of<Event, PdRecoveredEvent>::value, "");
    static_assert(std::is_base_of<Event, PdReplacePdiskEvent>::value, "");
    static_assert(std::is_base_of<Event, PdPathFailedEvent>::value, "");
    static_assert(std::is_base_of<Event, DaRebuildFailedEvent>::value, "");
    static_assert(std::is_base_of<Event, NsdCksumMismatchEvent>::value, "");
    static_assert(!std::is_polymorphic<NsdCksumMismatchEvent>::value, "");
    // The record of a class is its base and its own fields, nothing else: in
    // particular no event number.
    EXPECT_EQ(sizeof(MountActionEvent), sizeof(Event) + 2 * 256);
    EXPECT_EQ(sizeof(NodeStatusEvent), sizeof(Event) + 256);
    EXPECT_EQ(sizeof(DiskActionEvent), sizeof(Event) + 3 * 256);
}

TEST(EventRecords, ConstructorArgumentTypes)
{
    using S = char*;
    static_assert(std::is_constructible<MountActionEvent, S, S>::value, "");
    static_assert(std::is_constructible<DiskActionEvent, S, S, S>::value, "");
    static_assert(std::is_constructible<ChdiskEvent, S, S, S, S, S, S, S, S>::value, "");
    static_assert(std::is_constructible<SgmgrTakeoverEvent, S, S, S>::value, "");
    static_assert(std::is_constructible<NodeStatusEvent, S>::value, "");
    static_assert(std::is_constructible<FilesystemActionEvent, S, S>::value, "");
    static_assert(std::is_constructible<FilesystemStateChangeEvent, S, S, S, S, S, S, S>::value, "");
    static_assert(std::is_constructible<TmStatsEvent, S, S, int, int>::value, "");
    static_assert(std::is_constructible<HungThreadEvent, S, long, S>::value, "");
    static_assert(std::is_constructible<StgPoolUtilizationEvent, S, S, S, int>::value, "");
    static_assert(std::is_constructible<SDRChangedEvent, S>::value, "");
    // The one-text constructors convert implicitly, as an application may
    // rely on ("NodeStatusEvent e = text;").
    static_assert(std::is_convertible<S, NodeStatusEvent>::value, "");
    static_assert(std::is_convertible<S, SDRChangedEvent>::value, "");
    static_assert(std::is_constructible<DiskCmdEvent, S, S, S, S, S, int>::value, "");
    static_assert(std::is_constructible<ConsoleLogEvent, S, S, int>::value, "");
    static_assert(std::is_constructible<LongIoTimeEvent, S, S, S, S, int, long>::value, "");
    static_assert(std::is_constructible<UserGeneratedEvent, S, S>::value, "");
    static_assert(std::is_constructible<RgTakeoverEvent, S, S, S, int>::value, "");
    static_assert(std::is_constructible<PdReplacePdiskEvent, S, S, S, S, S, S, S, S, int>::value, "");
    static_assert(std::is_constructible<DaRebuildFailedEvent, S, S, S, int>::value, "");
    static_assert(std::is_constructible<NsdCksumMismatchEvent, S, S, S, S, S, long long, int,
                                        unsigned int, unsigned int, unsigned int, int>::value, "");
    static_assert(!std::is_default_constructible<MountActionEvent>::value, "one constructor");
    static_assert(!std::is_constructible<MountActionEvent, const char*, const char*>::value,
                  "text arguments are char*");
    // Number field types.
    static_assert(std::is_same<decltype(TmStatsEvent::tmSpace), int>::value, "");
    static_assert(std::is_same<decltype(HungThreadEvent::wait), long>::value, "");
    static_assert(std::is_same<decltype(LongIoTimeEvent::time), long>::value, "");
    static_assert(std::is_same<decltype(NsdCksumMismatchEvent::sector), long long>::value, "");
    static_assert(std::is_same<decltype(NsdCksumMismatchEvent::ecc), unsigned int>::value, "");
    static_assert(std::is_same<decltype(NsdCksumMismatchEvent::ecs), unsigned int>::value, "");
    static_assert(std::is_same<decltype(NsdCksumMismatchEvent::ecnsd), unsigned int>::value, "");
    static_assert(std::is_same<decltype(NsdCksumMismatchEvent::ri), int>::value, "");
    static_assert(sizeof(PdPathFailedEvent::device) == 256, "");
    SUCCEED();
}

TEST(EventRecords, SimpleClassesCopyTheirArgumentsInFieldOrder)
{
    MountActionEvent m(Text("n1"), Text("fs1"));
    EXPECT_STREQ(m.node, "n1");
    EXPECT_STREQ(m.fs, "fs1");
    EXPECT_TRUE(before(m, m.severity, m.node));
    EXPECT_TRUE(before(m, m.node, m.fs));
    EXPECT_STREQ(m.severity, "");

    DiskActionEvent d(Text("n"), Text("f"), Text("d"));
    EXPECT_STREQ(d.node, "n");
    EXPECT_STREQ(d.fs, "f");
    EXPECT_STREQ(d.disk, "d");
    EXPECT_TRUE(before(d, d.node, d.fs) && before(d, d.fs, d.disk));

    ChdiskEvent c(Text("n"), Text("f"), Text("d"), Text("st"), Text("av"), Text("fg"),
                  Text("me"), Text("da"));
    EXPECT_STREQ(c.node, "n");
    EXPECT_STREQ(c.fs, "f");
    EXPECT_STREQ(c.disk, "d");
    EXPECT_STREQ(c.status, "st");
    EXPECT_STREQ(c.availability, "av");
    EXPECT_STREQ(c.fg, "fg");
    EXPECT_STREQ(c.meta, "me");
    EXPECT_STREQ(c.data, "da");
    EXPECT_TRUE(before(c, c.node, c.fs) && before(c, c.fs, c.disk) &&
                before(c, c.disk, c.status) && before(c, c.status, c.availability) &&
                before(c, c.availability, c.fg) && before(c, c.fg, c.meta) &&
                before(c, c.meta, c.data));

    SgmgrTakeoverEvent t(Text("n"), Text("p"), Text("f"));
    EXPECT_STREQ(t.node, "n");
    EXPECT_STREQ(t.prevNode, "p");
    EXPECT_STREQ(t.fs, "f");
    EXPECT_TRUE(before(t, t.node, t.prevNode) && before(t, t.prevNode, t.fs));

    NodeStatusEvent ns(Text("nn"));
    EXPECT_STREQ(ns.node, "nn");
    SDRChangedEvent sdr(Text("sn"));
    EXPECT_STREQ(sdr.node, "sn");

    FilesystemActionEvent fa(Text("n"), Text("f"));
    EXPECT_STREQ(fa.node, "n");
    EXPECT_STREQ(fa.fs, "f");
    EXPECT_TRUE(before(fa, fa.node, fa.fs));

    FilesystemStateChangeEvent fsc(Text("f"), Text("u"), Text("m"), Text("iu"), Text("im"),
                                   Text("eu"), Text("em"));
    EXPECT_STREQ(fsc.fs, "f");
    EXPECT_STREQ(fsc.user, "u");
    EXPECT_STREQ(fsc.meta, "m");
    EXPECT_STREQ(fsc.illReplicatedUser, "iu");
    EXPECT_STREQ(fsc.illReplicatedMeta, "im");
    EXPECT_STREQ(fsc.exposedUser, "eu");
    EXPECT_STREQ(fsc.exposedMeta, "em");
    EXPECT_TRUE(before(fsc, fsc.fs, fsc.user) && before(fsc, fsc.user, fsc.meta) &&
                before(fsc, fsc.meta, fsc.illReplicatedUser) &&
                before(fsc, fsc.illReplicatedUser, fsc.illReplicatedMeta) &&
                before(fsc, fsc.illReplicatedMeta, fsc.exposedUser) &&
                before(fsc, fsc.exposedUser, fsc.exposedMeta));

    UserGeneratedEvent u(Text("n"), Text("a r g"));
    EXPECT_STREQ(u.node, "n");
    EXPECT_STREQ(u.arg, "a r g");
    EXPECT_TRUE(before(u, u.node, u.arg));
}

TEST(EventRecords, ClassesWithNumbersCopyTheirArgumentsInFieldOrder)
{
    TmStatsEvent tm(Text("n"), Text("f"), -7, 2147483647);
    EXPECT_STREQ(tm.node, "n");
    EXPECT_STREQ(tm.fs, "f");
    EXPECT_EQ(tm.tmSpace, -7);
    EXPECT_EQ(tm.tmRequest, 2147483647);
    EXPECT_TRUE(before(tm, tm.fs, tm.tmSpace) && before(tm, tm.tmSpace, tm.tmRequest));

    HungThreadEvent h(Text("n"), -5000000000L, Text("diag"));
    EXPECT_STREQ(h.node, "n");
    EXPECT_EQ(h.wait, -5000000000L);
    EXPECT_STREQ(h.diagnosis, "diag");
    EXPECT_TRUE(before(h, h.node, h.wait) && before(h, h.wait, h.diagnosis));

    DiskCmdEvent dc(Text("n"), Text("f"), Text("d"), Text("c"), Text("s"), 42);
    EXPECT_STREQ(dc.node, "n");
    EXPECT_STREQ(dc.fs, "f");
    EXPECT_STREQ(dc.disk, "d");
    EXPECT_STREQ(dc.cmd, "c");
    EXPECT_STREQ(dc.status, "s");
    EXPECT_EQ(dc.rc, 42);
    EXPECT_TRUE(before(dc, dc.disk, dc.cmd) && before(dc, dc.cmd, dc.status) &&
                before(dc, dc.status, dc.rc));

    ConsoleLogEvent cl(Text("n"), Text("hello 'x'"), 3);
    EXPECT_STREQ(cl.node, "n");
    EXPECT_STREQ(cl.msg, "hello 'x'");
    EXPECT_EQ(cl.level, 3);
    EXPECT_TRUE(before(cl, cl.node, cl.msg) && before(cl, cl.msg, cl.level));

    RgTakeoverEvent r1(Text("n"), Text("rg"), Text("why"), -1);
    RgRelinquishEvent r2(Text("n2"), Text("rg2"), Text("why2"), 2);
    RgOpenFailedEvent r3(Text("n3"), Text("rg3"), Text("why3"), 3);
    RgPanicEvent r4(Text("n4"), Text("rg4"), Text("why4"), 4);
    EXPECT_STREQ(r1.node, "n");
    EXPECT_STREQ(r1.rg, "rg");
    EXPECT_STREQ(r1.reason, "why");
    EXPECT_EQ(r1.err, -1);
    EXPECT_TRUE(before(r1, r1.node, r1.rg) && before(r1, r1.rg, r1.reason) &&
                before(r1, r1.reason, r1.err));
    EXPECT_STREQ(r2.rg, "rg2");
    EXPECT_STREQ(r2.reason, "why2");
    EXPECT_EQ(r2.err, 2);
    EXPECT_STREQ(r3.node, "n3");
    EXPECT_EQ(r3.err, 3);
    EXPECT_STREQ(r4.reason, "why4");
    EXPECT_EQ(r4.err, 4);

    PdFailedEvent pf(Text("n"), Text("loc"), Text("fru"), Text("wwn"), Text("rg"), Text("da"),
                     Text("pd"), Text("st"));
    EXPECT_STREQ(pf.node, "n");
    EXPECT_STREQ(pf.location, "loc");
    EXPECT_STREQ(pf.fru, "fru");
    EXPECT_STREQ(pf.wwn, "wwn");
    EXPECT_STREQ(pf.rg, "rg");
    EXPECT_STREQ(pf.da, "da");
    EXPECT_STREQ(pf.pdisk, "pd");
    EXPECT_STREQ(pf.state, "st");
    EXPECT_TRUE(before(pf, pf.node, pf.location) && before(pf, pf.location, pf.fru) &&
                before(pf, pf.fru, pf.wwn) && before(pf, pf.wwn, pf.rg) &&
                before(pf, pf.rg, pf.da) && before(pf, pf.da, pf.pdisk) &&
                before(pf, pf.pdisk, pf.state));

    PdRecoveredEvent pr(Text("n"), Text("loc"), Text("fru"), Text("wwn"), Text("rg"),
                        Text("da"), Text("pd"));
    EXPECT_STREQ(pr.pdisk, "pd");
    EXPECT_STREQ(pr.location, "loc");
    EXPECT_EQ(sizeof(PdRecoveredEvent), sizeof(Event) + 7 * 256);

    PdReplacePdiskEvent pp(Text("n"), Text("loc"), Text("fru"), Text("wwn"), Text("rg"),
                           Text("da"), Text("pd"), Text("st"), 9);
    EXPECT_STREQ(pp.state, "st");
    EXPECT_EQ(pp.priority, 9);
    EXPECT_TRUE(before(pp, pp.pdisk, pp.state) && before(pp, pp.state, pp.priority));

    PdPathFailedEvent ppf(Text("n"), Text("loc"), Text("fru"), Text("wwn"), Text("rg"),
                          Text("da"), Text("pd"), Text("/dev/sdx"));
    EXPECT_STREQ(ppf.device, "/dev/sdx");
    EXPECT_STREQ(ppf.wwn, "wwn");
    EXPECT_TRUE(before(ppf, ppf.pdisk, ppf.device));

    DaRebuildFailedEvent da(Text("n"), Text("rg"), Text("da"), 1);
    EXPECT_STREQ(da.node, "n");
    EXPECT_STREQ(da.rg, "rg");
    EXPECT_STREQ(da.da, "da");
    EXPECT_EQ(da.remainingRedundancy, 1);
    EXPECT_TRUE(before(da, da.da, da.remainingRedundancy));

    NsdCksumMismatchEvent ns(Text("n"), Text("client"), Text("other"), Text("nsd1"),
                             Text("why"), 123456789012345LL, 4096, 4000000000u, 7u, 8u, -3);
    EXPECT_STREQ(ns.node, "n");
    EXPECT_STREQ(ns.role, "client");
    EXPECT_STREQ(ns.otherNode, "other");
    EXPECT_STREQ(ns.nsd, "nsd1");
    EXPECT_STREQ(ns.reason, "why");
    EXPECT_EQ(ns.sector, 123456789012345LL);
    EXPECT_EQ(ns.dlen, 4096);
    EXPECT_EQ(ns.ecc, 4000000000u);
    EXPECT_EQ(ns.ecs, 7u);
    EXPECT_EQ(ns.ecnsd, 8u);
    EXPECT_EQ(ns.ri, -3);
    EXPECT_TRUE(before(ns, ns.node, ns.role) && before(ns, ns.role, ns.otherNode) &&
                before(ns, ns.otherNode, ns.nsd) && before(ns, ns.nsd, ns.reason) &&
                before(ns, ns.reason, ns.sector) && before(ns, ns.sector, ns.dlen) &&
                before(ns, ns.dlen, ns.ecc) && before(ns, ns.ecc, ns.ecs) &&
                before(ns, ns.ecs, ns.ecnsd) && before(ns, ns.ecnsd, ns.ri));
}

TEST(EventRecords, PoolUtilizationConstructorTakesStatusBeforeUtil)
{
    StgPoolUtilizationEvent p(Text("fs1"), Text("system"), Text("full"), 97);
    EXPECT_STREQ(p.fs, "fs1");
    EXPECT_STREQ(p.pool, "system");
    EXPECT_STREQ(p.status, "full");
    EXPECT_EQ(p.util, 97);
    EXPECT_TRUE(before(p, p.fs, p.pool) && before(p, p.pool, p.status) &&
                before(p, p.status, p.util));
}

TEST(EventRecords, LongIoTimeEventDropsItsTime)
{
    LongIoTimeEvent e(Text("n"), Text("f"), Text("d"), Text("read"), 512, 5);
    EXPECT_STREQ(e.node, "n");
    EXPECT_STREQ(e.fs, "f");
    EXPECT_STREQ(e.disk, "d");
    EXPECT_STREQ(e.cmd, "read");
    EXPECT_EQ(e.len, 512);
    EXPECT_NE(e.time, 5);
    EXPECT_EQ(e.time, 0);
    EXPECT_TRUE(before(e, e.cmd, e.len) && before(e, e.len, e.time));
}

TEST(EventRecords, TextOfExactly255CharactersFits)
{
    std::string v(255, 'a');
    NodeStatusEvent e{Text(v)};
    EXPECT_EQ(std::string(e.node), v);
    EXPECT_EQ(e.node[255], '\0');
}

TEST(EventRecords, LongerTextIsCutAt255Characters)
{
    std::string v(300, 'b');
    v[255] = 'X';
    MountActionEvent e(Text(v), Text("fs"));
    EXPECT_EQ(std::string(e.node), std::string(255, 'b'));
    EXPECT_EQ(e.node[255], '\0');
    EXPECT_STREQ(e.fs, "fs");   // the neighbour is untouched
}

TEST(EventRecords, BytesBehindTheTerminatorAreCleared)
{
    UserGeneratedEvent e(Text("ab"), Text(""));
    for (size_t i = 2; i < sizeof(e.node); ++i)
        ASSERT_EQ(e.node[i], '\0') << i;
    for (size_t i = 0; i < sizeof(e.arg); ++i)
        ASSERT_EQ(e.arg[i], '\0') << i;
    for (size_t i = 0; i < sizeof(e.severity); ++i)
        ASSERT_EQ(e.severity[i], '\0') << i;
}

TEST(EventRecords, TheRecordDoesNotCarryItsEventNumber)
{
    // The same fields make the same record, whether it came as a mount or an
    // unmount: only the callback slot tells them apart.
    MountActionEvent a(Text("n1"), Text("fs1"));
    MountActionEvent b(Text("n1"), Text("fs1"));
    size_t from = reinterpret_cast<char*>(&a.severity) - reinterpret_cast<char*>(&a);
    EXPECT_EQ(memcmp(reinterpret_cast<char*>(&a) + from, reinterpret_cast<char*>(&b) + from,
                     sizeof(MountActionEvent) - from),
              0);
}

// Looked up in the shared library itself (this program links the library's
// static archive): the destructors that the classes declare are exported,
// the implicit ones are inline and are not.
TEST(EventRecords, ExportedDestructors)
{
    void* lib = dlopen(QUELVANE_SHARED_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(lib, nullptr) << dlerror();
    const char* exported[] = {
        "_ZN5EventD1Ev",
        "_ZN16MountActionEventD1Ev",
        "_ZN15DiskActionEventD1Ev",
        "_ZN12DiskCmdEventD1Ev",
        "_ZN11ChdiskEventD1Ev",
        "_ZN18SgmgrTakeoverEventD1Ev",
        "_ZN15NodeStatusEventD1Ev",
        "_ZN21FilesystemActionEventD1Ev",
        "_ZN26FilesystemStateChangeEventD1Ev",
        "_ZN15HungThreadEventD1Ev",
        "_ZN12TmStatsEventD1Ev",
        "_ZN23StgPoolUtilizationEventD1Ev",
        "_ZN15SDRChangedEventD1Ev",
        "_ZN18UserGeneratedEventD1Ev",
    };
    for (const char* sym : exported)
        EXPECT_NE(dlsym(lib, sym), nullptr) << sym;

    const char* notExported[] = {
        "_ZN15ConsoleLogEventD1Ev",   "_ZN15LongIoTimeEventD1Ev",
        "_ZN15RgTakeoverEventD1Ev",   "_ZN17RgRelinquishEventD1Ev",
        "_ZN17RgOpenFailedEventD1Ev", "_ZN12RgPanicEventD1Ev",
        "_ZN13PdFailedEventD1Ev",     "_ZN16PdRecoveredEventD1Ev",
        "_ZN19PdReplacePdiskEventD1Ev", "_ZN17PdPathFailedEventD1Ev",
        "_ZN20DaRebuildFailedEventD1Ev", "_ZN21NsdCksumMismatchEventD1Ev",
    };
    for (const char* sym : notExported)
        EXPECT_EQ(dlsym(lib, sym), nullptr) << sym;
    dlclose(lib);
}

TEST(EventRecords, RecordsAreFreedThroughTheirConcreteClass)
{
    Event* e = new DiskCmdEvent(Text("n"), Text("f"), Text("d"), Text("c"), Text("s"), 1);
    delete static_cast<DiskCmdEvent*>(e);
    Event* n = new NsdCksumMismatchEvent(Text("n"), Text("r"), Text("o"), Text("x"), Text("y"),
                                         1, 2, 3, 4, 5, 6);
    delete static_cast<NsdCksumMismatchEvent*>(n);
    SUCCEED();
}

TEST(EventNames, ThirtyTwoRowsAndAClosingRow)
{
    const char* names[32] = {
        "mount",        "unmount",      "adddisk",        "deldisk",      "chdisk",
        "takeover",     "failure",      "recovery",       "createfs",     "deletefs",
        "fsstatechange", "newconnection", "exception",    "sgStats",      "hungthread",
        "poolutil",     "sdrChanged",   "vkadddisk",      "vkdeldisk",    "consoleLog",
        "longIO",       "userEvent",    "rgTakeover",     "rgRelinquish", "rgOpenFailed",
        "rgPanic",      "pdFailed",     "pdRecovered",    "pdReplacePdisk", "pdPathFailed",
        "daRebuildFailed", "nsdCksumMismatch",
    };
    const int lengths[32] = {5, 7, 7, 7, 6, 8, 7, 8, 8, 8, 13, 13, 9, 7, 10, 8,
                             10, 9, 9, 10, 6, 9, 10, 12, 12, 7, 8, 11, 14, 12, 15, 16};
    EXPECT_EQ(EVENTS_MAX_TYPES, 32);
    EXPECT_EQ(sizeof(EventNamesP) / sizeof(EventNamesP[0]), 33u);
    for (int i = 0; i < 32; ++i) {
        ASSERT_NE(EventNamesP[i].name, nullptr) << i;
        EXPECT_STREQ(EventNamesP[i].name, names[i]) << i;
        EXPECT_EQ(EventNamesP[i].length, lengths[i]) << i;
        EXPECT_EQ(EventNamesP[i].length, static_cast<int>(strlen(names[i]))) << i;
    }
    EXPECT_EQ(EventNamesP[32].name, nullptr);
    EXPECT_EQ(EventNamesP[32].length, 0);
}
