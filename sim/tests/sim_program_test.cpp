// The quelvane-sim program: "run" around a command, its configuration file,
// its refusals, and "ctl" changes seen by the daemon and the tools alike.
#include "sim/tests/sim_fixture.h"

#include "sim/dump.h"
#include "sim/render.h"

#include <fstream>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace qvsim;
using namespace qvsimtest;

namespace {

class SimProgram : public SimFixture
{
};

std::string simPath()
{
    return QUELVANE_SIM_PATH;
}

// One request on the daemon socket; the response up to its end line.
std::string ask(const std::string& request)
{
    int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", kDaemonSocketPath);
    if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
        close(fd);
        return "no daemon";
    }
    std::string line = request + "\n";
    if (write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        close(fd);
        return "write failed";
    }
    std::string out;
    char buf[4096];
    while (out.find("_response_ end\n") == std::string::npos) {
        ssize_t n = read(fd, buf, sizeof(buf));
        if (n <= 0)
            break;
        out.append(buf, static_cast<size_t>(n));
    }
    close(fd);
    return out;
}

TEST_F(SimProgram, RunGivesTheCommandsStatusAndACluster)
{
    int status = 0;
    std::string out = shell(simPath() + " run --nodes 3 --filesystems 1 -- /bin/sh -c "
                                    "'vksdrquery 20 2003:2004:2005:2006:2007:2008:2010:2014:2015 | wc -l; "
                                    "test -S /var/vesk/tavrel/tavrelSocket && echo socket; exit 7'",
                            &status);
    EXPECT_EQ(status, 7);
    EXPECT_EQ(out, "3\nsocket\n");
}

TEST_F(SimProgram, RunReadsItsConfigurationFile)
{
    {
        std::ofstream f("/tmp/sim.toml");
        f << "nodes = 4\nfilesystems = 1\ncluster = \"lab\"\n\n[[node]]\nname = \"node03\"\n"
             "status = \"arbitrating\"\nversion = \"5.3.0.0\"\n";
    }
    int status = 0;
    std::string out = shell(simPath() + " run --config /tmp/sim.toml --nodes 5 -- " + simPath() + " ctl dump", &status);
    ASSERT_EQ(status, 0) << out;
    SimCluster m = loadModel(out);
    EXPECT_EQ(m.clusterName, "lab");
    EXPECT_EQ(m.nodes.size(), 5u);   // the option given beside the file wins
    EXPECT_EQ(m.filesystems.size(), 1u);
    EXPECT_EQ(m.node("node03")->status, "arbitrating");
    EXPECT_EQ(m.node("node03")->version, "5.3.0.0");

    {
        std::ofstream f("/tmp/bad.toml");
        f << "[[node]]\nname = \"node99\"\nstatus = \"down\"\n";
    }
    std::string err = shell(simPath() + " run --config /tmp/bad.toml -- true 2>&1", &status);
    EXPECT_EQ(status, 2);
    EXPECT_EQ(err, "quelvane-sim: /tmp/bad.toml: no node named node99\n");
}

TEST_F(SimProgram, RefusalsAreClear)
{
    int status = 0;
    EXPECT_EQ(shell(simPath() + " run --nodes many -- true 2>&1", &status),
              "quelvane-sim: --nodes takes a whole number, not \"many\"\n");
    EXPECT_EQ(status, 2);
    EXPECT_EQ(shell(simPath() + " run -- /no/such/program 2>&1", &status),
              "quelvane-sim run: /no/such/program: command not found\n");
    EXPECT_EQ(status, 127);
    EXPECT_EQ(shell(simPath() + " ctl dump 2>&1", &status),
              "no simulated cluster answers at /var/vesk/tavrel/quelvane-sim.control (run this inside "
              "\"quelvane-sim run\")\n");
    EXPECT_EQ(status, 127);
    // Without root, run says what it needs.
    std::string err = shell("setpriv --reuid=65534 --regid=65534 --clear-groups " + simPath() +
                                " run -- true 2>&1",
                            &status);
    EXPECT_EQ(status, 2);
    EXPECT_NE(err.find("quelvane-sim run: needs root"), std::string::npos) << err;
}

TEST_F(SimProgram, CtlChangesReachDaemonAndTools)
{
    startSim();
    EXPECT_NE(ask("get nodes").find("_name_ node03 _admin_ up _status_ up"), std::string::npos);
    EXPECT_NE(shell("vkgetstate -Y").find(":node03:3:active:"), std::string::npos);
    EXPECT_EQ(ctl("fail-node node03"), 0);
    EXPECT_NE(ask("get nodes").find("_name_ node03 _admin_ up _status_ down"), std::string::npos);
    EXPECT_NE(shell("vkgetstate -Y").find(":node03:3:down:"), std::string::npos);

    EXPECT_EQ(ctl("create-fs fs7"), 0);
    EXPECT_NE(ask("get fs fs7").find("_fs_ fs7"), std::string::npos);
    EXPECT_NE(shell("vklsfs all -T -Y").find("fs7"), std::string::npos);

    EXPECT_EQ(ask("no such request"), "_error_ unknown request 'no such request'\n_response_ end\n");
    EXPECT_EQ(ask("tavrel ng + all"), "_response_ end\n");
    int status = 0;
    EXPECT_EQ(shell("vklsfs nosuchfs --weird 2>&1", &status), "vklsfs: unsupported call: nosuchfs --weird\n");
    EXPECT_EQ(status, 1);
}

} // namespace
