// The fake cluster renders the exact texts of the repository queries, the
// tools and the daemon, and scripts the fakes with them.
#include "support/fake_cluster.h"
#include "support/files.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

using namespace qvtest;

namespace {

std::string run(const std::string& cmd, int* status)
{
    FILE* f = popen(cmd.c_str(), "r");
    std::string out;
    char buf[512];
    while (fgets(buf, sizeof(buf), f) != nullptr)
        out += buf;
    int rc = pclose(f);
    *status = (rc >> 8) & 255;
    return out;
}

} // namespace

TEST(FakeCluster, RendersTheRepositoryQueries)
{
    SimCluster c = smallCluster();
    EXPECT_EQ(sim::clusterQueryOutput(c),
              "vksdrquery:sdrq_cluster_info:0:1:::cluster1:id-1002:uid-1003:prim-1008:sec-1006:"
              "rsh-1007:1011:rcp-1004:gen-1005:\n");
    EXPECT_EQ(sim::genNumberOutput(c), "vksdrquery:sdrq_cluster_info:0:1:::42:\n");
    EXPECT_EQ(sim::nodeQueryOutput(c),
              "vksdrquery:sdrq_node_info:0:1:::node1:10.0.0.1:1:true:true:0:n1-2010:false:false:\n"
              "vksdrquery:sdrq_node_info:0:1:::node2:10.0.0.2:1:false:true:0:n2-2010:false:true:\n"
              "vksdrquery:sdrq_node_info:0:1:::node3:10.0.0.3:1:false:false:0:n3-2010:true:false:\n");
    EXPECT_EQ(sim::diskQueryOutput(c),
              "vksdrquery:sdrq_nsd_info:0:1:::d1:fs1:system:dataAndMetadata:d1-3007:d1-3008:node1:node2:\n"
              "vksdrquery:sdrq_nsd_info:0:1:::d2:fs1:data1:dataOnly:d2-3007:d2-3008:node2:node1:\n"
              "vksdrquery:sdrq_nsd_info:0:1:::d3:fs1:data1:metadataOnly:d3-3007:d3-3008:node2,node3::\n"
              "vksdrquery:sdrq_nsd_info:0:1:::d4:fs2:system:dataAndMetadata:d4-3007:d4-3008:node1:node2,node3:\n"
              "vksdrquery:sdrq_nsd_info:0:1:::d5:free_disk:system:dataOnly:d5-3007:d5-3008:node1:node2:\n");
}

TEST(FakeCluster, RendersDaemonLines)
{
    SimCluster c = smallCluster();
    std::vector<std::string> lines;
    ASSERT_TRUE(sim::daemonAnswer(c, "get nodes", &lines));
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[1], "_node_ _addr_ 10.0.0.2 _name_ node2 _admin_ up _status_ up _failures_ 1 "
                        "_threadwait_ 5 _healthy_ yes _diagnosis_ ok");
    ASSERT_TRUE(sim::daemonAnswer(c, "tavrel v", &lines));
    EXPECT_EQ(lines[1], "_tavrel::v_ _n_ 10.0.0.2 _nn_ node2 _p_ ppc64-linux _f_ 0x7f");
    ASSERT_TRUE(sim::daemonAnswer(c, "tavrel ds f cl cluster1 fs fs1 p data1", &lines));
    EXPECT_EQ(lines, (std::vector<std::string>{
                         "_tavrel::ds_ _rc_ 0 _d_ d2 _nn_ node2",
                         "_r_ _tw_ 3 _ltw_ 2 _stw_ 1 _b_ 65536 _ops_ 16",
                         "_w_ _tw_ 4 _ltw_ 3 _stw_ 0.5 _b_ 131072 _ops_ 32",
                         "_tavrel::ds_ _rc_ 0 _d_ d3 _nn_ node2",
                         "_r_ _tw_ 0.75 _ltw_ 0.5 _stw_ 0.25 _b_ 512 _ops_ 1",
                         "_w_ _tw_ 1.25 _ltw_ 1 _stw_ 0.25 _b_ 1536 _ops_ 2",
                         "_tavrel::ds_ _rc_ 5 _d_ d3 _nn_ node3"}));
    ASSERT_TRUE(sim::daemonAnswer(c, "get nsddisk d5 ", &lines));
    EXPECT_EQ(lines, (std::vector<std::string>{"_nsddisk_ _name_ d5 _dstatus_ ready _iocnt_ 0 _size_ 104857600"}));
    EXPECT_EQ(sim::freeDiskRequest(c), "get nsddisk d5 ");
    EXPECT_FALSE(sim::daemonAnswer(c, "get fs fs9", &lines));
    EXPECT_FALSE(sim::daemonAnswer(c, "tavrel ng + *", &lines));
}

TEST(FakeCluster, ChangesMoveRemoveAndFree)
{
    SimCluster c = smallCluster();
    c.removeNode("node3");
    c.moveDisk("d3", "fs1", "system");
    c.deleteFilesystem("fs2");
    ASSERT_EQ(c.nodes.size(), 2u);
    EXPECT_EQ(sim::diskQueryOutput(c),
              "vksdrquery:sdrq_nsd_info:0:1:::d1:fs1:system:dataAndMetadata:d1-3007:d1-3008:node1:node2:\n"
              "vksdrquery:sdrq_nsd_info:0:1:::d3:fs1:system:metadataOnly:d3-3007:d3-3008:node2::\n"
              "vksdrquery:sdrq_nsd_info:0:1:::d2:fs1:data1:dataOnly:d2-3007:d2-3008:node2:node1:\n"
              "vksdrquery:sdrq_nsd_info:0:1:::d5:free_disk:system:dataOnly:d5-3007:d5-3008:node1:node2:\n"
              "vksdrquery:sdrq_nsd_info:0:1:::d4:free_disk:system:dataAndMetadata:d4-3007:d4-3008:node1:node2:\n");
    EXPECT_EQ(sim::freeDiskRequest(c), "get nsddisk d5 d4 ");
    EXPECT_EQ(c.filesystem("fs1")->mountedBy, (std::vector<std::string>{"10.0.0.1", "10.0.0.2"}));
    EXPECT_EQ(c.freeDisks[1].sizeKB, 214748364800LL / 1024);
}

TEST(FakeCluster, ScriptsToolsAndDaemonAndRescriptsAfterAChange)
{
    FakeDaemon daemon;
    FakeCluster cluster(daemon);
    cluster.model = smallCluster();
    cluster.script();

    int status = -1;
    EXPECT_EQ(run("/usr/kpx/vesk/bin/vklsmgr fs2", &status),
              "file system      manager node\n"
              "---------------- ------------------\n"
              "fs2              10.0.0.2 (node2)\n");
    EXPECT_EQ(status, 0);
    EXPECT_EQ(run("/usr/kpx/vesk/bin/vklspolicy fs1 -Y", &status),
              "vklspolicy::HEADER:version:reserved:reserved:vklspolicy:device:userName:"
              "installTime:fileName:\n"
              "vklspolicy::0:1:::vklspolicy:/dev/fs1:root:Sat%20Nov%2021%2010%3A00%3A00%202026:"
              "policy1:\n");
    EXPECT_EQ(run("/usr/kpx/vesk/bin/vklsmgr fs9 2>/dev/null", &status), "");
    EXPECT_EQ(status, 1);

    cluster.model.deleteFilesystem("fs2");
    cluster.script();
    EXPECT_EQ(run("/usr/kpx/vesk/bin/vklsmgr fs2 2>/dev/null", &status), "");
    EXPECT_EQ(status, 1);
    EXPECT_EQ(cluster.tool("vklsmgr").calls(),
              (std::vector<std::string>{"fs2", "fs9", "fs2"}));
}
