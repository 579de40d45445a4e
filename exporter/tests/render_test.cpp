// Rendering by hand-made records: names, labels, escaping and values.
#include "exporter/metric_writer.h"
#include "exporter/render.h"
#include "exporter/server.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace qvexp;

TEST(ExporterWriter, FamiliesAndSamplesAreWrittenInTheTextFormat)
{
    MetricWriter w;
    w.family("quelvane_x_bytes", "A help\\text\nwith a newline.", "gauge");
    w.sample({}, 42);
    w.sample({{"a", "quo\"te"}, {"b", "back\\slash\nnl"}}, 1.5);
    w.sample({{"big", "1"}}, 18446744073709551615ULL);
    EXPECT_EQ(w.text(),
              "# HELP quelvane_x_bytes A help\\\\text\\nwith a newline.\n"
              "# TYPE quelvane_x_bytes gauge\n"
              "quelvane_x_bytes 42\n"
              "quelvane_x_bytes{a=\"quo\\\"te\",b=\"back\\\\slash\\nnl\"} 1.5\n"
              "quelvane_x_bytes{big=\"1\"} 18446744073709551615\n");
    EXPECT_EQ(formatDouble(0.1), "0.1");
    EXPECT_EQ(formatDouble(1e300 * 1e300), "+Inf");
    EXPECT_EQ(formatDouble(true ? 1234567.125 : 0), "1234567.125");
}

TEST(ExporterRender, RolesBecomeACommaSeparatedLabel)
{
    EXPECT_EQ(rolesLabel("manager quorum "), "manager,quorum");
    EXPECT_EQ(rolesLabel(""), "");
}

TEST(ExporterRender, NodeStateFromHandMadeRecords)
{
    MErrno err = 0;
    ClusterInfo tree(&err);
    snprintf(tree.clusterName, sizeof(tree.clusterName), "c1");
    NodeInfo* n = new NodeInfo(&err);
    snprintf(n->name, sizeof(n->name), "n1");
    snprintf(n->ipAddr, sizeof(n->ipAddr), "10.0.0.1");
    snprintf(n->status, sizeof(n->status), "down");
    snprintf(n->roles, sizeof(n->roles), "quorum ");
    tree.nodeItems.push_back(n);
    QuorumView q;
    q.quorumNodesDefined = 3;
    q.quorumNodesActive = 2;
    q.quorumAchieved = true;
    MetricWriter w;
    renderCluster(w, &tree, q);
    const std::string& t = w.text();
    EXPECT_NE(t.find("quelvane_cluster_info{cluster=\"c1\""), std::string::npos) << t;
    EXPECT_NE(t.find("quelvane_node_up{node=\"n1\",roles=\"quorum\"} 0\n"), std::string::npos) << t;
    EXPECT_NE(t.find("quelvane_node_quorum{node=\"n1\"} 1\n"), std::string::npos) << t;
    EXPECT_NE(t.find("quelvane_node_manager{node=\"n1\"} 0\n"), std::string::npos) << t;
    EXPECT_NE(t.find("quelvane_cluster_quorum_achieved 1\n"), std::string::npos) << t;
}

TEST(ExporterRender, EveryEventKindHasAName)
{
    unsigned long long counts[32] = {};
    counts[6] = 3;
    MetricWriter w;
    renderEvents(w, counts, true);
    EXPECT_NE(w.text().find("quelvane_events_total{kind=\"failure\"} 3\n"), std::string::npos);
    EXPECT_STREQ(eventKind(21), "userEvent");
    EXPECT_STREQ(eventKind(31), "nsdCksumMismatch");
}

TEST(ExporterServer, ListenAddressesAreReadAsHostAndPort)
{
    std::string host;
    int port = -1;
    EXPECT_TRUE(parseListenAddress("127.0.0.1:9877", &host, &port));
    EXPECT_EQ(host, "127.0.0.1");
    EXPECT_EQ(port, 9877);
    EXPECT_TRUE(parseListenAddress("[::1]:0", &host, &port));
    EXPECT_EQ(host, "::1");
    EXPECT_EQ(port, 0);
    EXPECT_TRUE(parseListenAddress("0.0.0.0:80", &host, &port));
    for (const char* bad : {"9877", ":9877", "host:", "host:x", "host:70000", "[::1:9877", "host:-1"})
        EXPECT_FALSE(parseListenAddress(bad, &host, &port)) << bad;
}
