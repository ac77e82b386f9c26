// A link that has been shut down: its mark comes first, and from that moment the receiver calls no
// callback and relays nothing, whatever is still in the pipeline and whatever the run word says.
//
// The test thread plays the device and whoever ends the link. before_call puts the mark at an exact
// place between two steps of the receiver.
#include <unistd.h>

#include "link.h"
#include "receiver_kit.h"

using namespace support;

namespace
{

const told select_line = error("msgrecver select faill!\n");
const told bad_descriptor_header_line = error("recv error: Bad file descriptor (errno=9)\n");
const told bad_descriptor_body_line =
    error("Disconnected (body recv)! recv error: Bad file descriptor (errno=9)\n");

using shut_function = void (*)(device_link*);

// Shuts a link down when a log line of the library begins so: between two steps of the receiver.
std::atomic<device_link*> line_shuts{nullptr};
const char* line_beginning = nullptr; // set before line_shuts

void shut_at_line(int /*type*/, const char* line)
{
    device_link* link = line_shuts;
    if (link != nullptr && std::string(line).find(line_beginning) != std::string::npos) {
        link_shut_int(link);
        link_shut_ext(link);
    }
}

void arm_line(const char* beginning, device_link* link)
{
    ZU_NET_DEV_SetLogCallback(shut_at_line);
    line_beginning = beginning;
    line_shuts = link;
}

} // namespace

TEST(ReceiverMarkedLink, EndsTheReceiverAsIfTheWaitHadFailed)
{
    for (const int level : log_levels) {
        receiver_stand stand(level);
        EXPECT_TRUE(takes_a_frame(stand));
        link_shut_ext(stand.user->link);
        ASSERT_TRUE(stand.receiver_ended());
        EXPECT_EQ(stand.user->msgrecver_run, 1);
        expect_log(stand, {select_line, exit_line("-1")});
    }
}

TEST(ReceiverMarkedLink, EndsTheReceiverByTheLoopbackSocketsMarkToo)
{
    receiver_stand stand(2);
    EXPECT_TRUE(takes_a_frame(stand));
    link_shut_int(stand.user->link);
    stand.link.send(stream_data("KTVF", {})); // wakes it, and is not delivered
    ASSERT_TRUE(stand.receiver_ended());
    EXPECT_EQ(stand.seen.block_count(), 1U);
    expect_log(stand, {select_line, exit_line("-1")});
}

TEST(ReceiverMarkedLink, EndsItBeforeTheShutdownPipeIsLookedAt)
{
    receiver_stand stand(1);
    EXPECT_TRUE(takes_a_frame(stand));
    link_shut_int(stand.user->link);
    ASSERT_EQ(write(stand.user->shutdown_pipe_recver[1], "x", 1), 1);
    ASSERT_TRUE(stand.receiver_ended());
    expect_log(stand, {select_line});
}

TEST(ReceiverMarkedLink, DeliversNothingThatWaitsBehindACallback)
{
    for (const shut_function shut : {link_shut_ext, link_shut_int}) {
        held_watcher held;
        loopback_socket caller;
        receiver_stand stand(1);
        held.attach(stand.user);
        stand.link.send(stream_data("KTVF", {}));
        ASSERT_TRUE(held.gate.reached());
        stand.link.send(stream_data("KTVF", {}) + heartbeat_answer() +
                        make_message(0x1002, caller.wait_port(), le32(0)));
        shut(stand.user->link);
        held.gate.let_go();
        ASSERT_TRUE(stand.receiver_ended());
        EXPECT_EQ(held.seen.block_count(), 1U);
        EXPECT_TRUE(stand.seen.events().empty());
        EXPECT_FALSE(caller.receive(std::chrono::milliseconds(0)));
        expect_log(stand, {select_line});
    }
}

TEST(ReceiverMarkedLink, DropsAMessageThatWasReadBeforeTheMark)
{
    loopback_socket caller;
    const bytes messages[] = {
        make_message(0x1100, 0, {}),
        make_message(0x1022, 0, {}),
        make_message(0x1002, caller.wait_port(), {}),
    };
    for (const bytes& message : messages) {
        receiver_stand stand(2);
        arm_line("msglen: 0", stand.user->link); // behind the read, before anything is done
        stand.link.send(message);
        ASSERT_TRUE(stand.receiver_ended());
        line_shuts = nullptr;
        EXPECT_EQ(stand.seen.block_count(), 0U);
        EXPECT_TRUE(stand.seen.events().empty());
        EXPECT_FALSE(caller.receive(std::chrono::milliseconds(0)));
        char type[20];
        snprintf(type, sizeof(type), "0x%x", word_at(message, 0));
        expect_log(stand, {trace(std::string("msglen: 0, msgtype: ") + type + "\n"), select_line,
                           exit_line("-1")});
    }
}

TEST(ReceiverMarkedLink, DropsABodyThatWasReadAfterTheMark)
{
    loopback_socket caller;
    receiver_stand stand(1);
    EXPECT_TRUE(takes_a_frame(stand));
    std::atomic<bool> marked{false};
    const before_call mark("recv", [&] {
        link_shut_int(stand.user->link);
        marked = true;
    });
    stand.link.send(make_message(0x1002, caller.wait_port(), le32(0)) + stream_data("KTVF", {}));
    ASSERT_TRUE(eventually([&] { return marked.load(); }));
    stand.link.send(stream_data("KTVF", {})); // wakes the next wait
    ASSERT_TRUE(stand.receiver_ended());
    EXPECT_EQ(stand.seen.block_count(), 1U);
    EXPECT_FALSE(caller.receive(std::chrono::milliseconds(0)));
    expect_log(stand, {select_line});
}

TEST(ReceiverMarkedLink, EndsASpinInsideAHeader)
{
    for (const int level : log_levels) {
        receiver_stand stand(level);
        stand.link.send(hex("22 10 00 00 00"));
        ASSERT_TRUE(all_read(stand));
        link_shut_ext(stand.user->link);
        ASSERT_TRUE(stand.receiver_ended());
        EXPECT_TRUE(stand.seen.events().empty());
        expect_log(stand, {bad_descriptor_header_line, header_break_line, exit_line("-1")});
    }
}

TEST(ReceiverMarkedLink, EndsASpinOnAConnectionThatThePeerHasClosed)
{
    fault no_body_yet("recv", EAGAIN, 2, 1);
    no_body_yet.on_thread(receiver_name);
    receiver_stand stand(1);
    EXPECT_TRUE(takes_a_frame_in_two(stand));
    const before_call reads("recv");
    stand.link.close();
    ASSERT_TRUE(eventually([&] { return reads.count() >= 2; }));
    link_shut_ext(stand.user->link);
    ASSERT_TRUE(stand.receiver_ended());
    expect_log(stand, {bad_descriptor_header_line, header_break_line});
}

TEST(ReceiverMarkedLink, EndsAHeaderThatTheWaitHadPromised)
{
    receiver_stand stand(1);
    EXPECT_TRUE(takes_a_frame(stand));
    const before_call mark("recv", [&] { link_shut_ext(stand.user->link); });
    stand.link.close();
    ASSERT_TRUE(stand.receiver_ended());
    expect_log(stand, {bad_descriptor_header_line, header_break_line});
}

TEST(ReceiverMarkedLink, EndsABodyThatIsOnlyPartlyThere)
{
    receiver_stand stand(1);
    stand.link.send(make_message(0x1100, 1000, 0, pattern(10)));
    ASSERT_TRUE(all_read(stand));
    link_shut_ext(stand.user->link);
    ASSERT_TRUE(stand.receiver_ended());
    EXPECT_EQ(stand.seen.block_count(), 0U);
    expect_log(stand, {select_line});
}

TEST(ReceiverMarkedLink, FailsABodyReadThatFindsNothing)
{
    for (const int level : log_levels) {
        receiver_stand stand(level);
        // The header has been read, the body is not there.
        std::atomic<bool> shut{false};
        const before_call mark("poll", [&] {
            if (!shut.exchange(true)) { // which makes such a call too
                link_shut_ext(stand.user->link);
            }
        });
        stand.link.send(make_message(0x1100, 1000, 0, {}));
        ASSERT_TRUE(stand.receiver_ended());
        expect_log(stand, {bad_descriptor_body_line, exit_line("-1")});
    }
}

TEST(ReceiverMarkedLink, IsShutDownForTheDeviceAtOnce)
{
    receiver_stand stand;
    link_shut_ext(stand.user->link);
    EXPECT_TRUE(stand.link.wait_until_closed());
    EXPECT_TRUE(stand.receiver_ended());
}
