#ifndef QUELVANE_CLI_WATCHDOG_H
#define QUELVANE_CLI_WATCHDOG_H

// The time limit of a command. The library waits for the daemon's answers
// and for its tools without a limit of its own; the client arms the watchdog
// around each piece of such work. When the time runs out while it is armed,
// the watchdog puts the terminal back (when a command has handed it a way to
// do so), prints one line naming what did not answer, and ends the process
// with kExitTimeout: the stuck call cannot be taken back, so nothing else of
// the process is trusted to end well.

#include <functional>
#include <string>

namespace qvcli {

// Seconds of every armed piece of work; --timeout sets it.
void setTimeLimit(double seconds);
double timeLimit();

// Arms the watchdog for `what` ("reading the nodes") with the time limit.
void armWatchdog(const std::string& what);
void disarmWatchdog();

// Called from the watchdog's thread just before the process ends; must be
// safe to call while the main thread is anywhere.
void setEmergencyRestore(std::function<void()> restore);

// Stops the watchdog's thread; for the end of a command.
void stopWatchdog();

// Arms the watchdog for the life of the object.
class Armed
{
public:
    explicit Armed(const std::string& what) { armWatchdog(what); }
    ~Armed() { disarmWatchdog(); }
    Armed(const Armed&) = delete;
    Armed& operator=(const Armed&) = delete;
};

} // namespace qvcli

#endif
