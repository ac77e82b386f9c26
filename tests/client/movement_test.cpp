// Movements and their dead man's timer.
#include "client_kit.h"

namespace
{

using namespace support;
using zu::EventKind;

constexpr uint32_t left = 7;
constexpr uint32_t halt = 99;

class Movement : public ClientTest
{
protected:
    zu::Camera& log_in_to_mover(zu::CameraOptions options = {})
    {
        options.stop_command = halt;
        options.stop_speed = 3;
        return log_in(std::move(options));
    }
    // A camera that has made `steps` in less than `limit`. On a busy machine a timer may be over
    // before the device has answered, and then more is sent, as it should be; so what took longer
    // is not what the test is about, and another camera begins afresh with another device.
    template <class Steps>
    zu::Camera& log_in_and_make(milliseconds limit, Steps steps)
    {
        for (;;) {
            zu::Camera& its = log_in_to_mover();
            const auto begin = zu::Clock::now();
            steps(its);
            if (zu::Clock::now() - begin < limit || HasFailure()) {
                return its;
            }
            camera.reset();
            device = std::make_unique<serving_device>();
            events.forget();
        }
    }
    // A camera whose event handler is called and does not return before go_on.
    zu::Camera& log_in_with_hanging_handler()
    {
        zu::CameraOptions options;
        options.on_event = [this](const zu::Event&) {
            inside = true;
            eventually([this] { return go_on.load(); });
        };
        zu::Camera& its = log_in_to_mover(std::move(options));
        EXPECT_TRUE(eventually([this] { return inside.load(); }));
        return its;
    }
    // A move that the device never answers, so that its call is under way until the library gives
    // it up; stops are answered.
    void move_without_an_answer(milliseconds at_most)
    {
        device->behave(answering([](peer& end, const message& m) {
            if (m.type != move_message || word_at(m.body, 0) == halt) {
                answers_with(0)(end, m);
            }
        }));
        zu::CameraOptions options;
        options.requests_at_once = 64;
        zu::Camera& its = log_in_to_mover(std::move(options));
        let_time_out(move_message, [&] { return its.move(left, 5, at_most, milliseconds(40)); });
    }
    // The commands that have reached the device, in order.
    std::vector<uint32_t> commands() const
    {
        std::vector<uint32_t> out;
        for (const message& m : device->received(move_message)) {
            out.push_back(word_at(m.body, 0));
        }
        return out;
    }
    // A request that the device never answers; it takes the only place of callers.
    void hang(zu::Camera& its)
    {
        device->behave(answering([](peer& end, const message& m) {
            if (m.type != preset_message) {
                answers_with(0)(end, m);
            }
        }));
        hanging = std::thread(
            [&its] { EXPECT_TRUE(its.preset(1, 1, long_enough)) << "no answer, or the end"; });
        EXPECT_TRUE(eventually([this] { return asked(preset_message) == 1; }));
    }
    int halts() const
    {
        const auto all = commands();
        return static_cast<int>(std::count(all.begin(), all.end(), halt));
    }
    void TearDown() override
    {
        if (hanging.joinable()) {
            hanging.join();
        }
        ClientTest::TearDown();
    }

    std::thread hanging;
    std::atomic<bool> inside{false}; // an event handler
    std::atomic<bool> go_on{false};
};

using testing::ElementsAre;

TEST_F(Movement, StopsByItself)
{
    const stopped_clock still;
    zu::Clock::time_point begin;
    log_in_and_make(milliseconds(300), [&](zu::Camera& its) {
        begin = zu::Clock::now();
        EXPECT_EQ(its.move(left, 5, milliseconds(300)), std::error_code());
    });
    EXPECT_TRUE(events.wait_for(EventKind::movement_stopped));
    EXPECT_GE(zu::Clock::now() - begin, milliseconds(300));
    EXPECT_THAT(commands(), ElementsAre(left, halt));
    EXPECT_EQ(word_at(device->received(move_message)[1].body, 4), 3U);
    EXPECT_TRUE(all_along([this] { return halts() == 1; }, milliseconds(1500))) << "once";
}

TEST_F(Movement, IsStoppedOnceWhenTheProgramDoes)
{
    const stopped_clock still;
    log_in_and_make(milliseconds(500), [](zu::Camera& its) {
        EXPECT_EQ(its.move(left, 5, milliseconds(500)), std::error_code());
        EXPECT_EQ(its.stop_moving(), std::error_code());
    });
    EXPECT_TRUE(all_along([this] { return halts() == 1; }, milliseconds(1000)));
    EXPECT_EQ(events.count(EventKind::movement_stopped), 0) << "not by the timer";
}

// The library gives no request up while its clock stands still.
TEST_F(Movement, StopsThoughAllOtherRequestsHang)
{
    zu::CameraOptions options;
    options.requests_at_once = 1;
    zu::Camera& its = log_in_to_mover(std::move(options));
    stopped_clock still;
    EXPECT_EQ(its.move(left, 5, milliseconds(300)), std::error_code());
    hang(its);
    EXPECT_TRUE(events.wait_for(EventKind::movement_stopped));
    still.advance(10);
    hanging.join();
}

// The program hangs, and this is what the timer is for.
TEST_F(Movement, StopsThoughAnEventHandlerHangs)
{
    zu::Camera& its = log_in_with_hanging_handler();
    EXPECT_EQ(its.move(left, 5, milliseconds(100)), std::error_code());
    EXPECT_TRUE(eventually([this] { return halts() >= 1; }));
    go_on = true;
    camera.reset(); // before what its handler uses
}

TEST_F(Movement, TakesTheTimerOver)
{
    const stopped_clock still;
    log_in_and_make(milliseconds(400), [](zu::Camera& its) {
        EXPECT_EQ(its.move(left, 5, milliseconds(400)), std::error_code());
        EXPECT_EQ(its.move(left + 1, 5, std::chrono::hours(1)), std::error_code());
    });
    EXPECT_TRUE(all_along([this] { return halts() == 0; }, milliseconds(1000)));
    EXPECT_THAT(commands(), ElementsAre(left, left + 1));
}

TEST_F(Movement, TakesALongerTimerOver)
{
    const stopped_clock still;
    log_in_and_make(milliseconds(300), [](zu::Camera& its) {
        EXPECT_EQ(its.move(left, 5, std::chrono::hours(1)), std::error_code());
        EXPECT_EQ(its.move(left + 1, 5, milliseconds(300)), std::error_code());
    });
    EXPECT_TRUE(events.wait_for(EventKind::movement_stopped));
    EXPECT_THAT(commands(), ElementsAre(left, left + 1, halt));
}

TEST_F(Movement, IsStoppedAgainUntilTheDeviceHasTakenIt)
{
    const stopped_clock still;
    std::atomic<int> refusals{0};
    log_in_and_make(milliseconds(2100), [&](zu::Camera& its) { // the third stop is sent then
        refusals = 2;
        device->behave(answering([&](peer& end, const message& m) {
            const bool refuse =
                m.type == move_message && word_at(m.body, 0) == halt && refusals-- > 0;
            answers_with(refuse ? 5 : 0)(end, m);
        }));
        EXPECT_EQ(its.move(left, 5, milliseconds(100)), std::error_code());
    });
    EXPECT_TRUE(events.wait_for(EventKind::movement_stopped));
    EXPECT_EQ(halts(), 3);
    EXPECT_EQ(events.count(EventKind::movement_stopped), 1);
}

TEST_F(Movement, IsStoppedWhenTheLinkHasComeBack)
{
    const stopped_clock still;
    log_in_and_make(milliseconds(1000), [this](zu::Camera& its) {
        EXPECT_EQ(its.move(left, 5, milliseconds(1000)), std::error_code());
        device->drop_links();
        EXPECT_TRUE(events.wait_for(EventKind::link_down));
    });
    EXPECT_TRUE(events.wait_for(EventKind::movement_stopped));
    EXPECT_EQ(events.count(EventKind::link_up), 1);
    EXPECT_THAT(commands(), ElementsAre(left, halt));
}

TEST_F(Movement, ThatFailedCountsAsBegun)
{
    move_without_an_answer(milliseconds(100));
    EXPECT_TRUE(events.wait_for(EventKind::movement_stopped));
}

// The stop might have overtaken the movement, so there is another when that is certain not to be.
TEST_F(Movement, WhoseCallIsNotOverIsStoppedOnceMore)
{
    {
        const stopped_clock still; // the move is not given up
        move_without_an_answer(milliseconds(50));
        EXPECT_TRUE(eventually([this] { return camera->stats().requests_done >= 1; }))
            << "a stop that the device has taken";
        EXPECT_EQ(events.count(EventKind::movement_stopped), 0);
    }
    EXPECT_TRUE(events.wait_for(EventKind::movement_stopped));
    EXPECT_GE(halts(), 2);
}

TEST_F(Movement, ThatNeverBeganHasNoTimer)
{
    zu::Camera& its = log_in_to_mover();
    device->refuse();
    device->drop_links();
    EXPECT_TRUE(events.wait_for(EventKind::link_down));
    EXPECT_EQ(its.move(left, 5, milliseconds(100)), zu::Errc::link_down);
    device->serve_again();
    EXPECT_TRUE(events.wait_for(EventKind::link_up));
    EXPECT_TRUE(all_along([this] { return commands().empty(); }, milliseconds(500)));
}

TEST_F(Movement, EndsWithTheCamera)
{
    zu::Camera& its = log_in_to_mover();
    EXPECT_EQ(its.move(left, 5, std::chrono::hours(1)), std::error_code());
    camera.reset();
    EXPECT_TRUE(eventually([this] { return halts() == 1; }));
}

TEST_F(Movement, EndsWithACameraWhoseEventHandlerHangs)
{
    zu::Camera& its = log_in_with_hanging_handler();
    EXPECT_EQ(its.move(left, 5, std::chrono::hours(1)), std::error_code());
    std::thread end([this] { camera.reset(); });
    EXPECT_TRUE(eventually([this] { return halts() == 1; }));
    go_on = true;
    end.join();
}

TEST_F(Movement, EndsWithACameraWhoseOtherRequestsHang)
{
    zu::CameraOptions options;
    options.requests_at_once = 1;
    options.deadline = milliseconds(200);
    zu::Camera& its = log_in_to_mover(std::move(options));
    stopped_clock still;
    EXPECT_EQ(its.move(left, 5, std::chrono::hours(1), long_enough), std::error_code());
    hang(its);
    std::thread end([this] { camera.reset(); });
    EXPECT_TRUE(eventually([this] { return halts() == 1; })) << "at once";
    still.advance(10);
    end.join();
}

TEST_F(Movement, EndsWithACameraWhoseReceiverWaitsForRoom)
{
    zu::CameraOptions options;
    options.queue = {1, zu::WhenFull::block};
    zu::Camera& its = log_in_to_mover(std::move(options));
    EXPECT_EQ(its.move(left, 5, std::chrono::hours(1)), std::error_code());
    device->send_to_all(audio());
    device->send_to_all(audio());
    EXPECT_TRUE(eventually([&] { return its.stats().frames == 2; }));
    camera.reset();
    EXPECT_TRUE(eventually([this] { return halts() == 1; }));
}

TEST_F(Movement, ThatIsOverIsNotStoppedAtTheEnd)
{
    zu::Camera& its = log_in_to_mover();
    EXPECT_EQ(its.move(left, 5, std::chrono::hours(1)), std::error_code());
    EXPECT_EQ(its.stop_moving(), std::error_code());
    EXPECT_EQ(its.standard(left, 5), std::error_code());
    camera.reset();
    EXPECT_EQ(halts(), 1);
}

TEST_F(Movement, DoesNotKeepTheEndWaitingForASilentDevice)
{
    zu::CameraOptions options;
    options.deadline = milliseconds(200);
    zu::Camera& its = log_in_to_mover(std::move(options));
    EXPECT_EQ(its.move(left, 5, std::chrono::hours(1), long_enough), std::error_code());
    device->behave(mute());
    camera.reset(); // ends, at the latest when the library gives up
    EXPECT_EQ(halts(), 1);
}

} // namespace
