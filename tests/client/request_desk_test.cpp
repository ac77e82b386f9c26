// The desk on its own: who is served when, who is sent away, and what is counted.
#include "client_kit.h"
#include "request_desk.hpp"

namespace
{

using namespace support;
using zu::Errc;
using zu::detail::RequestDesk;

class Desk : public testing::Test
{
protected:
    static zu::Clock::time_point soon()
    {
        return zu::Clock::now() + long_enough;
    }
    RequestDesk::Call note(int what)
    {
        return [this, what] {
            const std::lock_guard<std::mutex> lock(guard);
            made.push_back(what);
            return std::error_code();
        };
    }
    // Takes the only place of callers until it is let go.
    void block()
    {
        blocking = std::thread([this] {
            desk.run(
                [this] {
                    inside = true;
                    eventually([this] { return open.load(); });
                    return std::error_code();
                },
                soon());
        });
        EXPECT_TRUE(eventually([this] { return inside.load(); }));
    }
    // What a call comes to that finds no place. A deadline that is over when the desk first looks
    // is told as such, and the call was never in line then.
    std::error_code run_in_line(const RequestDesk::Call& call)
    {
        std::error_code outcome;
        do {
            outcome = desk.run(call, zu::Clock::now() + milliseconds(20));
        } while (outcome == Errc::timed_out);
        return outcome;
    }
    zu::Stats stats() const
    {
        zu::Stats out;
        desk.count(out);
        return out;
    }
    bool is_idle() const
    {
        const zu::Stats all = stats();
        return all.requests == all.requests_done + all.requests_refused + all.requests_failed;
    }
    void TearDown() override
    {
        open = true;
        if (blocking.joinable()) {
            blocking.join();
        }
        desk.close();
        EXPECT_TRUE(is_idle());
    }

    std::mutex guard;
    std::vector<int> made;
    std::atomic<bool> inside{false};
    std::atomic<bool> open{false};
    std::thread blocking;
    RequestDesk desk{1};
};

using testing::ElementsAre;

TEST_F(Desk, TellsWhatACallCameTo)
{
    EXPECT_EQ(desk.run(note(1), soon()), std::error_code());
    const std::error_code refusal(4, zu::device_category());
    EXPECT_EQ(desk.run([=] { return refusal; }, soon()), refusal);
    EXPECT_EQ(desk.run([] { return make_error_code(Errc::no_answer); }, soon()), Errc::no_answer);
    EXPECT_EQ(stats().requests_done, 1U);
    EXPECT_EQ(stats().requests_refused, 1U);
    EXPECT_EQ(stats().requests_failed, 1U);
}

TEST_F(Desk, LetsWhatTheLayerWantsPassThoseWhoWait)
{
    block();
    std::thread caller([this] { EXPECT_EQ(desk.run(note(1), soon()), std::error_code()); });
    EXPECT_TRUE(eventually([this] { return stats().requests == 2; }));
    EXPECT_TRUE(desk.post(note(2)));
    EXPECT_TRUE(eventually([this] { return stats().requests_done == 1; })) << "at once";
    open = true;
    caller.join();
    EXPECT_THAT(made, ElementsAre(2, 1));
}

TEST_F(Desk, ServesNoMoreCallersForIt)
{
    EXPECT_TRUE(desk.post(note(1)));
    EXPECT_TRUE(eventually([this] { return stats().requests_done == 1; }));
    block();
    EXPECT_TRUE(desk.post(note(2))); // there is a second thread from here on
    EXPECT_TRUE(eventually([this] { return stats().requests_done == 2; }));
    EXPECT_EQ(run_in_line(note(3)), Errc::busy);
    EXPECT_THAT(made, ElementsAre(1, 2));
}

TEST_F(Desk, DoesNotBeginWhatIsTooLate)
{
    block();
    EXPECT_EQ(run_in_line(note(1)), Errc::busy);
    EXPECT_EQ(desk.run(note(2), zu::Clock::now()), Errc::timed_out);
    open = true;
    EXPECT_EQ(desk.run(note(3), soon()), std::error_code());
    EXPECT_THAT(made, ElementsAre(3));
}

// Who is late with nobody in front is not told that others were. What is late may still be under
// way when its caller has gone; a call that is made has none before it. The thread that finds it
// too late stays for the next.
TEST_F(Desk, IsNeverBusyWithOneCaller)
{
    for (int i = 0; i < 300; i++) {
        const auto deadline = zu::Clock::now() + std::chrono::microseconds(i);
        EXPECT_NE(desk.run(note(i), deadline), Errc::busy);
        EXPECT_EQ(desk.run(note(-1), soon()), std::error_code());
    }
}

TEST_F(Desk, DoesNotCountWhatWasNotMadeInTheEnd)
{
    EXPECT_EQ(desk.run([] { return RequestDesk::cancelled(); }, soon()), RequestDesk::cancelled());
    EXPECT_EQ(stats().requests, 0U);
}

TEST_F(Desk, SendsCallersAwayAtTheEnd)
{
    block();
    std::thread caller([this] { EXPECT_EQ(desk.run(note(1), soon()), Errc::closed); });
    EXPECT_TRUE(eventually([this] { return stats().requests == 2; }));
    desk.refuse();
    caller.join();
    EXPECT_EQ(desk.run(note(2), soon()), Errc::closed);
    EXPECT_FALSE(desk.post(note(3)));
    EXPECT_EQ(desk.run_last(note(4), soon()), std::error_code());
    open = true;
    desk.close();
    EXPECT_EQ(desk.run_last(note(5), soon()), Errc::closed);
    EXPECT_THAT(made, ElementsAre(4));
}

// The call begins all the same: it is what stops a movement.
TEST_F(Desk, BeginsTheLastRequestHoweverLateItIs)
{
    const auto slow = [this, call = note(1)] {
        eventually([this] { return open.load(); });
        return call();
    };
    desk.refuse();
    EXPECT_EQ(desk.run_last(slow, zu::Clock::now()), Errc::timed_out);
    open = true;
    desk.close();
    EXPECT_THAT(made, ElementsAre(1));
}

// What a call holds goes when it has been made, not when its caller looks at it.
TEST_F(Desk, LetsGoOfWhatACallHolds)
{
    const auto held = std::make_shared<int>(1);
    EXPECT_EQ(desk.run([held] { return std::error_code(); }, soon()), std::error_code());
    EXPECT_EQ(held.use_count(), 1);
}

} // namespace
