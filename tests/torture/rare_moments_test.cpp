// What a device sends at a moment that a real system hits once in a while. On the simulated machine
// it is hit each time.
#include "live_machine.h"

using namespace torture;
using namespace support;

namespace
{

const std::string exception_line = "ext_sock exception happened!";
const std::string pipe_line = "Sender thread received shutdown signal. Exiting.";

class RareMoments : public live_machine
{
protected:
    RareMoments()
    {
        EXPECT_EQ(log_in(), 0);
        here.let_pass(100 * milliseconds);
        lines.clear();
    }
    ~RareMoments() override
    {
        EXPECT_EQ(log_out(), 0);
    }

    // The last word of the sender whose link is lost, and the number of its exit line.
    void expect_sender_said(const std::string& line, const std::string& ret)
    {
        ASSERT_TRUE(here.wait([&] { return told("Waiting for 3 seconds"); }, 20 * seconds));
        EXPECT_TRUE(told(line));
        EXPECT_FALSE(told(line == pipe_line ? exception_line : pipe_line));
        EXPECT_TRUE(told("exit from msgsender, ret:" + ret));
    }
};

std::string wire(const bytes& message)
{
    return {message.begin(), message.end()};
}

} // namespace

TEST_F(RareMoments, ALossOfTheLinkWakesTheSenderByItsPipe)
{
    device.drop_links();
    expect_sender_said(pipe_line, "1");
}

TEST_F(RareMoments, UrgentDataRightBeforeALossHasTheSendersLastLine)
{
    device.send_urgent_to_all();
    here.let_pass(1 * milliseconds);
    device.drop_links();
    expect_sender_said(exception_line, "1");
}

TEST_F(RareMoments, SoHasUrgentDataThatABusyReceiverHasNotSeen)
{
    hold_at("msglen: 0", 2 * seconds);
    device.send_to_all(wire(make_message(0x7777, 0, {})));
    here.let_pass(1 * milliseconds);
    device.send_urgent_to_all();
    here.let_pass(1 * milliseconds);
    device.drop_links();
    expect_sender_said(exception_line, "1");
}

TEST_F(RareMoments, ALogoutWakesTheSenderByItsSocket)
{
    EXPECT_EQ(log_out(), 0);
    EXPECT_TRUE(told("msgsender select faill!"));
    EXPECT_TRUE(told("exit from msgsender, ret:-1"));
    EXPECT_EQ(log_in(), 0);
}

TEST_F(RareMoments, UrgentDataRightBeforeALogoutHasTheSendersLastLine)
{
    device.send_urgent_to_all();
    here.let_pass(1 * milliseconds);
    EXPECT_EQ(log_out(), 0);
    EXPECT_FALSE(told("msgsender select faill!"));
    EXPECT_TRUE(told(exception_line));
    EXPECT_TRUE(told("exit from msgsender, ret:1"));
    EXPECT_EQ(log_in(), 0);
}

// All that the buffer holds is read of a long body at once, and a little more.
TEST_F(RareMoments, TheBeginOfAHeaderBehindABodyThatIsDroppedIsAHeaderThatHasBegun)
{
    constexpr size_t first_read = 128 * 1024;
    constexpr size_t second_read = msgrecver_body_max;
    const std::string frame = wire(make_message(0x1100, 0, text("KTVF")));
    constexpr size_t known = 11; // bytes of the header
    device.stall(true);          // no answer to a heartbeat shall complete it
    device.send_to_all(wire(make_message(0x1100, 0, pattern(first_read + second_read + 1))) +
                       frame.substr(0, known));
    here.let_pass(8 * seconds);
    EXPECT_FALSE(told("no msg in 6 seconds!"));
    device.send_to_all(frame.substr(known));
    EXPECT_TRUE(here.wait([&] { return frames == 1; }, 1 * seconds));
    EXPECT_EQ(device.links_made(), 1);
    device.stall(false);
}
