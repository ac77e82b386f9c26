// What the tests of lying devices stand on: a witness beside every lie, and proof that nothing is
// left behind it.
#pragma once

#include <condition_variable>
#include <future>
#include <mutex>

#include "hostile_lies.h"
#include "hostile_witness.h"
#include "log_tap.h"
#include "process_probe.h"
#include "worker_stand.h"

namespace hostile
{

class Hostile : public testing::Test
{
protected:
    void SetUp() override
    {
        good = std::make_unique<witness>();
        good->begin();
    }

    void TearDown() override
    {
        EXPECT_THAT(good->end(), testing::IsEmpty());
        good.reset();
        lib.reset();
        EXPECT_EQ(before.left_over(), "");
    }

    // Lies to one login and logs it out.
    template <class Lies>
    void lie_to_one(Lies lies)
    {
        lie_side_by_side(1, [&](lying_device& d, size_t) { lies(d); });
    }

    // Lies to so many logins at once, each by a thread and a device of its own. Returns when all
    // have been logged out.
    template <class Lies>
    void lie_side_by_side(size_t count, Lies lies)
    {
        std::vector<std::future<void>> liars;
        for (size_t i = 0; i < count; i++) {
            liars.push_back(std::async(std::launch::async, [this, i, &lies] {
                lying_device d(static_cast<unsigned>(i) + 1);
                if (log_in_with_few_others(d)) {
                    d.telling = "lie " + std::to_string(i);
                    lies(d, i);
                    d.log_out();
                }
                EXPECT_THAT(d.breaches(), testing::IsEmpty());
            }));
        }
        for (auto& liar : liars) {
            liar.get();
        }
    }

private:
    // A Login has three seconds for its connection and its threads, and the processors are few.
    bool log_in_with_few_others(lying_device& d)
    {
        std::unique_lock<std::mutex> lock(guard);
        one_less.wait(lock, [this] { return logging_in < 8; });
        logging_in++;
        lock.unlock();
        const bool up = d.log_in();
        lock.lock();
        logging_in--;
        one_less.notify_one();
        return up;
    }

    std::mutex guard;
    std::condition_variable one_less;
    int logging_in = 0;
    const support::inventory before; // first: what the process held before anything else

protected:
    const support::log_tap log{1};
    std::optional<support::library> lib{std::in_place, 1};
    std::unique_ptr<witness> good;
};

} // namespace hostile
