#ifndef QUELVANE_SIM_TESTS_SIM_FIXTURE_H
#define QUELVANE_SIM_TESTS_SIM_FIXTURE_H

// A simulated cluster inside the test process: the daemon at the real socket
// path and the tools at the real tool paths (links to the quelvane-sim
// program, which asks this process's model over the control socket), with a
// PollingHandler and an application tree beside it.

#include "sim/daemon.h"
#include "sim/generate.h"
#include "sim/model.h"

#include <quelvane/quelvane.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace qvsimtest {

class SimFixture : public ::testing::Test
{
protected:
    ~SimFixture() override;

    // Generates the cluster, starts the daemon and installs the tools.
    void startSim(const qvsim::ClusterShape& shape = qvsim::ClusterShape());
    // PollingHandler::init (protocol 0) and a new application tree.
    void startHandler();
    void TearDown() override;

    // The model as the simulator's "ctl dump" gives it.
    qvsim::SimCluster dump();
    // Runs "quelvane-sim ctl VERB ARGS..." as a separate process, as a user
    // would; returns its exit status.
    int ctl(const std::string& args);
    // Runs a command line through the shell and returns its standard output.
    std::string shell(const std::string& cmd, int* status = nullptr);

    // Every inventory collector, in an application's order. The disk paths
    // give every node a record for every disk it reaches through a server,
    // nodes times disks records in all, which a very large cluster may leave
    // out.
    void pollEverything(bool withDiskAccess = true);

    std::unique_ptr<qvsim::SimDaemon> sim;
    PollingHandler* h = nullptr;
    ClusterInfo* app = nullptr;
    int polls = 0;   // whole polls of `app` so far
};

// Checks every field of the application tree that the inventory collectors
// fill against the model. `polls` is the number of whole polls the tree went
// through (rules are appended at every one); a copy of the recipe carries no
// mounts, policies, per-node counters or cluster timings.
void expectTreeMatchesModel(ClusterInfo* tree, const qvsim::SimCluster& model, int polls,
                            bool recipeCopy = false);

} // namespace qvsimtest

#endif
