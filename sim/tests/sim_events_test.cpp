// The event pipeline against the simulated daemon: every one of the 32 event
// words sent with "ctl event" reaches its callback as a record whose fields
// are the values of the line, and the events of model changes come with them.
#include "sim/tests/sim_fixture.h"

#include "sim/events.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

using namespace qvsim;
using namespace qvsimtest;

namespace {

using Fields = std::map<std::string, std::string>;

std::string num(long long v)
{
    return std::to_string(v);
}

// The record's fields by the keyword that fills each; frees the record
// through its concrete class.
Fields fieldsOf(int type, Event* e)
{
    Fields f;
    switch (type) {
    case 0:
    case 1: {
        auto* r = static_cast<MountActionEvent*>(e);
        f = {{"_node_", r->node}, {"_fs_", r->fs}};
        delete r;
        break;
    }
    case 2:
    case 3: {
        auto* r = static_cast<DiskActionEvent*>(e);
        f = {{"_node_", r->node}, {"_fs_", r->fs}, {"_disk_", r->disk}};
        delete r;
        break;
    }
    case 4: {
        auto* r = static_cast<ChdiskEvent*>(e);
        f = {{"_node_", r->node},     {"_fs_", r->fs},   {"_disk_", r->disk}, {"_status_", r->status},
             {"_availability_", r->availability}, {"_fg_", r->fg}, {"_meta_", r->meta}, {"_data_", r->data}};
        delete r;
        break;
    }
    case 5: {
        auto* r = static_cast<SgmgrTakeoverEvent*>(e);
        f = {{"_node_", r->node}, {"_prevnode_", r->prevNode}, {"_fs_", r->fs}};
        delete r;
        break;
    }
    case 6:
    case 7:
    case 11: {
        auto* r = static_cast<NodeStatusEvent*>(e);
        f = {{type == 11 ? "_n_" : "_node_", r->node}};
        delete r;
        break;
    }
    case 8:
    case 9: {
        auto* r = static_cast<FilesystemActionEvent*>(e);
        f = {{"_node_", r->node}, {"_fs_", r->fs}};
        delete r;
        break;
    }
    case 10: {
        auto* r = static_cast<FilesystemStateChangeEvent*>(e);
        f = {{"_fs_", r->fs},
             {"_user_", r->user},
             {"_meta_", r->meta},
             {"_illreplicated_", std::string(r->illReplicatedUser) + " " + r->illReplicatedMeta},
             {"_exposed_", std::string(r->exposedUser) + " " + r->exposedMeta}};
        delete r;
        break;
    }
    case 13: {
        auto* r = static_cast<TmStatsEvent*>(e);
        f = {{"_node_", r->node}, {"_fs_", r->fs}, {"_tmSpace_", num(r->tmSpace)}, {"_tmRequest_", num(r->tmRequest)}};
        delete r;
        break;
    }
    case 14: {
        auto* r = static_cast<HungThreadEvent*>(e);
        f = {{"_node_", r->node}, {"_wait_", num(r->wait)}, {"_diagnosis_", r->diagnosis}};
        delete r;
        break;
    }
    case 15: {
        auto* r = static_cast<StgPoolUtilizationEvent*>(e);
        f = {{"_fs_", r->fs}, {"_pool_", r->pool}, {"_util_", num(r->util)}, {"_status_", r->status}};
        delete r;
        break;
    }
    case 16: {
        auto* r = static_cast<SDRChangedEvent*>(e);
        f = {{"_node_", r->node}};
        delete r;
        break;
    }
    case 17:
    case 18: {
        auto* r = static_cast<DiskCmdEvent*>(e);
        f = {{"_node_", r->node}, {"_fs_", r->fs},         {"_disk_", r->disk},
             {"_cmd_", r->cmd},   {"_status_", r->status}, {"_rc_", num(r->rc)}};
        delete r;
        break;
    }
    case 19: {
        auto* r = static_cast<ConsoleLogEvent*>(e);
        f = {{"_n_", r->node}, {"_level_", num(r->level)}, {"_msg_", r->msg}};
        delete r;
        break;
    }
    case 20: {
        auto* r = static_cast<LongIoTimeEvent*>(e);
        f = {{"_n_", r->node}, {"_fs_", r->fs}, {"_disk_", r->disk}, {"_cmd_", r->cmd}, {"_len_", num(r->len)}};
        delete r;
        break;
    }
    case 21: {
        auto* r = static_cast<UserGeneratedEvent*>(e);
        f = {{"_n_", r->node}, {"_arg_", r->arg}};
        delete r;
        break;
    }
    case 22: {
        auto* r = static_cast<RgTakeoverEvent*>(e);
        f = {{"_n_", r->node}, {"_rg_", r->rg}, {"_reason_", r->reason}, {"_err_", num(r->err)}};
        delete r;
        break;
    }
    case 23: {
        auto* r = static_cast<RgRelinquishEvent*>(e);
        f = {{"_n_", r->node}, {"_rg_", r->rg}, {"_reason_", r->reason}, {"_err_", num(r->err)}};
        delete r;
        break;
    }
    case 24: {
        auto* r = static_cast<RgOpenFailedEvent*>(e);
        f = {{"_n_", r->node}, {"_rg_", r->rg}, {"_reason_", r->reason}, {"_err_", num(r->err)}};
        delete r;
        break;
    }
    case 25: {
        auto* r = static_cast<RgPanicEvent*>(e);
        f = {{"_n_", r->node}, {"_rg_", r->rg}, {"_reason_", r->reason}, {"_err_", num(r->err)}};
        delete r;
        break;
    }
    case 26: {
        auto* r = static_cast<PdFailedEvent*>(e);
        f = {{"_n_", r->node}, {"_location_", r->location}, {"_fru_", r->fru}, {"_wwn_", r->wwn},
             {"_rg_", r->rg},  {"_da_", r->da},             {"_pdisk_", r->pdisk}, {"_state_", r->state}};
        delete r;
        break;
    }
    case 27: {
        auto* r = static_cast<PdRecoveredEvent*>(e);
        f = {{"_n_", r->node}, {"_location_", r->location}, {"_fru_", r->fru}, {"_wwn_", r->wwn},
             {"_rg_", r->rg},  {"_da_", r->da},             {"_pdisk_", r->pdisk}};
        delete r;
        break;
    }
    case 28: {
        auto* r = static_cast<PdReplacePdiskEvent*>(e);
        f = {{"_n_", r->node}, {"_location_", r->location}, {"_fru_", r->fru},     {"_wwn_", r->wwn},
             {"_rg_", r->rg},  {"_da_", r->da},             {"_pdisk_", r->pdisk}, {"_state_", r->state},
             {"_priority_", num(r->priority)}};
        delete r;
        break;
    }
    case 29: {
        auto* r = static_cast<PdPathFailedEvent*>(e);
        f = {{"_n_", r->node}, {"_location_", r->location}, {"_fru_", r->fru},     {"_wwn_", r->wwn},
             {"_rg_", r->rg},  {"_da_", r->da},             {"_pdisk_", r->pdisk}, {"_device_", r->device}};
        delete r;
        break;
    }
    case 30: {
        auto* r = static_cast<DaRebuildFailedEvent*>(e);
        f = {{"_n_", r->node}, {"_rg_", r->rg}, {"_da_", r->da}, {"_remainingRedundancy_", num(r->remainingRedundancy)}};
        delete r;
        break;
    }
    case 31: {
        auto* r = static_cast<NsdCksumMismatchEvent*>(e);
        f = {{"_n_", r->node},         {"_role_", r->role},     {"_othernode_", r->otherNode},
             {"_nsd_", r->nsd},        {"_reason_", r->reason}, {"_sector_", num(r->sector)},
             {"_dlen_", num(r->dlen)}, {"_ecc_", num(r->ecc)},  {"_ecs_", num(r->ecs)},
             {"_ecnsd_", num(r->ecnsd)}, {"_ri_", num(r->ri)}};
        delete r;
        break;
    }
    default:
        break;
    }
    return f;
}

struct Received {
    int type;
    Fields fields;
    std::string severity;
};

std::mutex gMutex;
std::condition_variable gCond;
std::vector<Received> gReceived;

struct Slot {
    int type;
};
Slot gSlots[32];

int record(Event* e, void* data)
{
    int type = static_cast<Slot*>(data)->type;
    std::string severity = e->severity;
    Fields f = fieldsOf(type, e);
    std::lock_guard<std::mutex> lock(gMutex);
    gReceived.push_back({type, f, severity});
    gCond.notify_all();
    return 0;
}

bool waitFor(size_t n)
{
    std::unique_lock<std::mutex> lock(gMutex);
    return gCond.wait_for(lock, std::chrono::seconds(10), [&] { return gReceived.size() >= n; });
}

class SimEvents : public SimFixture
{
protected:
    void startEvents()
    {
        gReceived.clear();
        ASSERT_EQ(EventsHandler::init(nullptr, 0), 0);
        for (int i = 0; i < 32; ++i) {
            gSlots[i].type = i;
            theEventsHandler->registerEventCallback(i, record, &gSlots[i]);
        }
        runner = std::thread([] { theEventsHandler->run(); });
        // The handler's connection is open once the daemon counts it.
        for (int i = 0; i < 200 && sim->openConnections() == 0; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        ASSERT_GE(sim->openConnections(), 1u);
    }

    void stopEvents()
    {
        sim->stop();   // the connection goes, and the one reconnection fails
        if (runner.joinable())
            runner.join();
        EventsHandler::term();
    }

    std::thread runner;
};

TEST_F(SimEvents, EveryEventWordReachesItsCallbackWithTheLineValues)
{
    startSim();
    startEvents();
    SimCluster m = dump();
    std::vector<std::pair<int, Fields>> sent;
    const auto& words = eventWords();
    for (size_t i = 0; i < words.size(); ++i) {
        if (i == 12)
            continue;   // "exception" yields no record
        std::vector<std::string> args = {words[i].word, "_severity_", "WARNING"};
        ControlReply r = sim->control("event", args);
        ASSERT_EQ(r.status, 0) << r.err;
        EventPairs pairs = completeEventPairs(m, words[i].word, {{"_severity_", "WARNING"}});
        Fields f;
        for (const auto& kv : pairs)
            f[kv.first] = kv.second;
        sent.emplace_back(static_cast<int>(i), f);
    }
    ASSERT_TRUE(waitFor(sent.size()));
    stopEvents();
    ASSERT_EQ(gReceived.size(), sent.size());
    for (size_t k = 0; k < sent.size(); ++k) {
        SCOPED_TRACE(words[static_cast<size_t>(sent[k].first)].word);
        EXPECT_EQ(gReceived[k].type, sent[k].first);
        EXPECT_EQ(gReceived[k].severity, "WARNING");
        EXPECT_FALSE(gReceived[k].fields.empty());
        for (const auto& kv : gReceived[k].fields) {
            ASSERT_EQ(sent[k].second.count(kv.first), 1u) << kv.first;
            EXPECT_EQ(kv.second, sent[k].second[kv.first]) << kv.first;
        }
    }
}

TEST_F(SimEvents, ModelChangesSendTheirEvents)
{
    startSim();
    startEvents();
    EXPECT_EQ(ctl("fail-node node02"), 0);
    EXPECT_EQ(ctl("disk-down fs2 nsd0010"), 0);
    EXPECT_EQ(ctl("create-fs fs9"), 0);
    EXPECT_EQ(ctl("event consoleLog _msg_ 'it is a long message'"), 0);
    ASSERT_TRUE(waitFor(5));
    stopEvents();
    ASSERT_EQ(gReceived.size(), 5u);
    EXPECT_EQ(gReceived[0].type, 6);
    EXPECT_EQ(gReceived[0].fields["_node_"], "10.0.0.2");
    EXPECT_EQ(gReceived[1].type, 4);
    EXPECT_EQ(gReceived[1].fields["_disk_"], "nsd0010");
    EXPECT_EQ(gReceived[1].fields["_status_"], "down");
    EXPECT_EQ(gReceived[2].type, 8);
    EXPECT_EQ(gReceived[2].fields["_fs_"], "fs9");
    EXPECT_EQ(gReceived[3].type, 16);
    EXPECT_EQ(gReceived[4].type, 19);
    EXPECT_EQ(gReceived[4].fields["_msg_"], "it is a long message");
}

TEST(SimEventLines, LinesAreShapedAsTheDaemonWritesThem)
{
    EXPECT_EQ(eventLine("mount", {{"_node_", "n1"}, {"_fs_", "fs1"}, {"_severity_", "INFO"}}),
              "_event_ mount _node_ n1 _fs_ fs1 _severity_ INFO");
    EXPECT_EQ(eventLine("consoleLog", {{"_msg_", "a b 'c'"}, {"_n_", "n1"}, {"_level_", "2"}}),
              "_event_ consoleLog _n_ n1 _level_ 2 _msg_ a b 'c'");
    EXPECT_EQ(eventLine("userEvent", {{"_n_", "n1"}, {"_arg_", "two words"}}),
              "_event_ userEvent _n_ n1 _arg_ 'two words'");
    EXPECT_EQ(eventLine("fsstatechange", {{"_fs_", "f"}, {"_user_", "1"}, {"_meta_", "2"},
                                          {"_illreplicated_", "3 4"}, {"_exposed_", "5 6"}}),
              "_event_ fsstatechange _fs_ f _user_ 1 _meta_ 2 _illreplicated_ _user_ 3 _meta_ 4 "
              "_exposed_ _user_ 5 _meta_ 6");
    EXPECT_EQ(eventWords().size(), 32u);
}

} // namespace
