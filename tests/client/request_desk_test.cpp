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
    // Takes the only thread until it is let go.
    void block()
    {
        EXPECT_TRUE(desk.post([this] {
            inside = true;
            eventually([this] { return open.load(); });
            return std::error_code();
        }));
        EXPECT_TRUE(eventually([this] { return inside.load(); }));
    }
    zu::Stats stats() const
    {
        zu::Stats out;
        desk.count(out);
        return out;
    }
    void TearDown() override
    {
        open = true;
        desk.close();
        EXPECT_EQ(stats().requests,
                  stats().requests_done + stats().requests_refused + stats().requests_failed);
    }

    std::mutex guard;
    std::vector<int> made;
    std::atomic<bool> inside{false};
    std::atomic<bool> open{false};
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

TEST_F(Desk, ServesWhatTheLayerWantsFirst)
{
    block();
    std::thread caller([this] { EXPECT_EQ(desk.run(note(1), soon()), std::error_code()); });
    EXPECT_TRUE(eventually([this] { return stats().requests == 2; }));
    EXPECT_TRUE(desk.post(note(2)));
    open = true;
    caller.join();
    EXPECT_THAT(made, ElementsAre(2, 1));
}

TEST_F(Desk, DoesNotBeginWhatIsTooLate)
{
    block();
    EXPECT_EQ(desk.run(note(1), zu::Clock::now() + milliseconds(20)), Errc::busy);
    EXPECT_EQ(desk.run(note(2), zu::Clock::now()), Errc::timed_out);
    open = true;
    EXPECT_EQ(desk.run(note(3), soon()), std::error_code());
    EXPECT_THAT(made, ElementsAre(3));
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
    open = true;
    desk.wait_until_idle(soon());
    EXPECT_EQ(desk.run_last(note(4), soon()), std::error_code());
    desk.close();
    EXPECT_EQ(desk.run_last(note(5), soon()), Errc::closed);
    EXPECT_THAT(made, ElementsAre(4));
}

TEST_F(Desk, DropsWhatNobodyWaitsForWhenItCloses)
{
    block();
    EXPECT_TRUE(desk.post(note(1)));
    std::thread closer([this] { desk.close(); });
    EXPECT_TRUE(eventually([this] { return stats().requests_failed == 1; }));
    open = true;
    closer.join();
    EXPECT_THAT(made, ElementsAre());
}

TEST_F(Desk, IsIdleWhenNothingIsUnderWay)
{
    desk.wait_until_idle(soon()); // at once
    block();
    const auto begin = zu::Clock::now();
    desk.wait_until_idle(begin + milliseconds(30));
    EXPECT_GE(zu::Clock::now() - begin, milliseconds(30));
}

// What a call holds goes when it has been made, not when its caller looks at it.
TEST_F(Desk, LetsGoOfWhatACallHolds)
{
    const auto held = std::make_shared<int>(1);
    EXPECT_EQ(desk.run([held] { return std::error_code(); }, soon()), std::error_code());
    EXPECT_EQ(held.use_count(), 1);
}

} // namespace
