// The faults in force. The caller's record is copied once and never changed; what all links of a
// camera use up together, the number of drops and of closed connections, is counted here by
// atomics, so any thread may ask. camera::set_faults replaces the whole object; links hold it by
// shared pointer and compare generations to see that what happens once per link is due once more.
#ifndef ZUCAM_ACTIVE_FAULTS_H
#define ZUCAM_ACTIVE_FAULTS_H

#include "virtual_camera/faults.h"

#include <atomic>
#include <cstdint>

namespace zucam
{

class active_faults
{
public:
    active_faults(const faults& given, std::uint64_t number)
        : value(given), generation(number), drops_left_(given.drop_times),
          closes_left_(given.accept_and_close)
    {
    }

    const faults value;
    const std::uint64_t generation;

    bool take_drop() const
    {
        return take(drops_left_);
    }

    bool take_close() const
    {
        return take(closes_left_);
    }

private:
    // One of a limited number; a negative number never ends.
    static bool take(std::atomic<int>& left)
    {
        int seen = left.load();
        while (seen > 0) {
            if (left.compare_exchange_weak(seen, seen - 1)) {
                return true;
            }
        }
        return seen < 0;
    }

    mutable std::atomic<int> drops_left_;
    mutable std::atomic<int> closes_left_;
};

} // namespace zucam

#endif
