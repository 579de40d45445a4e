#ifndef QUELVANE_TEST_POPEN_FAILURE_H
#define QUELVANE_TEST_POPEN_FAILURE_H

#include <sys/resource.h>
#include <unistd.h>

#include <vector>

namespace qvtest {

// Makes popen() fail while the object lives: the soft limit of open
// descriptors is lowered and every free descriptor below it is taken, so the
// pipe that popen needs cannot be made (EMFILE). Open streams keep working.
// Create any file the test needs (captures, logs) before this object, and
// make no new connection to the fake daemon while it lives.
// With `spare` above 0, that many descriptors are handed back at once: one
// spare still lets the test open a file, while a pipe (two) stays impossible.
class PopenFailure
{
public:
    explicit PopenFailure(rlim_t limit = 64, int spare = 0)
    {
        getrlimit(RLIMIT_NOFILE, &saved_);
        struct rlimit lowered = saved_;
        if (lowered.rlim_cur > limit)
            lowered.rlim_cur = limit;
        setrlimit(RLIMIT_NOFILE, &lowered);
        for (;;) {
            int fd = dup(2);
            if (fd < 0)
                break;
            held_.push_back(fd);
        }
        for (int i = 0; i < spare && !held_.empty(); i++) {
            close(held_.back());
            held_.pop_back();
        }
    }
    ~PopenFailure()
    {
        for (int fd : held_)
            close(fd);
        setrlimit(RLIMIT_NOFILE, &saved_);
    }
    // Descriptors taken; 0 would mean that the limit was already exhausted.
    size_t held() const { return held_.size(); }

    PopenFailure(const PopenFailure&) = delete;
    PopenFailure& operator=(const PopenFailure&) = delete;

private:
    struct rlimit saved_;
    std::vector<int> held_;
};

} // namespace qvtest

#endif
