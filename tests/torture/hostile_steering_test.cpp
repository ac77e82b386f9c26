// Answers steered at sockets that are not the device's business. An answer goes wherever its
// wait_port points on this machine, which is how the protocol is made; these tests say what a
// device can do with that to another login of the same process.
//
// Both devices are played by the test thread. One of them lies; the other, the victim's, does not.
// The clock stands still, so that no heartbeat gets between what is steered and none is swallowed.
#include <arpa/inet.h>

#include "hostile_kit.h"
#include "seam.h"

using namespace support;
using namespace hostile;

namespace
{

constexpr uint32_t ptz_request = 0x1031;
constexpr int32_t longest_forwarded = sender_room - 12; // of a body

class Steering : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(liar.emplace(1).log_in());
        ASSERT_TRUE(victim.emplace(2).log_in());
    }

    void TearDown() override
    {
        for (auto* device : {&liar, &victim}) {
            (*device)->log_out();
            EXPECT_THAT((*device)->breaches(), testing::IsEmpty());
            device->reset();
        }
        lib.reset();
        EXPECT_EQ(before.left_over(), "");
    }

    static uint32_t sender_of(const lying_device& d)
    {
        return htons(d.int_port());
    }

private:
    const inventory before;

protected:
    const log_tap log{1};
    std::optional<stopped_clock> still{std::in_place};
    std::optional<library> lib{std::in_place, 1};
    std::optional<lying_device> liar;
    std::optional<lying_device> victim;
};

} // namespace

TEST_F(Steering, AnAnswerAtAWaitingRequestOfAnotherLoginIsItsReply)
{
    auto call = std::async(std::launch::async, [handle = victim->handle()] {
        return ZU_NET_DEV_PTZ_Ctrl_Standard(handle, 1, 5);
    });
    const auto request = victim->link.read_message();
    ASSERT_TRUE(request);
    liar->send(make_message(answer_to_ptz, request->wait_port, le32(666)));
    EXPECT_EQ(call.get(), 666);
    EXPECT_TRUE(victim->in_step());
    EXPECT_TRUE(liar->in_step());
}

TEST_F(Steering, AnAnswerAtAnotherLoginsSenderReachesItsDeviceAndTheAnswerToThatComesBack)
{
    const bytes body = pattern(longest_forwarded);
    liar->send(make_message(answer_to_ptz, sender_of(*victim), body));
    const auto forwarded = victim->link.read_message();
    ASSERT_TRUE(forwarded);
    EXPECT_EQ(forwarded->type, answer_to_ptz); // one of the seven answers, never a request
    EXPECT_TRUE(forwarded->body == body);
    EXPECT_EQ(forwarded->wait_port, sender_of(*liar));

    const bytes reply = make_message(0x1072, forwarded->wait_port, text("what the victim knows"));
    victim->send(reply);
    const auto back = liar->link.read_message();
    ASSERT_TRUE(back);
    EXPECT_TRUE(back->body == text("what the victim knows"));
    EXPECT_EQ(back->wait_port, sender_of(*victim));
    EXPECT_TRUE(victim->in_step());
    EXPECT_TRUE(liar->in_step());
}

// The sender takes 5,120 bytes of a datagram whose header promises more, so the victim's device
// takes what follows for the rest. With a second answer of the right length, what follows that is
// any request the liar likes.
TEST_F(Steering, TwoAnswersAtAnotherLoginsSenderAreARequestOfTheLiarsOwn)
{
    const bytes made_up = make_message(ptz_request, sender_of(*liar), le32(9) + le32(99));
    liar->send(make_message(answer_to_ptz, sender_of(*victim), pattern(longest_forwarded + 12)));
    liar->send(make_message(answer_to_ptz, sender_of(*victim), made_up));

    const auto swollen = victim->link.read_message();
    ASSERT_TRUE(swollen);
    EXPECT_EQ(swollen->type, answer_to_ptz);
    EXPECT_EQ(swollen->len, longest_forwarded + 12);
    const auto request = victim->link.read_message();
    ASSERT_TRUE(request);
    EXPECT_TRUE(request->raw() == made_up);

    victim->send(answer(*request, 77));
    const auto back = liar->link.read_message();
    ASSERT_TRUE(back);
    EXPECT_EQ(back->type, answer_to_ptz);
    EXPECT_TRUE(back->body == le32(77));
}

TEST_F(Steering, ALongAnswerAtAnotherLoginsSenderSwallowsItsNextRequests)
{
    constexpr int32_t missing = 20; // bytes: one movement request
    liar->send(
        make_message(answer_to_ptz, sender_of(*victim), pattern(longest_forwarded + missing)));
    ASSERT_EQ(victim->link.read_bytes(sender_room).size(), static_cast<size_t>(sender_room));
    auto call = std::async(std::launch::async, [handle = victim->handle()] {
        return ZU_NET_DEV_PTZ_Ctrl_Standard(handle, 1, 5);
    });
    const bytes swallowed = victim->link.read_bytes(missing);
    still.reset(); // nobody has seen a request in it, and after three seconds it is given up
    ASSERT_EQ(swallowed.size(), static_cast<size_t>(missing));
    EXPECT_TRUE(swallowed == make_message(ptz_request, word_at(swallowed, 8), le32(1) + le32(5)));
    EXPECT_EQ(call.get(), -1);
    EXPECT_TRUE(log.has("select wait for 3 seconds timeout!\n"));
    EXPECT_TRUE(victim->in_step()); // the other way is not touched
}

TEST_F(Steering, AnEmptyDatagramAtAnotherLoginsSenderCostsItsConnection)
{
    liar->send(make_message(answer_to_ptz, -12, sender_of(*victim), {}));
    EXPECT_TRUE(victim->link_lost());
    EXPECT_TRUE(log.wait_for("recvfrom ret: 0, break\n"));
    EXPECT_TRUE(victim->accept_again());
    EXPECT_TRUE(victim->in_step());
    EXPECT_TRUE(liar->in_step());
}

TEST_F(Steering, AShortDatagramAtAnotherLoginsSenderIsDropped)
{
    for (int32_t size = 1; size < 12; size++) {
        liar->send(make_message(answer_to_ptz, size - 12, sender_of(*victim), {}));
        EXPECT_TRUE(log.wait_for("msg too short:" + std::to_string(size) + "\n"));
    }
    answer_of_length(*victim, 4);
    EXPECT_TRUE(victim->in_step());
    EXPECT_TRUE(liar->in_step());
}
