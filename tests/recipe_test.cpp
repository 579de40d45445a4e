// The recipe: its refresh at start, the deep copy for the command thread, the
// shallow copy for the application, forgetting a tree, generation numbers.
#include "support/fake_daemon.h"
#include "support/fake_tool.h"
#include "support/files.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include <quelvane/api_poll.h>
#include <quelvane/cluster_info.h>

using namespace qvtest;

namespace {

MErrno e = 0;

void startHandler(FakeDaemon&, FakeTool& kx, int scope = POLL_LOCAL_NODE)
{
    kx.output("3504\n");
    ASSERT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, scope), 0);
    ASSERT_NE(thePollingHandler, nullptr);
    ASSERT_NE(thePollingHandler->recipe, nullptr);
}

DiskServerInfo* server(const char* name)
{
    DiskServerInfo* s = new DiskServerInfo(&e);
    strcpy(s->name, name);
    return s;
}

DiskInfo* disk(const char* name, std::vector<const char*> servers, std::vector<const char*> backups)
{
    DiskInfo* d = new DiskInfo(&e);
    strcpy(d->name, name);
    strcpy(d->status, "up");
    d->totalSpace = 1000 + static_cast<long long>(strlen(name));
    for (const char* s : servers)
        d->serverItems.push_back(server(s));
    for (const char* s : backups)
        d->backupServerItems.push_back(server(s));
    return d;
}

// A recipe with two nodes (one with two disk paths), one filesystem with two
// pools and three disks with servers, and one free disk with servers.
void populate(ClusterInfo* c)
{
    strcpy(c->clusterName, "clu1");
    strcpy(c->sdrField1002, "f1002");
    strcpy(c->sdrField1003, "f1003");
    strcpy(c->maxFeature, "mf");
    strcpy(c->sdrField1008, "f1008");
    strcpy(c->sdrField1006, "f1006");
    strcpy(c->sdrField1007, "f1007");
    strcpy(c->sdrField1004, "f1004");
    strcpy(c->sdrField1005, "f1005");
    c->maxBlockSize = 4194304;
    c->distribTokenServer = 1;
    c->failureDetectionTime = 35;
    c->sdrField1011 = 11;
    c->minMissedPingTimeout = 3;
    c->maxMissedPingTimeout = 60;
    c->sdrfsGenNumber = 77;
    c->nodeUpdateTime.tv_sec = 1000;
    c->diskSdrUpdateTime.tv_sec = 2000;

    const char* addrs[] = {"10.0.0.1", "10.0.0.2"};
    for (const char* a : addrs) {
        NodeInfo* n = new NodeInfo(&e);
        strcpy(n->ipAddr, a);
        strcpy(n->name, (std::string("node-") + a).c_str());
        strcpy(n->status, "up");
        c->nodeItems.push_back(n);
    }
    for (const char* dname : {"d1", "d2"}) {
        DiskAccessInfo* da = new DiskAccessInfo(&e);
        strcpy(da->diskName, dname);
        da->local = 1;
        strcpy(da->deviceName, (std::string("/dev/") + dname).c_str());
        c->nodeItems[0]->diskAccessItems.push_back(da);
    }

    FilesystemInfo* fs = new FilesystemInfo(&e);
    strcpy(fs->name, "fs1");
    StoragePoolInfo* p1 = new StoragePoolInfo(&e);
    strcpy(p1->name, "system");
    p1->diskItems.push_back(disk("d1", {"node-a", "node-b"}, {"node-c"}));
    p1->diskItems.push_back(disk("d2", {"node-b"}, {}));
    StoragePoolInfo* p2 = new StoragePoolInfo(&e);
    strcpy(p2->name, "data");
    p2->diskItems.push_back(disk("d3", {}, {"node-a", "node-b"}));
    fs->poolItems.push_back(p1);
    fs->poolItems.push_back(p2);
    c->filesystemItems.push_back(fs);

    c->freeDiskItems.push_back(disk("free1", {"node-x"}, {"node-y"}));
}

std::vector<std::string> names(const std::vector<DiskServerInfo*>& v)
{
    std::vector<std::string> out;
    for (DiskServerInfo* s : v)
        out.push_back(s->name);
    return out;
}

void expectSameDisk(DiskInfo* a, DiskInfo* b)
{
    ASSERT_NE(a, b);
    EXPECT_STREQ(a->name, b->name);
    EXPECT_STREQ(a->status, b->status);
    EXPECT_EQ(a->totalSpace, b->totalSpace);
    EXPECT_EQ(names(a->serverItems), names(b->serverItems));
    EXPECT_EQ(names(a->backupServerItems), names(b->backupServerItems));
    for (size_t i = 0; i < a->serverItems.size() && i < b->serverItems.size(); i++)
        EXPECT_NE(a->serverItems[i], b->serverItems[i]);
}

} // namespace

TEST(Recipe, StartStampsTheClusterUpdateTime)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    startHandler(daemon, kx);
    ClusterInfo* r = thePollingHandler->recipe;
    EXPECT_NE(r->clusterUpdateTime.tv_sec, 0);
    EXPECT_EQ(r->nodeUpdateTime.tv_sec, 0);
    EXPECT_EQ(r->diskSdrUpdateTime.tv_sec, 0);
    EXPECT_TRUE(r->nodeItems.empty());
    PollingHandler::term();
}

TEST(Recipe, RefreshLogsAndIgnoresItsArgument)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    startHandler(daemon, kx);
    PollingHandler* h = thePollingHandler;
    h->recipe->sdrfsGenNumber = 12;
    size_t before = daemon.requestLines().size();
    LogCapture log;
    h->getPollingLock();
    // The handler's own scope (local) decides: no node list, whatever is passed.
    EXPECT_EQ(h->refreshClusterRecipe(POLL_ALL_CLUSTERS), 0);
    h->releasePollingLock();
    EXPECT_EQ(daemon.requestLines().size(), before);
    std::vector<std::string> l = log.lines();
    ASSERT_EQ(l.size(), 2u);
    char expected[256];
    snprintf(expected, sizeof(expected),
             "INFO: PollingHandler::refreshClusterRecipe: enter, sdrfsGenNumber 12 size %d recipe 0x%X",
             static_cast<int>(sizeof(ClusterInfo)),
             static_cast<unsigned int>(reinterpret_cast<uintptr_t>(h->recipe)));
    EXPECT_EQ(l[0], expected);
    EXPECT_EQ(l[1], "INFO: PollingHandler::refreshClusterRecipe: exit");
    PollingHandler::term();
    log.closedByLibrary();
}

TEST(Recipe, CopyOfAnEmptyRecipeCopiesTheTexts)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    startHandler(daemon, kx);
    ClusterInfo* r = thePollingHandler->recipe;
    strcpy(r->clusterName, "clu1");
    strcpy(r->sdrField1005, "f1005");
    strcpy(r->sdrField1008, "f1008");
    r->maxBlockSize = 262144;
    r->sdrfsGenNumber = 9;
    r->failureDetectionTime = 35;
    ClusterInfo dst(&e);
    EXPECT_EQ(thePollingHandler->copyRecipe(&dst), 0);
    EXPECT_STREQ(dst.clusterName, "clu1");
    EXPECT_STREQ(dst.sdrField1005, "f1005");
    EXPECT_STREQ(dst.sdrField1008, "f1008");
    EXPECT_EQ(dst.maxBlockSize, 262144);
    // No other number and no cluster time stamp.
    EXPECT_EQ(dst.sdrfsGenNumber, 0u);
    EXPECT_EQ(dst.failureDetectionTime, 0);
    EXPECT_EQ(dst.clusterUpdateTime.tv_sec, 0);
    EXPECT_TRUE(dst.nodeItems.empty());
    EXPECT_TRUE(dst.filesystemItems.empty());
    EXPECT_TRUE(dst.freeDiskItems.empty());
    // The lock was released.
    EXPECT_EQ(pthread_mutex_trylock(&thePollingHandler->pollingMutex), 0);
    thePollingHandler->releasePollingLock();
    PollingHandler::term();
}

TEST(Recipe, CopyOfAPopulatedRecipeIsAnEqualDeepTree)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    startHandler(daemon, kx);
    ClusterInfo* r = thePollingHandler->recipe;
    populate(r);
    ClusterInfo dst(&e);
    EXPECT_EQ(thePollingHandler->copyRecipe(&dst), 0);

    EXPECT_STREQ(dst.clusterName, "clu1");
    EXPECT_STREQ(dst.sdrField1002, "f1002");
    EXPECT_STREQ(dst.sdrField1003, "f1003");
    EXPECT_STREQ(dst.maxFeature, "mf");
    EXPECT_STREQ(dst.sdrField1004, "f1004");
    EXPECT_STREQ(dst.sdrField1006, "f1006");
    EXPECT_STREQ(dst.sdrField1007, "f1007");
    EXPECT_EQ(dst.maxBlockSize, 4194304);
    EXPECT_EQ(dst.distribTokenServer, 0);
    EXPECT_EQ(dst.minMissedPingTimeout, 0);
    EXPECT_EQ(dst.sdrfsGenNumber, 0u);
    EXPECT_EQ(dst.clusterUpdateTime.tv_sec, 0);
    EXPECT_EQ(dst.diskSdrUpdateTime.tv_sec, 0);

    ASSERT_EQ(dst.nodeItems.size(), 2u);
    for (size_t i = 0; i < 2; i++) {
        EXPECT_NE(dst.nodeItems[i], r->nodeItems[i]);
        EXPECT_STREQ(dst.nodeItems[i]->ipAddr, r->nodeItems[i]->ipAddr);
        EXPECT_STREQ(dst.nodeItems[i]->name, r->nodeItems[i]->name);
        EXPECT_STREQ(dst.nodeItems[i]->status, "up");
    }
    ASSERT_EQ(dst.nodeItems[0]->diskAccessItems.size(), 2u);
    EXPECT_STREQ(dst.nodeItems[0]->diskAccessItems[1]->diskName, "d2");
    EXPECT_STREQ(dst.nodeItems[0]->diskAccessItems[1]->deviceName, "/dev/d2");
    EXPECT_EQ(dst.nodeItems[0]->diskAccessItems[1]->local, 1);
    EXPECT_NE(dst.nodeItems[0]->diskAccessItems[0], r->nodeItems[0]->diskAccessItems[0]);
    EXPECT_TRUE(dst.nodeItems[1]->diskAccessItems.empty());

    ASSERT_EQ(dst.filesystemItems.size(), 1u);
    FilesystemInfo* fs = dst.filesystemItems[0];
    EXPECT_NE(fs, r->filesystemItems[0]);
    EXPECT_STREQ(fs->name, "fs1");
    ASSERT_EQ(fs->poolItems.size(), 2u);
    EXPECT_STREQ(fs->poolItems[0]->name, "system");
    EXPECT_STREQ(fs->poolItems[1]->name, "data");
    ASSERT_EQ(fs->poolItems[0]->diskItems.size(), 2u);
    ASSERT_EQ(fs->poolItems[1]->diskItems.size(), 1u);
    for (size_t j = 0; j < 2; j++) {
        StoragePoolInfo* sp = r->filesystemItems[0]->poolItems[j];
        StoragePoolInfo* dp = fs->poolItems[j];
        EXPECT_NE(sp, dp);
        for (size_t k = 0; k < sp->diskItems.size(); k++)
            expectSameDisk(dp->diskItems[k], sp->diskItems[k]);
    }
    EXPECT_EQ(names(fs->poolItems[0]->diskItems[0]->serverItems),
              (std::vector<std::string>{"node-a", "node-b"}));
    EXPECT_EQ(names(fs->poolItems[1]->diskItems[0]->backupServerItems),
              (std::vector<std::string>{"node-a", "node-b"}));

    ASSERT_EQ(dst.freeDiskItems.size(), 1u);
    expectSameDisk(dst.freeDiskItems[0], r->freeDiskItems[0]);
    EXPECT_EQ(names(dst.freeDiskItems[0]->serverItems), (std::vector<std::string>{"node-x"}));
    EXPECT_EQ(names(dst.freeDiskItems[0]->backupServerItems), (std::vector<std::string>{"node-y"}));
    PollingHandler::term();
}

TEST(Recipe, ShallowCopyForTheApplication)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    startHandler(daemon, kx);
    ClusterInfo* r = thePollingHandler->recipe;
    populate(r);
    r->clusterUpdateTime.tv_sec = 1234;
    r->clusterUpdateTime.tv_usec = 567;
    ClusterInfo dst(&e);
    EXPECT_EQ(thePollingHandler->getClusterInfo(&dst), 0);
    EXPECT_STREQ(dst.clusterName, "clu1");
    EXPECT_STREQ(dst.sdrField1008, "f1008");
    EXPECT_EQ(dst.maxBlockSize, 4194304);
    EXPECT_EQ(dst.minMissedPingTimeout, 3);
    EXPECT_EQ(dst.maxMissedPingTimeout, 60);
    EXPECT_EQ(dst.sdrfsGenNumber, 77u);
    EXPECT_EQ(dst.distribTokenServer, 0);
    EXPECT_EQ(dst.failureDetectionTime, 0);
    EXPECT_EQ(dst.sdrField1011, 0);
    EXPECT_EQ(dst.clusterUpdateTime.tv_sec, 1234);
    EXPECT_EQ(dst.clusterUpdateTime.tv_usec, 567);
    ASSERT_EQ(dst.nodeItems.size(), 2u);
    EXPECT_STREQ(dst.nodeItems[1]->ipAddr, "10.0.0.2");
    // Disk paths, pools and disks are not descended into.
    EXPECT_TRUE(dst.nodeItems[0]->diskAccessItems.empty());
    ASSERT_EQ(dst.filesystemItems.size(), 1u);
    EXPECT_STREQ(dst.filesystemItems[0]->name, "fs1");
    EXPECT_TRUE(dst.filesystemItems[0]->poolItems.empty());
    EXPECT_TRUE(dst.freeDiskItems.empty());
    PollingHandler::term();
}

TEST(Recipe, InitClusterRecipeForgetsWithoutFreeing)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    startHandler(daemon, kx);
    ClusterInfo tree(&e);
    populate(&tree);
    NodeInfo* node0 = tree.nodeItems[0];
    FilesystemInfo* fs = tree.filesystemItems[0];
    StoragePoolInfo* pool0 = fs->poolItems[0];
    DiskInfo* disk0 = pool0->diskItems[0];
    size_t nodeCap = tree.nodeItems.capacity();
    EXPECT_EQ(thePollingHandler->initClusterRecipe(&tree), 0);
    EXPECT_STREQ(tree.clusterName, "");
    EXPECT_STREQ(tree.sdrField1002, "");
    EXPECT_STREQ(tree.sdrField1003, "");
    EXPECT_STREQ(tree.maxFeature, "");
    EXPECT_EQ(tree.clusterName[255], '\0');
    EXPECT_STREQ(tree.sdrField1008, "f1008");
    EXPECT_STREQ(tree.sdrField1005, "f1005");
    EXPECT_EQ(tree.maxBlockSize, 4194304);
    EXPECT_EQ(tree.sdrfsGenNumber, 77u);
    EXPECT_EQ(tree.nodeUpdateTime.tv_sec, 1000);
    EXPECT_EQ(tree.diskSdrUpdateTime.tv_sec, 2000);
    EXPECT_TRUE(tree.nodeItems.empty());
    EXPECT_EQ(tree.nodeItems.capacity(), nodeCap);
    EXPECT_TRUE(tree.filesystemItems.empty());
    // Free disks are not touched.
    EXPECT_EQ(tree.freeDiskItems.size(), 1u);
    // The forgotten records still live and keep their contents.
    EXPECT_STREQ(node0->ipAddr, "10.0.0.1");
    EXPECT_TRUE(fs->poolItems.empty());
    EXPECT_TRUE(pool0->diskItems.empty());
    EXPECT_STREQ(disk0->name, "d1");
    EXPECT_EQ(disk0->serverItems.size(), 2u);
    PollingHandler::term();
}

TEST(Recipe, GenerationNumberFromTheRecipe)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    startHandler(daemon, kx);
    EXPECT_EQ(thePollingHandler->getSdrfsGenNumberFromRecipe(), 0u);
    EXPECT_EQ(thePollingHandler->updateSdrfsGenNumber(4000000000u), 0);
    EXPECT_EQ(thePollingHandler->recipe->sdrfsGenNumber, 4000000000u);
    EXPECT_EQ(thePollingHandler->getSdrfsGenNumberFromRecipe(), 4000000000u);
    PollingHandler::term();
}

TEST(Recipe, GenerationNumberFromTheToolLastMatchWins)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    startHandler(daemon, kx);
    FakeTool q("vksdrquery");
    q.output("vksdrquery:sdrq_cluster_info:HEADER:version:::gen:\n"
             "vksdrquery:sdrq_cluster_info:0:1:::17:\n"
             "vksdrquery:sdrq_cluster_info:0:1:::18:x:\n"
             "other line\n"
             "vksdrquery:sdrq_cluster_info:0:1:::19:\n");
    LogCapture log;
    EXPECT_EQ(thePollingHandler->getSdrfsGenNumber(), 19u);
    EXPECT_EQ(q.calls(), (std::vector<std::string>{"10 1015 all norefresh"}));
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               "INFO: PollingHandler::getSdrfsGenNumber: sscanf match failure rc 0 buf "
                               "vksdrquery:sdrq_cluster_info:HEADER:version:::gen:",
                               "",
                               "INFO: PollingHandler::getSdrfsGenNumber: sscanf match failure rc 0 buf other line",
                               ""}));
    PollingHandler::term();
    log.closedByLibrary();
}

TEST(Recipe, GenerationNumberKeptOnFailingTool)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    startHandler(daemon, kx);
    FakeTool q("vksdrquery");
    q.output("vksdrquery:sdrq_cluster_info:0:1:::21:\n", 4);
    LogCapture log;
    StderrCapture cap;
    EXPECT_EQ(thePollingHandler->getSdrfsGenNumber(), 21u);
    cap.finish();
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               "ERROR: PollingHandler::getSdrfsGenNumber: pclose exit status: 4"}));
    q.output("", 0);
    EXPECT_EQ(thePollingHandler->getSdrfsGenNumber(), 0u);
    PollingHandler::term();
    log.closedByLibrary();
}

TEST(Recipe, NodeListRequestsFollowTheHandlersScope)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    startHandler(daemon, kx, POLL_LOCAL_CLUSTER);
    size_t before = daemon.requestLines().size();
    thePollingHandler->getPollingLock();
    thePollingHandler->refreshClusterRecipe(POLL_LOCAL_NODE);
    thePollingHandler->releasePollingLock();
    std::vector<std::string> l = daemon.requestLines();
    EXPECT_EQ(std::vector<std::string>(l.begin() + static_cast<long>(before), l.end()),
              (std::vector<std::string>{"tavrel n + *", "tavrel ng ~", "tavrel ng + *", "tavrel ng cnt"}));
    PollingHandler::term();
}
