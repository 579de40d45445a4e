#ifndef QUELVANE_TEST_DESCRIPTOR_EXHAUSTION_H
#define QUELVANE_TEST_DESCRIPTOR_EXHAUSTION_H

#include <sys/resource.h>
#include <unistd.h>

#include <vector>

namespace qvtest {

// Fills the descriptor table for the life of the object, leaving `spare`
// descriptors free, so that popen (which needs a pipe, two descriptors)
// gives null. The soft limit is lowered first so that filling is quick; both
// are restored by the destructor.
class DescriptorExhaustion
{
public:
    explicit DescriptorExhaustion(int spare = 0)
    {
        getrlimit(RLIMIT_NOFILE, &saved_);
        struct rlimit low = saved_;
        low.rlim_cur = 256;
        setrlimit(RLIMIT_NOFILE, &low);
        for (int fd; (fd = dup(0)) >= 0;)
            fillers_.push_back(fd);
        for (int i = 0; i < spare && !fillers_.empty(); i++) {
            close(fillers_.back());
            fillers_.pop_back();
        }
    }
    ~DescriptorExhaustion() { release(); }

    // Frees the descriptors and restores the limit (at most once).
    void release()
    {
        for (int fd : fillers_)
            close(fd);
        fillers_.clear();
        if (!released_)
            setrlimit(RLIMIT_NOFILE, &saved_);
        released_ = true;
    }
    size_t filled() const { return fillers_.size(); }

    DescriptorExhaustion(const DescriptorExhaustion&) = delete;
    DescriptorExhaustion& operator=(const DescriptorExhaustion&) = delete;

private:
    struct rlimit saved_;
    std::vector<int> fillers_;
    bool released_ = false;
};

} // namespace qvtest

#endif
