// The end of a camera: nothing of it runs afterwards, whatever was going on.
#include "client_kit.h"

namespace
{

using namespace support;
using zu::Camera;
using zu::Errc;
using zu::EventKind;

class End : public ClientTest
{
protected:
    // Destroys the camera on a thread of its own.
    void end()
    {
        ending = std::thread([this] {
            camera.reset();
            ended = true;
        });
    }
    // The same while callers wait for a device that does not answer, of whose requests it has got
    // so many. All are sent away.
    template <class Request>
    void end_while_they_wait(size_t callers, Request request, uint32_t type, size_t begun)
    {
        device->behave(mute());
        Camera& its = log_in();
        std::vector<std::thread> each;
        for (size_t i = 0; i < callers; i++) {
            each.emplace_back([&] { EXPECT_EQ(request(its), Errc::closed); });
        }
        EXPECT_TRUE(eventually([&] { return its.stats().requests == callers; }))
            << "all have handed in";
        EXPECT_TRUE(eventually([&] { return asked(type) == begun; }));
        end();
        for (auto& caller : each) {
            caller.join();
        }
    }
    void TearDown() override
    {
        if (ending.joinable()) {
            ending.join();
        }
        ClientTest::TearDown();
    }

    std::thread ending;
    std::atomic<bool> ended{false};
};

TEST_F(End, SendsWaitingCallersAway)
{
    std::optional<stopped_clock> still(std::in_place); // nobody is given up for the next to begin
    end_while_they_wait(
        6, [](Camera& its) { return its.standard(1, 1, long_enough); }, move_message, 4);
    still.reset();
    EXPECT_TRUE(eventually([this] { return ended.load(); })) << "the library has given up by then";
    EXPECT_EQ(asked(move_message), 4U) << "what had not begun never began";
}

TEST_F(End, KeepsStartsThatWaitForTheirTurnFromBeginning)
{
    std::optional<stopped_clock> still(std::in_place);
    end_while_they_wait(
        3, [](Camera& its) { return its.start_stream({}, long_enough); }, start_message, 1);
    still.reset();
    EXPECT_TRUE(eventually([this] { return ended.load(); })) << "the library has given one up";
    EXPECT_EQ(asked(start_message), 1U);
}

TEST_F(End, WaitsForRequestsThatNobodyWaitsForAnyMore)
{
    std::optional<stopped_clock> still(std::in_place);
    device->behave(mute());
    Camera& its = log_in();
    let_time_out(move_message, [&] { return its.standard(1, 1, milliseconds(20)); });
    end();
    EXPECT_TRUE(all_along([this] { return !ended; }, milliseconds(200)));
    still.reset();
    EXPECT_TRUE(eventually([this] { return ended.load(); }));
    EXPECT_TRUE(eventually([] { return threads_named("zu_request") == 0; })) << "joined, and gone";
}

TEST_F(End, WakesWhoWaitsForAFrame)
{
    Camera& its = log_in();
    const Waiter taker([&] { EXPECT_FALSE(its.next_frame(std::chrono::hours(1))); });
    EXPECT_TRUE(taker.waits()); // what has not got there yet would call a camera that is gone
    end();
}

TEST_F(End, LetsAReceiverGoThatWaitsForRoom)
{
    zu::CameraOptions options;
    options.queue = {1, zu::WhenFull::block};
    Camera& its = log_in(std::move(options));
    device->send_to_all(audio());
    device->send_to_all(audio());
    EXPECT_TRUE(eventually([&] { return its.stats().frames == 2; }));
    end();
    EXPECT_TRUE(eventually([this] { return ended.load(); }));
}

TEST_F(End, ComesWhileTheLinkIsDown)
{
    log_in();
    device->refuse();
    device->drop_links();
    EXPECT_TRUE(events.wait_for(EventKind::link_down));
    end();
    EXPECT_TRUE(eventually([this] { return ended.load(); }));
}

TEST_F(End, WaitsForAnEventHandlerThatRuns)
{
    std::atomic<bool> inside{false};
    std::atomic<bool> go_on{false};
    zu::CameraOptions options;
    options.on_event = [&](const zu::Event&) {
        inside = true;
        eventually([&] { return go_on.load(); });
        inside = false;
    };
    log_in(std::move(options));
    EXPECT_TRUE(eventually([&] { return inside.load(); }));
    end();
    EXPECT_TRUE(all_along([this] { return !ended; }, milliseconds(100)));
    go_on = true;
    EXPECT_TRUE(eventually([this] { return ended.load(); }));
    EXPECT_FALSE(inside);
}

TEST_F(End, LeavesWithItWhatTheHandlersHold)
{
    const auto held = std::make_shared<int>(1);
    zu::CameraOptions options;
    options.on_event = [held](const zu::Event&) {};
    options.on_frame = [held](const zu::FrameView&) {};
    log_in(std::move(options));
    EXPECT_GT(held.use_count(), 1);
    camera.reset();
    EXPECT_EQ(held.use_count(), 1);
}

// Again and again, in the midst of frames, events and heartbeats: what a handler uses is gone right
// after the destructor.
TEST_F(End, IsTheEndOfAllHandlers)
{
    const Streamer pictures(*device, video(h264_key), milliseconds(1));
    for (int round = 0; round < 8; round++) {
        auto witness = std::make_unique<std::atomic<int>>(0);
        zu::CameraOptions options;
        options.stalled_after = milliseconds(200);
        options.on_frame = [use = witness.get()](const zu::FrameView&) { ++*use; };
        options.on_event = [use = witness.get()](const zu::Event&) { ++*use; };
        Camera its(address_of(device->port()), options);
        EXPECT_EQ(its.start_stream(), std::error_code());
        EXPECT_TRUE(eventually([&] { return *witness > round * 3; }));
        if (round % 2 == 1) {
            device->drop_links(); // events are on their way
        }
        Camera taken(std::move(its));
        {
            const Camera gone(std::move(taken));
        }
        witness.reset();
    }
}

// They may be running when the destructor begins, and they cannot know.
TEST_F(End, LetsHandlersAskTheCameraUntilTheyAreOver)
{
    const Streamer pictures(*device, video(h264_key), milliseconds(1));
    for (int round = 0; round < 5; round++) {
        std::atomic<Camera*> its{nullptr};
        std::atomic<int> asked_by_frames{0};
        std::atomic<int> asked_by_events{0};
        const auto ask = [&](std::atomic<int>& count) {
            if (Camera* const self = its) {
                (void)self->ask_for_key_frame(milliseconds(20));
                (void)self->next_frame(milliseconds(1));
                count += self->stats().frames > 0 ? 1 : 0;
            }
        };
        zu::CameraOptions options;
        options.on_frame = [&](const zu::FrameView&) { ask(asked_by_frames); };
        options.on_event = [&](const zu::Event&) { ask(asked_by_events); };
        its = &log_in(std::move(options));
        EXPECT_EQ(its.load()->start_stream({}, long_enough), std::error_code());
        EXPECT_TRUE(eventually([&] { return asked_by_frames > 3 && asked_by_events > 0; }));
        camera.reset();
    }
}

// Each of these would otherwise wait for itself, for ever, or leave the library's threads by an
// exception.
class Mistake : public End
{
protected:
    void SetUp() override
    {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
    }
    // Until the process has ended.
    void send_for_ever() const
    {
        const Streamer pictures(*device, video(h264_key), milliseconds(5));
        eventually([] { return false; });
    }
};

TEST_F(Mistake, ToDestroyACameraInItsEventHandlerEndsTheProcess)
{
    EXPECT_DEATH(
        {
            zu::CameraOptions options;
            options.on_event = [this](const zu::Event&) { camera.reset(); };
            (void)log_in(std::move(options)).standard(1, 1); // answered: the peer is alive
            eventually([] { return false; });
        },
        "destroyed from inside a handler");
}

TEST_F(Mistake, ToDestroyACameraInItsFrameHandlerEndsTheProcess)
{
    EXPECT_DEATH(
        {
            zu::CameraOptions options;
            options.on_frame = [this](const zu::FrameView&) { camera.reset(); };
            log_in(std::move(options));
            send_for_ever();
        },
        "destroyed from inside a handler");
}

TEST_F(Mistake, ToThrowInAHandlerEndsTheProcess)
{
    EXPECT_DEATH(
        {
            zu::CameraOptions options;
            options.on_frame = [](const zu::FrameView&) { throw std::runtime_error("of frames"); };
            log_in(std::move(options));
            send_for_ever();
        },
        "of frames");
    EXPECT_DEATH(
        {
            zu::CameraOptions options;
            options.on_event = [](const zu::Event&) { throw std::runtime_error("of events"); };
            (void)log_in(std::move(options)).standard(1, 1);
            eventually([] { return false; });
        },
        "of events");
    EXPECT_DEATH(
        {
            library.reset();
            library = std::make_unique<zu::Library>(zu::LibraryOptions{
                [](const zu::LogLine&) { throw std::runtime_error("of lines"); }, true});
            log_in();
        },
        "of lines");
}

TEST_F(End, OfAMovedCameraIsThatOfTheOtherObject)
{
    Camera first(address_of(device->port()));
    Camera second(std::move(first));
    EXPECT_EQ(second.standard(1, 1), std::error_code());
    { // NOLINTBEGIN(bugprone-use-after-move): what this is about
        EXPECT_EQ(first.standard(1, 1), Errc::closed);
        EXPECT_EQ(first.start_stream(), Errc::closed);
        EXPECT_EQ(first.stop_stream(), Errc::closed);
        EXPECT_EQ(first.ask_for_key_frame(), Errc::closed);
        EXPECT_EQ(first.get<zu::EncodeLevel>().error(), Errc::closed);
        EXPECT_EQ(first.set(zu::EncodeLevel()), Errc::closed);
        EXPECT_EQ(first.move(1, 1, milliseconds(1)), Errc::closed);
        EXPECT_EQ(first.stop_moving(), Errc::closed);
        EXPECT_EQ(first.preset(1, 1), Errc::closed);
        EXPECT_FALSE(first.next_frame(std::chrono::hours(1)));
        EXPECT_EQ(first.link().state, zu::LinkState::down);
        EXPECT_FALSE(first.peer().alive);
        EXPECT_EQ(first.media().state, zu::MediaState::off);
        EXPECT_FALSE(first.description());
        EXPECT_EQ(first.codec(), zu::Codec::unknown);
        EXPECT_EQ(first.stats().requests, 0U);
    } // NOLINTEND(bugprone-use-after-move)
    EXPECT_EQ(second.stats().requests, 1U);
}

TEST_F(End, ComesToACameraThatAnotherIsAssignedTo)
{
    Camera first(address_of(device->port()));
    Camera second(address_of(device->port()));
    EXPECT_TRUE(eventually([this] { return device->links_open() == 2; }));
    first = std::move(second);
    EXPECT_TRUE(eventually([this] { return device->links_open() == 1; }));
    EXPECT_EQ(first.standard(1, 1), std::error_code());
    Camera& same = first;
    first = std::move(same);
    EXPECT_EQ(first.standard(1, 1), std::error_code()) << "an assignment to itself is none";
}

TEST_F(End, LeavesRoomForTheNextLoginAtOnce)
{
    for (int round = 0; round < 3; round++) {
        log_in();
        EXPECT_EQ(camera->standard(1, 1), std::error_code());
        camera.reset();
        library.reset();
        library = std::make_unique<zu::Library>();
    }
}

} // namespace
