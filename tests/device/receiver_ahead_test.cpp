// Reading ahead: fewer calls, and nothing that anybody could tell it by.
//
// The test thread plays the device. Calls are counted through the seam.
#include <cerrno>
#include <sys/socket.h>
#include <unistd.h>

#include "read_ahead.h"
#include "receiver_kit.h"

using namespace support;

namespace
{

constexpr size_t first_size = 20; // of the frame that stops the receiver
constexpr size_t header_size = 12;

bytes frame_body(size_t size, unsigned seed)
{
    return text("KTVF") + pattern(size - 4, seed);
}

bytes frame(size_t size, unsigned seed)
{
    return make_message(0x1100, 0, frame_body(size, seed));
}

// So many frames, one behind the other.
bytes frames(unsigned count, size_t size)
{
    bytes all;
    for (unsigned i = 0; i < count; i++) {
        all = std::move(all) + frame(size, i);
    }
    return all;
}

bytes part(const bytes& whole, size_t from, size_t to)
{
    return {whole.begin() + static_cast<long>(from), whole.begin() + static_cast<long>(to)};
}

// A receiver that stands in its callback with a first frame, so that all that is sent meanwhile is
// there when it goes on. `behind` comes along with that frame, and so has been read ahead.
class stopped_receiver
{
public:
    explicit stopped_receiver(int level = 1, const bytes& behind = {}) : stand(level)
    {
        const int room = 200 * 1024; // for what is sent to a receiver that does not read
        setsockopt(stand.user->ext_sock, SOL_SOCKET, SO_RCVBUF, &room, sizeof(room));
        held.attach(stand.user);
        stand.link.send(frame(first_size, 99) + behind);
        EXPECT_TRUE(held.gate.reached());
    }
    // Sends, and waits until it has arrived.
    void send(const bytes& all)
    {
        EXPECT_TRUE(stand.link.send(all));
        EXPECT_TRUE(all_arrived(stand));
    }
    // So many frames in all.
    bool takes(size_t count)
    {
        held.gate.let_go();
        return held.seen.wait_for_blocks(count);
    }

    held_watcher held; // outlives the stand, whose threads write to it
    receiver_stand stand;
};

} // namespace

TEST(ReceiverAhead, TakesManyMessagesByOneReadAndAllocatesNothing)
{
    stopped_receiver stopped;
    stopped.send(frames(100, 300));
    const before_call reads("recv");
    const before_call waits("ppoll");
    const before_call allocations("mmap"); // the library has no other way to get memory
    ASSERT_TRUE(stopped.takes(101));
    EXPECT_EQ(reads.count(), 1);
    EXPECT_LE(waits.count(), 2); // the one before the read, and the next
    EXPECT_EQ(allocations.count(), 0);
    const auto blocks = stopped.held.seen.blocks();
    for (unsigned i = 0; i < 100; i++) {
        EXPECT_EQ(blocks[i + 1].body, frame_body(300, i)) << i;
    }
}

// Between two waits there is what one read brings: what it asks for, a block, and the rest of the
// message that the block cuts. Here it cuts a header, which is completed without a wait.
TEST(ReceiverAhead, WaitsOncePerBlockAtTheLatest)
{
    constexpr size_t body = 319;
    constexpr size_t size = header_size + body;
    constexpr size_t cut_at = (header_size + read_ahead_size) % size;
    static_assert(0 < cut_at && cut_at < header_size);
    constexpr size_t most = (header_size + read_ahead_size) / size + 1;
    stopped_receiver stopped;
    stopped.send(frames(450, body)); // more than a block
    std::vector<size_t> done;        // how many frames, before each wait
    const before_call waits("ppoll", [&] { done.push_back(stopped.held.seen.block_count()); });
    ASSERT_TRUE(stopped.takes(451));
    ASSERT_TRUE(eventually([&] { return waits.count() >= 3; })); // the last finds nothing to do
    stopped.stand.end_workers();
    for (size_t i = 1; i < done.size(); i++) {
        EXPECT_LE(done[i] - done[i - 1], most) << i;
    }
    EXPECT_EQ(done.front(), 1U);
    EXPECT_EQ(done.back(), 451U);
}

TEST(ReceiverAhead, SeesThePipeBehindTheBlock)
{
    stopped_receiver stopped(1, frames(10, 100));
    stopped.send(frames(10, 100));
    ASSERT_EQ(write(stopped.stand.user->shutdown_pipe_recver[1], "x", 1), 1);
    stopped.held.gate.let_go();
    ASSERT_TRUE(stopped.stand.receiver_ended());
    EXPECT_EQ(stopped.held.seen.block_count(), 11U);
    expect_log(stopped.stand, {shutdown_line});
}

// Whatever lies behind: the next wait fails, and nothing of it is looked at.
TEST(ReceiverAhead, IsLeftAloneWhenTheLinkIsShut)
{
    const bytes too_long = le32(0x1100) + le32(0) + le32(0x7fffffff);
    const bytes whole = frame(50, 7);
    for (const bytes& behind :
         {part(whole, 0, 5), part(whole, 0, 12), whole, heartbeat_answer(), too_long}) {
        stopped_receiver stopped(2, behind);
        link_shut_ext(stopped.stand.user->link);
        stopped.held.gate.let_go();
        ASSERT_TRUE(stopped.stand.receiver_ended());
        EXPECT_EQ(stopped.held.seen.block_count(), 1U);
        EXPECT_EQ(stopped.stand.log.count("msgrecver select faill!\n"), 1);
        for (const char* const beginning : {"recv", "Disconnected", "msglen", "msg too long"}) {
            EXPECT_FALSE(stopped.stand.log.has_beginning(beginning)) << beginning;
        }
    }
}

TEST(ReceiverAhead, CountsAHeaderThatTheBlockCutsAsOneRead)
{
    const bytes whole = heartbeat_answer();
    stopped_receiver stopped(2, part(whole, 0, 7));
    stopped.send(part(whole, 7, whole.size()));
    const before_call last("pthread_create", [&] { stopped.stand.user->msgrecver_run = 0; });
    stopped.held.gate.let_go();
    ASSERT_TRUE(stopped.stand.receiver_ended());
    EXPECT_TRUE(stopped.stand.log.has("$$$$$$$$$$$$ exit from msgrecver, ret:12\n"));
}

TEST(ReceiverAhead, DeliversWholeWhatIsCutAnywhere)
{
    const bytes all = frames(3, 40);
    receiver_stand stand(1);
    size_t count = 0;
    for (size_t cut = 1; cut < all.size(); cut++) {
        stand.link.send(part(all, 0, cut));
        ASSERT_TRUE(all_read(stand));
        stand.link.send(part(all, cut, all.size()));
        count += 3;
        ASSERT_TRUE(stand.seen.wait_for_blocks(count)) << cut;
        for (unsigned i = 0; i < 3; i++) {
            ASSERT_EQ(stand.seen.blocks()[count - 3 + i].body, frame_body(40, i)) << cut;
        }
    }
    EXPECT_TRUE(stand.log.lines().empty());
}

TEST(ReceiverAhead, DeliversLargeAndSmallFramesInTurn)
{
    receiver_stand stand(1);
    const std::vector<size_t> sizes = {5, 65536, 131060, 131072, 131084, 7, 200001, 1048576, 64, 4};
    bytes all;
    for (unsigned i = 0; i < sizes.size(); i++) {
        all = std::move(all) + frame(sizes[i], i);
    }
    stand.link.send(all);
    ASSERT_TRUE(stand.seen.wait_for_blocks(sizes.size()));
    for (unsigned i = 0; i < sizes.size(); i++) {
        EXPECT_TRUE(stand.seen.blocks()[i].body == frame_body(sizes[i], i)) << sizes[i];
    }
    EXPECT_TRUE(stand.log.lines().empty());
}

TEST(ReceiverAhead, LooksAtItsRunWordBeforeEachMessage)
{
    stopped_receiver stopped(1, frames(10, 100));
    stopped.stand.user->msgrecver_run = 0;
    stopped.held.gate.let_go();
    ASSERT_TRUE(stopped.stand.receiver_ended());
    EXPECT_EQ(stopped.held.seen.block_count(), 1U);
}

TEST(ReceiverAhead, AHeaderThatHasBegunInTheBlockIsCompletedWithoutAWait)
{
    const bytes whole = frame(50, 7);
    stopped_receiver stopped(1, frame(30, 1) + part(whole, 0, 5));
    const before_call slow("poll", dawdle);
    ASSERT_TRUE(stopped.takes(2));
    ASSERT_EQ(write(stopped.stand.user->shutdown_pipe_recver[1], "x", 1), 1);
    ASSERT_TRUE(eventually([&] { return slow.count() > 5; }));
    EXPECT_TRUE(stopped.stand.receiver_runs());
    stopped.stand.link.send(part(whole, 5, whole.size()));
    ASSERT_TRUE(stopped.stand.receiver_ended());
    EXPECT_EQ(stopped.held.seen.blocks().back().body, frame_body(50, 7));
    expect_log(stopped.stand, {shutdown_line});
}

TEST(ReceiverAhead, ABodyOfWhichNothingHasComeIsTriedOnce)
{
    const bytes whole = frame(50, 7);
    stopped_receiver stopped(2, frame(30, 1) + part(whole, 0, 12));
    const before_call reads("recv");
    ASSERT_TRUE(stopped.takes(2));
    ASSERT_TRUE(stopped.stand.log.wait_for(again_line));
    EXPECT_EQ(reads.count(), 0); // a look was enough
    stopped.stand.link.send(part(whole, 12, whole.size()));
    ASSERT_TRUE(stopped.held.seen.wait_for_blocks(3));
    EXPECT_EQ(stopped.stand.log.count(again_line), 1);
}

// A read of a body that fails for now leaves its number behind, and an end of the connection is
// judged by that; what is read ahead must not take it away.
TEST(ReceiverAhead, LeavesTheNumberBehindThatAPlainReadWouldHave)
{
    const bytes whole = frame(50, 7);
    for (const bool body_tried : {false, true}) {
        stopped_receiver stopped(1, frame(30, 1) + part(whole, 0, body_tried ? 12 : 13));
        const before_call waits("ppoll");
        ASSERT_TRUE(stopped.takes(2));
        ASSERT_TRUE(eventually([&] { return waits.count() >= 1; }));
        const before_call slow("recv", dawdle);
        stopped.stand.link.send(part(whole, body_tried ? 12 : 13, whole.size()));
        ASSERT_TRUE(stopped.held.seen.wait_for_blocks(3));
        stopped.stand.link.hang_up();
        ASSERT_TRUE(stopped.stand.receiver_ended());
        EXPECT_EQ(stopped.stand.log.has("no msg in 6 seconds!\n"), body_tried);
        EXPECT_EQ(stopped.stand.log.has("recv error: Success (errno=0)\n"), !body_tried);
    }
}

TEST(ReceiverAhead, CallsBesideTheReadsLeaveNoErrorBehind)
{
    for (const char* const call : {"setsockopt", "ioctl"}) {
        fault failing(call, EPERM);
        failing.on_thread(receiver_name);
        receiver_stand stand(1);
        const bytes whole = frame(20000, 3);
        stand.link.send(part(whole, 0, 5000));
        ASSERT_TRUE(eventually([&] { return failing.hits() >= 1; })) << call;
        stand.link.send(part(whole, 5000, whole.size()));
        ASSERT_TRUE(stand.seen.wait_for_blocks(1));
        stand.link.close();
        ASSERT_TRUE(stand.receiver_ended());
        expect_log(stand, {error("recv error: Success (errno=0)\n"), header_break_line});
    }
}

TEST(ReceiverAhead, ReadsWhenItCannotLook)
{
    receiver_stand stand(2);
    const fault failing("poll", ENOMEM);
    const bytes whole = frame(50, 7);
    stand.link.send(part(whole, 0, 12));
    ASSERT_TRUE(stand.log.wait_for(again_line));
    EXPECT_GE(failing.hits(), 1);
    stand.link.send(part(whole, 12, whole.size()));
    EXPECT_TRUE(stand.seen.wait_for_blocks(1));
}

// ---- what is logged of a response ----

namespace
{

constexpr size_t body_size = 1000; // of the response
constexpr int count_known = static_cast<int>(body_size);

std::string count_line(int count)
{
    return "recv msg ZU_SDK_MSG_RES_GETCONFIG:" + std::to_string(count) + "\n";
}

bytes response(const loopback_socket& caller)
{
    return make_message(0x1072, caller.wait_port(), pattern(body_size));
}

} // namespace

TEST(ReceiverAheadOfAResponse, CountsWhatLiesBehindTheBlockAsRead)
{
    loopback_socket caller;
    stopped_receiver stopped(2);
    const bytes answer = response(caller);
    const before_call looks("ioctl");                       // for what lies behind the block
    stopped.send(frame(read_ahead_size - 512, 1) + answer); // it ends in the response's body
    ASSERT_TRUE(stopped.takes(2));
    EXPECT_EQ(caller.receive(), answer);
    EXPECT_EQ(looks.count(), 1);
    EXPECT_TRUE(stopped.stand.log.wait_for(count_line(count_known)));
    EXPECT_FALSE(stopped.stand.log.has(again_line));
}

TEST(ReceiverAheadOfAResponse, CountsWhatHasComeSinceAsRead)
{
    loopback_socket caller;
    const bytes answer = response(caller);
    stopped_receiver stopped(2, part(answer, 0, 500));
    stopped.send(part(answer, 500, answer.size()));
    ASSERT_TRUE(stopped.takes(1));
    EXPECT_EQ(caller.receive(), answer);
    EXPECT_TRUE(stopped.stand.log.wait_for(count_line(count_known)));
}

TEST(ReceiverAheadOfAResponse, CountsTheLastOfSeveralReads)
{
    loopback_socket caller;
    const bytes answer = response(caller);
    stopped_receiver stopped(2, part(answer, 0, 500));
    const before_call looks("ioctl"); // for what lies behind the block
    ASSERT_TRUE(stopped.takes(1));
    stopped.stand.link.send(part(answer, 500, 600));
    ASSERT_TRUE(eventually([&] { return looks.count() >= 1; }) && all_read(stopped.stand));
    stopped.stand.link.send(part(answer, 600, answer.size()));
    EXPECT_EQ(caller.receive(), answer);
    EXPECT_TRUE(stopped.stand.log.wait_for(count_line(static_cast<int>(answer.size()) - 600)));
    EXPECT_FALSE(stopped.stand.log.has(again_line));
}

TEST(ReceiverAheadOfAResponse, AFailureToReadWhatLiesBehindTheBlockIsNone)
{
    loopback_socket caller;
    const bytes answer = response(caller);
    stopped_receiver stopped(2, part(answer, 0, 500));
    stopped.send(part(answer, 500, answer.size()));
    fault failing("recv", EAGAIN, 1, 1);
    failing.on_thread(receiver_name);
    ASSERT_TRUE(stopped.takes(1));
    EXPECT_EQ(caller.receive(), answer);
    EXPECT_EQ(failing.hits(), 1);
    EXPECT_TRUE(stopped.stand.log.wait_for(count_line(static_cast<int>(answer.size()) - 500)));
    EXPECT_FALSE(stopped.stand.log.has(again_line));
    stopped.stand.link.close();
    ASSERT_TRUE(stopped.stand.receiver_ended());
    EXPECT_TRUE(stopped.stand.log.has("recv error: Success (errno=0)\n"));
}
