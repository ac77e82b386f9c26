// Requests: what reaches the device, what its answers become, and what is refused without asking.
#include "client_kit.h"

namespace
{

using namespace support;
using zu::Errc;

class Requests : public ClientTest
{
protected:
    // What the device was asked last with a message of this type.
    bytes asked_with(uint32_t type) const
    {
        const auto all = device->received(type);
        return all.empty() ? bytes() : all.back().body;
    }
};

TEST_F(Requests, StartTheStreamThatIsNamed)
{
    auto& its = log_in();
    EXPECT_EQ(its.start_stream({2, 7, 5, 6}), std::error_code());
    EXPECT_EQ(word_at(asked_with(start_message), 0), 2U);
    EXPECT_EQ(word_at(asked_with(start_message), 4), 7U);
    EXPECT_EQ(its.stop_stream(), std::error_code());
    EXPECT_EQ(word_at(asked_with(stop_message), 0), 2U);
}

TEST_F(Requests, AskForAKeyFrameOfTheStreamThatWasStartedLast)
{
    auto& its = log_in();
    EXPECT_EQ(its.ask_for_key_frame(), std::error_code());
    EXPECT_EQ(word_at(asked_with(key_frame_message), 0), 0U);
    EXPECT_EQ(its.start_stream({3, 1}), std::error_code());
    EXPECT_EQ(its.ask_for_key_frame(), std::error_code());
    EXPECT_EQ(word_at(asked_with(key_frame_message), 0), 3U);
}

TEST_F(Requests, MoveTheCamera)
{
    auto& its = log_in();
    EXPECT_EQ(its.standard(17, 4), std::error_code());
    EXPECT_EQ(word_at(asked_with(move_message), 0), 17U);
    EXPECT_EQ(word_at(asked_with(move_message), 4), 4U);
    EXPECT_EQ(its.preset(8, 250), std::error_code());
    EXPECT_EQ(word_at(asked_with(preset_message), 0), 8U);
    EXPECT_EQ(word_at(asked_with(preset_message), 4), 250U);
}

// A device that keeps one record, which comes back behind the command and the code.
behaviour keeping(const bytes& record)
{
    return answering([record](peer& end, const message& m) {
        if (m.type == get_message) {
            const bytes head = le32(word_at(m.body, 0)) + le32(0);
            end.send(make_message(m.type + 1, m.wait_port, head + record));
        } else {
            answers_with(0)(end, m);
        }
    });
}

TEST_F(Requests, ReadARecordByItsType)
{
    device->behave(keeping(le32(0) + le32(2) + le32(1) + le32(700)));
    auto& its = log_in();
    const auto settings = its.get<zu::VideoSettings>(2);
    ASSERT_TRUE(settings) << settings.error().message();
    EXPECT_EQ(settings.value().u32Stream, 2U);
    EXPECT_EQ(settings.value().u32Bitrate, 700U);
    EXPECT_EQ(word_at(asked_with(get_message), 0), ZU_NET_DEV_CMD_VIDEO_PARAM_EXT);
    EXPECT_EQ(word_at(asked_with(get_message), 8 + 4), 2U) << "the stream that is selected";
}

TEST_F(Requests, ReadEveryKindOfRecord)
{
    device->behave(keeping(pattern(2004)));
    auto& its = log_in();
    EXPECT_TRUE(its.get<zu::AudioSettings>(1));
    EXPECT_TRUE(its.get<zu::EncodeLevel>());
    EXPECT_TRUE(its.get<zu::IdrQp>(1));
    const auto presets = its.get<zu::PresetList>();
    ASSERT_TRUE(presets);
    EXPECT_EQ(memcmp(&presets.value(), pattern(2004).data(), 2004), 0);
}

TEST_F(Requests, WriteARecordByItsType)
{
    auto& its = log_in();
    zu::EncodeLevel level = {};
    level.u32Level = 77;
    EXPECT_EQ(its.set(level), std::error_code());
    EXPECT_EQ(word_at(asked_with(set_message), 0), ZU_NET_DEV_CMD_VIDEO_ENCODE_LEVEL);
    EXPECT_EQ(word_at(asked_with(set_message), 8), 77U);
}

TEST_F(Requests, CarryAnyCommandAndRecord)
{
    auto& its = log_in();
    const bytes record = pattern(3132);
    EXPECT_EQ(its.write(0x7777, record.data(), record.size()), std::error_code());
    EXPECT_EQ(word_at(asked_with(set_message), 0), 0x7777U);
    const bytes sent = asked_with(set_message);
    EXPECT_EQ(bytes(sent.begin() + 8, sent.end()), record);
    EXPECT_EQ(its.write(0x7778, nullptr, 0), std::error_code());
    EXPECT_EQ(its.read(0x7779, nullptr, 0), std::error_code());
    bytes kept = pattern(64);
    EXPECT_EQ(its.read(0x7779, kept.data(), kept.size()), std::error_code());
    EXPECT_EQ(kept, pattern(64)) << "no record comes back for a command that is not known";
}

TEST_F(Requests, TellTheCodeOfADeviceThatRefuses)
{
    device->behave(answering(answers_with(23)));
    auto& its = log_in();
    zu::EncodeLevel level = {};
    const std::error_code code = its.set(level);
    EXPECT_TRUE(zu::refused(code));
    EXPECT_EQ(code.value(), 23);
    EXPECT_EQ(code.category(), zu::device_category());
}

TEST_F(Requests, LeaveARecordAloneWhenTheDeviceRefuses)
{
    device->behave(answering([](peer& end, const message& m) {
        if (m.type == get_message) {
            const bytes refusal = le32(word_at(m.body, 0)) + le32(9) + pattern(44);
            end.send(make_message(m.type + 1, m.wait_port, refusal));
        }
    }));
    auto& its = log_in();
    zu::VideoSettings record = {};
    record.u32Width = 5;
    const auto code = its.read(zu::SettingOf<zu::VideoSettings>::command, &record, sizeof(record));
    EXPECT_EQ(code.value(), 9);
    EXPECT_EQ(record.u32Width, 5U);
    EXPECT_EQ(its.get<zu::VideoSettings>().error().value(), 9);
}

TEST_F(Requests, CannotTellMinusOneFromNoAnswer)
{
    device->behave(answering(answers_with(-1)));
    EXPECT_EQ(log_in().standard(1, 1), Errc::no_answer);
}

TEST_F(Requests, RefuseWhatMakesNoSense)
{
    auto& its = log_in();
    bytes record = pattern(4000);
    EXPECT_EQ(its.start_stream({4, 1}), Errc::bad_argument);
    EXPECT_EQ(its.start_stream({0, 0}), Errc::bad_argument);
    EXPECT_EQ(its.start_stream({0, 6}), Errc::bad_argument);
    EXPECT_EQ(its.start_stream({0, 8}), Errc::bad_argument);
    EXPECT_EQ(its.write(1, record.data(), 3141), Errc::bad_argument);
    EXPECT_EQ(its.write(1, nullptr, 1), Errc::bad_argument);
    EXPECT_EQ(its.read(1, record.data(), 3141), Errc::bad_argument);
    EXPECT_EQ(its.read(1, nullptr, 1), Errc::bad_argument);
    const auto known = zu::SettingOf<zu::VideoSettings>::command;
    EXPECT_EQ(its.read(known, record.data(), sizeof(zu::VideoSettings) - 1), Errc::bad_argument);
    EXPECT_EQ(its.read(known, nullptr, 0), Errc::bad_argument);
    EXPECT_EQ(its.write(known, record.data(), sizeof(zu::VideoSettings) + 1), Errc::bad_argument);
    EXPECT_EQ(its.move(1, 1, milliseconds(0)), Errc::bad_argument);
    EXPECT_TRUE(device->received().empty());
    EXPECT_EQ(its.stats().requests, 0U);
}

TEST_F(Requests, AreCountedByWhatTheyCameTo)
{
    auto& its = log_in();
    EXPECT_EQ(its.standard(1, 1), std::error_code());
    EXPECT_EQ(its.standard(2, 1), std::error_code());
    device->behave(answering(answers_with(5)));
    EXPECT_TRUE(zu::refused(its.standard(3, 1)));
    device->behave(answering(answers_with(-1)));
    EXPECT_EQ(its.standard(4, 1), Errc::no_answer);
    const zu::Stats stats = its.stats();
    EXPECT_EQ(stats.requests, 4U);
    EXPECT_EQ(stats.requests_done, 2U);
    EXPECT_EQ(stats.requests_refused, 1U);
    EXPECT_EQ(stats.requests_failed, 1U);
    EXPECT_EQ(stats.requests_timed_out, 0U);
    EXPECT_GT(stats.round_trip_min_us, 0U);
    EXPECT_LE(stats.round_trip_min_us, stats.round_trip_last_us);
    EXPECT_LE(stats.round_trip_last_us, stats.round_trip_max_us);
    EXPECT_GE(stats.round_trip_sum_us, stats.round_trip_min_us + stats.round_trip_max_us);
}

TEST_F(Requests, GoOutTogetherFromManyThreads)
{
    auto& its = log_in();
    std::vector<std::thread> callers;
    std::atomic<int> done{0};
    for (uint32_t i = 0; i < 8; i++) {
        callers.emplace_back([&, i] {
            for (uint32_t k = 0; k < 20; k++) {
                done += its.standard(100 + i, k, long_enough) ? 0 : 1;
            }
        });
    }
    for (auto& caller : callers) {
        caller.join();
    }
    EXPECT_EQ(done, 160);
    EXPECT_EQ(asked(move_message), 160U);
    EXPECT_LE(threads_named("zu_request"), 4);
}

} // namespace
