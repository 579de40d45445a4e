#ifndef QUELVANE_TEST_FAKE_TOOL_H
#define QUELVANE_TEST_FAKE_TOOL_H

#include <string>
#include <vector>

namespace qvtest {

// An executable script standing in for an administration tool. It records
// the arguments of every call (joined by blanks, one call a line), prints the
// output scripted for exactly those arguments, or the default output, writes
// the scripted stderr text and exits with the scripted status.
class FakeTool
{
public:
    static constexpr const char* kToolDir = "/usr/kpx/vesk/bin";

    explicit FakeTool(std::string name, std::string dir = kToolDir);

    // The answer for calls that no rule matches.
    FakeTool& output(const std::string& out, int status = 0, const std::string& err = "");
    // The answer for a call whose arguments, joined by blanks, are exactly `args`.
    FakeTool& on(const std::string& args, const std::string& out, int status = 0,
                 const std::string& err = "");

    // Forgets every rule of on(); the default answer stays. Lets a test
    // script the same arguments again with another answer.
    FakeTool& clearRules();

    // The arguments of each call so far, in order.
    std::vector<std::string> calls() const;
    // The full command lines as the tool saw them: its path and arguments.
    std::vector<std::string> commandLines() const;
    void clearCalls();

    const std::string& path() const { return path_; }
    const std::string& name() const { return name_; }

private:
    void writeAnswer(const std::string& dir, const std::string& out, int status,
                     const std::string& err);

    std::string name_;
    std::string path_;
    std::string dataDir_;
    int rules_ = 0;
};

} // namespace qvtest

#endif
