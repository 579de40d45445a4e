#ifndef QUELVANE_TEST_FAKE_CLUSTER_H
#define QUELVANE_TEST_FAKE_CLUSTER_H

// The simulated cluster's model and rendering (sim/) scripted into the tests'
// stand-ins: FakeCluster installs the rendered answers into a FakeDaemon and
// a set of FakeTools, and re-installs them after the model changed.

#include "sim/model.h"
#include "sim/render.h"
#include "support/fake_daemon.h"
#include "support/fake_tool.h"

#include <map>
#include <memory>
#include <set>
#include <string>

namespace qvtest {

using namespace qvsim;
namespace sim = qvsim;

// ---------------------------------------------------------------------------
// Scripting: installs the model's answers into a FakeDaemon and into fake
// tools of its own (vksdrquery, vklsmgr, vklsmount, vklsfs, vklsnsd,
// vklspolicy, vkgetstate). Calls that the model does not know get status 1
// and an "unscripted call" text on stderr.
class FakeCluster
{
public:
    explicit FakeCluster(FakeDaemon& daemon);

    SimCluster model;

    // Renders the model and scripts the fakes with it. Requests scripted by an
    // earlier call that the model no longer answers get the end line alone.
    void script();

    FakeTool& tool(const std::string& name);
    // Forgets the recorded calls of every tool.
    void clearCalls();

private:
    FakeDaemon& daemon_;
    std::map<std::string, std::unique_ptr<FakeTool>> tools_;
    std::set<std::string> scripted_;
};

// The small cluster of the end-to-end tests: 3 nodes, 2 filesystems, 3 pools,
// 4 disks and 1 free disk, with every source filled in.
//   nodes      node1 10.0.0.1 (manager, quorum), node2 10.0.0.2 (quorum,
//              gateway), node3 10.0.0.3 (snmp collector)
//   fs1        pools system (d1) and data1 (d2, d3); one policy
//   fs2        pool system (d4); no policy
//   free disk  d5
SimCluster smallCluster();

} // namespace qvtest

#endif
