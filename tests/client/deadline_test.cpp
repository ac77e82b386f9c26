// Deadlines: the caller is let go when its time is over, whatever the device does, and nothing that
// it owns is touched afterwards.
#include "client_kit.h"

namespace
{

using namespace support;
using zu::Errc;

// The library gives no request up while its clock stands still, so that the deadline alone decides.
class Deadline : public ClientTest
{
protected:
    // A camera whose device answers heartbeats alone.
    zu::Camera& log_in_to_mute_device(unsigned requests_at_once = 4)
    {
        device->behave(mute());
        zu::CameraOptions options;
        options.requests_at_once = requests_at_once;
        return log_in(std::move(options));
    }
    // Requests that wait for a device that does not answer, one a thread, until they fail.
    void occupy(zu::Camera& its, size_t count)
    {
        for (size_t i = 0; i < count; i++) {
            waiting.emplace_back(
                [&its] { EXPECT_EQ(its.standard(1, 1, long_enough), Errc::no_answer); });
        }
        EXPECT_TRUE(eventually([&] { return asked(move_message) == count; }));
    }
    void let_them_fail()
    {
        still.reset();
        for (auto& each : waiting) {
            each.join();
        }
        waiting.clear();
    }
    // What a request comes to that finds no place. A deadline that is over when the desk first
    // looks is told as such, and the request was never in line then.
    template <class Request>
    static std::error_code outcome_in_line(Request request)
    {
        std::error_code outcome;
        do {
            outcome = request();
        } while (outcome == Errc::timed_out);
        return outcome;
    }
    void TearDown() override
    {
        let_them_fail();
        ClientTest::TearDown();
    }

    std::vector<std::thread> waiting;
    std::optional<stopped_clock> still{std::in_place};
};

TEST_F(Deadline, LetsTheCallerGoWhenNoAnswerComes)
{
    auto& its = log_in_to_mute_device();
    const auto begin = zu::Clock::now();
    EXPECT_EQ(its.standard(1, 1, milliseconds(100)), Errc::timed_out);
    EXPECT_GE(zu::Clock::now() - begin, milliseconds(100));
    EXPECT_EQ(its.stats().requests_timed_out, 1U);
    EXPECT_EQ(its.stats().requests_failed, 1U);
}

TEST_F(Deadline, HoldsForEveryRequest)
{
    auto& its = log_in_to_mute_device(64);
    const milliseconds soon(50);
    zu::EncodeLevel level = {};
    EXPECT_EQ(its.start_stream({}, soon), Errc::timed_out);
    EXPECT_EQ(its.stop_stream(soon), Errc::timed_out);
    EXPECT_EQ(its.ask_for_key_frame(soon), Errc::timed_out);
    EXPECT_EQ(its.get<zu::VideoSettings>(0, soon).error(), Errc::timed_out);
    EXPECT_EQ(its.set(level, soon), Errc::timed_out);
    EXPECT_EQ(its.read(1, nullptr, 0, soon), Errc::timed_out);
    EXPECT_EQ(its.write(1, nullptr, 0, soon), Errc::timed_out);
    EXPECT_EQ(its.move(1, 1, seconds(60), soon), Errc::timed_out);
    EXPECT_EQ(its.stop_moving(soon), Errc::timed_out);
    EXPECT_EQ(its.preset(1, 1, soon), Errc::timed_out);
}

TEST_F(Deadline, OfTheOptionsHoldsWithoutAnother)
{
    device->behave(mute());
    zu::CameraOptions options;
    options.deadline = milliseconds(80);
    EXPECT_EQ(log_in(std::move(options)).standard(1, 1), Errc::timed_out);
}

// The buffer is gone when the answer comes, or the library gives up.
TEST_F(Deadline, LeavesNothingThatTouchesTheCallersBuffer)
{
    std::atomic<bool> answer{false};
    device->behave(answering([&](peer& end, const message& m) {
        if (m.type == get_message) {
            eventually([&] { return answer.load(); });
            const bytes head = le32(word_at(m.body, 0)) + le32(0);
            end.send(make_message(m.type + 1, m.wait_port, head + pattern(2004)));
        }
    }));
    zu::CameraOptions options;
    options.requests_at_once = 64;
    auto& its = log_in(std::move(options));
    auto record = std::make_unique<zu::PresetList>();
    let_time_out(get_message, [&] {
        return its.read(zu::SettingOf<zu::PresetList>::command, record.get(), sizeof(*record),
                        milliseconds(50));
    });
    record.reset();
    answer = true;
    EXPECT_TRUE(eventually([&] { return its.peer().alive; })) << "the answer has come";
    camera.reset(); // before what its device uses
    device.reset();
}

TEST_F(Deadline, IsNotNeededWhenTheLibraryGivesUp)
{
    auto& its = log_in_to_mute_device();
    still.reset();
    EXPECT_EQ(its.standard(1, 1, long_enough), Errc::no_answer);
    EXPECT_EQ(its.stats().requests_timed_out, 0U);
}

TEST_F(Deadline, CountsTheTimeInTheQueueToo)
{
    auto& its = log_in_to_mute_device(2);
    occupy(its, 2);
    EXPECT_EQ(outcome_in_line([&] { return its.preset(1, 1, milliseconds(50)); }), Errc::busy);
}

TEST_F(Deadline, KeepsARequestThatHasNotBegunFromBeginning)
{
    auto& its = log_in_to_mute_device(1);
    occupy(its, 1);
    EXPECT_EQ(outcome_in_line([&] { return its.preset(1, 1, milliseconds(50)); }), Errc::busy);
    let_them_fail();
    device->behave({});
    EXPECT_EQ(its.standard(2, 1), std::error_code());
    EXPECT_EQ(asked(preset_message), 0U);
}

TEST_F(Deadline, KeepsAStartWhoseTurnComesLaterFromBeginning)
{
    auto& its = log_in_to_mute_device();
    let_time_out(start_message, [&] { return its.start_stream({}, milliseconds(50)); });
    EXPECT_EQ(its.start_stream({}, milliseconds(50)), Errc::timed_out) << "the first is under way";
    still.reset();
    device->behave({});
    EXPECT_EQ(its.stop_stream(long_enough), std::error_code()) << "the third in turn";
    EXPECT_EQ(asked(start_message), 1U);
}

TEST_F(Deadline, ThatHasPassedKeepsARequestFromBeginning)
{
    auto& its = log_in();
    EXPECT_EQ(its.standard(1, 1, milliseconds(0)), Errc::timed_out);
    EXPECT_EQ(its.standard(1, 1, milliseconds::min()), Errc::timed_out);
    EXPECT_EQ(its.standard(2, 1, milliseconds::max()), std::error_code());
    EXPECT_EQ(asked(move_message), 1U);
}

TEST_F(Deadline, HoldsInsideAnEventHandler)
{
    device->behave(mute());
    std::atomic<bool> over{false};
    std::error_code inside;
    std::atomic<zu::Camera*> its{nullptr};
    zu::CameraOptions options;
    options.on_event = [&](const zu::Event& event) {
        if (event.kind == zu::EventKind::heartbeat && !over) {
            inside = its.load()->standard(1, 1, milliseconds(50));
            over = true;
        }
    };
    its = &log_in(std::move(options));
    let_a_heartbeat_come(*still);
    EXPECT_TRUE(eventually([&] { return over.load(); }));
    EXPECT_EQ(inside, Errc::timed_out);
    still.reset();  // the end waits for the request
    camera.reset(); // before what its handler uses
}

TEST_F(Deadline, OfABusyCameraIsKeptWithoutMoreThreadsThanAllowed)
{
    auto& its = log_in_to_mute_device(3);
    occupy(its, 3); // by threads that have got as far as having their names
    std::vector<std::thread> callers;
    for (int i = 0; i < 12; i++) {
        callers.emplace_back([&] { EXPECT_TRUE(its.standard(1, 1, milliseconds(200))); });
    }
    for (auto& caller : callers) {
        caller.join();
    }
    EXPECT_EQ(threads_named("zu_request"), 3);
    EXPECT_EQ(its.stats().requests_failed, 12U);
    EXPECT_EQ(asked(move_message), 3U);
}

} // namespace
