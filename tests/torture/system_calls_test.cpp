// How many system calls the library makes for what it does all day, to the call. On the simulated
// machine the device goes on only when all is quiet again, so the numbers are the same each time.
//
// Each number is checked both ways: a rise costs every application, and a fall that is not written
// down here could be lost again unnoticed.
#include "live_machine.h"

#include <map>
#include <set>

using namespace torture;
using namespace support;

namespace
{

// ---- the figures: lower them when the library makes do with fewer ----

constexpr int small_message = 2;     // a block of 320 bytes that has come whole
constexpr int large_message = 2;     // a block of 64 KiB that has come whole
constexpr int message_in_pieces = 6; // a block of 20,000 bytes, in 14 pieces of 1,448 at most
constexpr int request = 12;          // with its response: caller, sender and receiver
constexpr int idle_minute = 10440;   // of a login: all its threads, heartbeats included

constexpr int times = 10; // how often each is done

std::string text_of(const bytes& data)
{
    return {data.begin(), data.end()};
}

std::string stream_message(size_t block_size)
{
    const bytes block = text("KTVF") + pattern(block_size - 4);
    return text_of(make_message(0x1100, 0, block));
}

// Answered by the C library from memory that the kernel shares, or done without the kernel.
bool is_system_call(const std::string& function)
{
    static const std::set<std::string> others = {"time",
                                                 "gettimeofday",
                                                 "clock_gettime",
                                                 "localtime_r",
                                                 "perror",
                                                 "pthread_mutex_init",
                                                 "pthread_mutex_destroy",
                                                 "pthread_mutex_lock",
                                                 "pthread_mutex_unlock",
                                                 "pthread_detach"};
    return others.count(function) == 0;
}

class SystemCalls : public live_machine
{
protected:
    SystemCalls()
    {
        ZU_NET_DEV_SetLogLevel(ZU_LOG_LEVEL_ERROR);
        EXPECT_EQ(log_in(), 0);
        here.before_call = [this](const call& made) {
            if (is_system_call(made.function)) {
                calls[here.threads.thread_name()][made.function]++;
            }
            return verdict{};
        };
    }

    ~SystemCalls() override
    {
        here.before_call = nullptr;
        EXPECT_EQ(log_out(), 0);
    }

    // Until everybody waits again.
    void quiet()
    {
        here.let_pass(2 * milliseconds);
    }

    // The calls from now on. The device manager's polling goes by time, and so counts only where
    // time passes on purpose.
    template <class What>
    int count(What what, bool with_polling = false)
    {
        what(); // the first of its kind
        quiet();
        calls.clear();
        for (int i = 0; i < times; i++) {
            what();
            quiet();
        }
        int sum = 0;
        for (const auto& [thread, functions] : calls) {
            for (const auto& [function, made] : functions) {
                sum += with_polling || thread != "sdk_devmanager_" ? made : 0;
            }
        }
        return sum;
    }

    // One message, each piece only when the one before has been dealt with.
    void send(const std::string& message, size_t piece_size = std::string::npos)
    {
        const size_t before = frames;
        for (size_t at = 0; at < message.size(); at += std::min(piece_size, message.size() - at)) {
            device.send_to_all(message.substr(at, piece_size));
            quiet();
        }
        EXPECT_EQ(frames, before + 1);
    }

    // One request.
    void move() const
    {
        EXPECT_EQ(ZU_NET_DEV_PTZ_Ctrl_Standard(handle, 1, 1), ZU_SUCCESS);
    }

    // What was counted, by thread and function.
    std::string told_apart() const
    {
        return testing::PrintToString(calls);
    }

    std::map<std::string, std::map<std::string, int>> calls;
};

} // namespace

TEST_F(SystemCalls, OfASmallStreamMessage)
{
    EXPECT_EQ(count([this] { send(stream_message(320)); }), times * small_message) << told_apart();
}

TEST_F(SystemCalls, OfALargeStreamMessage)
{
    EXPECT_EQ(count([this] { send(stream_message(65536)); }), times * large_message)
        << told_apart();
}

TEST_F(SystemCalls, OfAStreamMessageInPieces)
{
    EXPECT_EQ(count([this] { send(stream_message(20000), 1448); }), times * message_in_pieces)
        << told_apart();
}

TEST_F(SystemCalls, OfARequest)
{
    EXPECT_EQ(count([this] { move(); }), times * request) << told_apart();
}

TEST_F(SystemCalls, OfAnIdleMinute)
{
    EXPECT_EQ(count([this] { here.let_pass(60 * seconds / times); }, true), idle_minute)
        << told_apart();
}
