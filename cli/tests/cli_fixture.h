#ifndef QUELVANE_CLI_TESTS_CLI_FIXTURE_H
#define QUELVANE_CLI_TESTS_CLI_FIXTURE_H

// A simulated cluster in the test process and the quelvane program run
// against it as a user would run it: through the shell for a command that
// ends by itself, as a child process of its own for one that runs until it
// is interrupted.

#include "sim/daemon.h"
#include "sim/generate.h"
#include "sim/model.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

namespace qvclitest {

struct Result {
    int status = -1;        // exit status; -1 when the program did not exit
    std::string out;
    std::string err;
};

// A quelvane process running in the background.
struct Child {
    pid_t pid = -1;
    int outFd = -1;
    int errFd = -1;
    std::string out;        // read so far
    std::string err;
};

class CliTest : public ::testing::Test
{
protected:
    ~CliTest() override;
    void TearDown() override;

    // Links every tool name to the quelvane-sim program.
    void installTools();
    // Installs the tools and starts the daemon on a generated cluster.
    void startSim(const qvsim::ClusterShape& shape = qvsim::ClusterShape());

    // The model as "ctl dump" gives it.
    qvsim::SimCluster dump();
    // A control verb, as "quelvane-sim ctl" would run it; expects success.
    void ctl(const std::string& verb, const std::vector<std::string>& args = {});

    // Runs "quelvane ARGS" through the shell (ARGS as shell words), with a
    // time limit of 20 seconds.
    Result run(const std::string& args);
    // Runs it with --json, expects status 0 and parses the document.
    nlohmann::json runJson(const std::string& args);

    // Starts "quelvane ARGS..." with its output on pipes.
    Child spawn(const std::vector<std::string>& args);
    // Reads the child's standard output until it holds `count` lines, or
    // `seconds` have passed. True when it got them.
    bool readLines(Child& c, size_t count, double seconds);
    // Sends `sig` (0: none) and waits up to `seconds` for the end; gives the
    // exit status, -1 when it had to be killed.
    int finish(Child& c, int sig, double seconds);

    // Replaces a tool with a shell script of the given body.
    void scriptTool(const std::string& tool, const std::string& body);

    std::unique_ptr<qvsim::SimDaemon> sim;
    std::vector<Child> children;
};

// The lines of a text, without their newlines.
std::vector<std::string> lines(const std::string& text);
// Polls `pred` every 20 ms for up to `seconds`.
bool eventually(double seconds, const std::function<bool()>& pred);

} // namespace qvclitest

#endif
