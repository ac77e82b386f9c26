// The bounded queue: what each policy keeps and drops, what it says of it, and that every frame is
// accounted for.
#include "client_kit.h"
#include "frame_queue.hpp"

namespace
{

using namespace support;
using zu::FrameKind;
using zu::WhenFull;
using zu::detail::FrameQueue;

class Queue : public testing::Test
{
protected:
    void make(size_t frames, WhenFull when_full)
    {
        queue = std::make_unique<FrameQueue>(zu::FrameQueueOptions{frames, when_full});
    }
    FrameQueue::Outcome put(FrameKind kind, bool key = false, zu::Codec codec = zu::Codec::h264)
    {
        zu::FrameView view = {};
        view.kind = kind;
        view.codec = codec;
        view.key = key;
        view.number = ++number;
        view.data = h264_key.data();
        view.size = h264_key.size();
        return queue->put(view);
    }
    FrameQueue::Outcome put_delta()
    {
        return put(FrameKind::video);
    }
    FrameQueue::Outcome put_key()
    {
        return put(FrameKind::video, true);
    }
    std::optional<zu::Frame> next() const
    {
        return queue->next(zu::Clock::now());
    }
    // The numbers of all that is there.
    std::vector<uint64_t> take_all() const
    {
        std::vector<uint64_t> out;
        while (const auto frame = next()) {
            out.push_back(frame->number);
        }
        return out;
    }
    zu::Stats stats() const
    {
        zu::Stats out;
        queue->count(out);
        return out;
    }
    void TearDown() override
    {
        queue->end();
        const zu::Stats all = stats();
        EXPECT_EQ(all.taken + all.dropped_queue_full + all.dropped_awaiting_key +
                      all.dropped_superseded + all.dropped_at_end,
                  number)
            << "every frame once";
    }

    std::unique_ptr<FrameQueue> queue;
    uint64_t number = 0;
};

using testing::ElementsAre;

TEST_F(Queue, GivesFramesInOrderWithTheirBytes)
{
    make(10, WhenFull::drop_to_key);
    EXPECT_TRUE(put_key().kept);
    EXPECT_TRUE(put(FrameKind::audio).kept);
    const auto first = next();
    ASSERT_TRUE(first);
    EXPECT_EQ(first->number, 1U);
    EXPECT_TRUE(first->key);
    EXPECT_EQ(first->bytes, h264_key);
    EXPECT_EQ(next()->kind, FrameKind::audio);
    EXPECT_FALSE(next());
    EXPECT_EQ(stats().taken, 2U);
}

TEST_F(Queue, DropsUpToTheNextKeyFrame)
{
    make(2, WhenFull::drop_to_key);
    put_key();
    put_delta();
    const auto full = put_delta();
    EXPECT_FALSE(full.kept);
    EXPECT_TRUE(full.run_begins);
    EXPECT_TRUE(full.needs_key);
    EXPECT_THAT(take_all(), ElementsAre(1, 2)) << "what is queued stays";
    const auto useless = put_delta();
    EXPECT_FALSE(useless.kept) << "there is room, but no decoder could use it";
    EXPECT_FALSE(useless.run_begins) << "told once";
    EXPECT_TRUE(useless.needs_key);
    EXPECT_TRUE(put_key().kept);
    EXPECT_TRUE(put_delta().kept);
    EXPECT_THAT(take_all(), ElementsAre(5, 6));
    EXPECT_EQ(stats().dropped_queue_full, 1U);
    EXPECT_EQ(stats().dropped_awaiting_key, 1U);
}

TEST_F(Queue, DropsAKeyFrameThatDoesNotFitEither)
{
    make(1, WhenFull::drop_to_key);
    put_key();
    EXPECT_TRUE(put_delta().run_begins);
    const auto key = put_key();
    EXPECT_FALSE(key.kept);
    EXPECT_FALSE(key.run_begins);
    EXPECT_TRUE(key.needs_key);
    EXPECT_THAT(take_all(), ElementsAre(1));
    EXPECT_TRUE(put_key().kept);
    EXPECT_EQ(stats().dropped_queue_full, 2U);
}

TEST_F(Queue, BeginsAnotherRunAfterOneHasEnded)
{
    make(1, WhenFull::drop_to_key);
    put_key();
    EXPECT_TRUE(put_delta().run_begins);
    take_all();
    put_key();
    EXPECT_TRUE(put_delta().run_begins);
}

TEST_F(Queue, KeepsParameterSetsForTheKeyFrameThatNeedsThem)
{
    make(3, WhenFull::drop_to_key);
    put_key();
    put_delta();
    put_delta();
    put_delta();                    // 4 does not fit
    put(FrameKind::parameter_sets); // 5
    put(FrameKind::system_header);  // 6
    put(FrameKind::parameter_sets); // 7, in place of 5
    EXPECT_THAT(take_all(), ElementsAre(1, 2, 3));
    EXPECT_TRUE(put_key().kept); // 8
    EXPECT_THAT(take_all(), ElementsAre(6, 7, 8));
    EXPECT_EQ(stats().dropped_awaiting_key, 1U);
}

TEST_F(Queue, KeepsParameterSetsThatFindItFull)
{
    make(2, WhenFull::drop_to_key);
    put_key();
    put_delta();
    EXPECT_TRUE(put(FrameKind::parameter_sets).run_begins); // 3
    EXPECT_FALSE(put_key().kept) << "there is no room for both";
    EXPECT_THAT(take_all(), ElementsAre(1, 2));
    EXPECT_TRUE(put_key().kept);
    EXPECT_THAT(take_all(), ElementsAre(3, 5));
}

TEST_F(Queue, OfOneFrameStillGivesKeyFrames)
{
    make(1, WhenFull::drop_to_key);
    put_key();
    put(FrameKind::parameter_sets);
    take_all();
    EXPECT_TRUE(put_key().kept);
    EXPECT_THAT(take_all(), ElementsAre(2, 3)) << "on top of the bound";
}

// A program that takes the newest picture now and then would never see them otherwise.
TEST_F(Queue, KeepsParameterSetsInFrontOfTheNewest)
{
    make(1, WhenFull::newest_only);
    put(FrameKind::system_header);  // 1
    put(FrameKind::parameter_sets); // 2
    put_key();
    put_delta();
    put_delta(); // 5
    EXPECT_THAT(take_all(), ElementsAre(1, 2, 5));
    EXPECT_EQ(stats().dropped_superseded, 2U);
    put_delta();                    // 6
    put(FrameKind::parameter_sets); // 7
    put(FrameKind::parameter_sets); // 8
    put_key();                      // 9
    EXPECT_THAT(take_all(), ElementsAre(8, 9)) << "the last of each kind";
    EXPECT_EQ(stats().dropped_superseded, 4U);
}

TEST_F(Queue, LetsSoundGoOnWhenItHasBeenEmptied)
{
    make(2, WhenFull::drop_to_key);
    put_key();
    put_delta();
    put_delta(); // 3 does not fit
    EXPECT_FALSE(put(FrameKind::audio).kept);
    take_all();
    EXPECT_TRUE(put(FrameKind::audio).kept); // 5
    EXPECT_FALSE(put_delta().kept);
    EXPECT_THAT(take_all(), ElementsAre(5));
    EXPECT_EQ(stats().dropped_awaiting_key, 2U);
}

TEST_F(Queue, LosesNothingButSoundWhenSoundDoesNotFit)
{
    make(1, WhenFull::drop_to_key);
    put_key();
    const auto sound = put(FrameKind::audio);
    EXPECT_TRUE(sound.run_begins);
    EXPECT_FALSE(sound.needs_key);
    take_all();
    EXPECT_TRUE(put_delta().kept);
    EXPECT_EQ(stats().dropped_queue_full, 1U);
}

TEST_F(Queue, GoesOnWithVideoOfAnUnknownCodec)
{
    make(1, WhenFull::drop_to_key);
    put(FrameKind::video, false, zu::Codec::unknown);
    EXPECT_FALSE(put(FrameKind::video, false, zu::Codec::unknown).kept);
    take_all();
    EXPECT_TRUE(put(FrameKind::video, false, zu::Codec::unknown).kept);
}

TEST_F(Queue, WaitsForAKeyFrameAfterAReconnection)
{
    make(10, WhenFull::drop_to_key);
    put_key();
    queue->link_is_lost();
    const auto useless = put_delta();
    EXPECT_FALSE(useless.kept);
    EXPECT_FALSE(useless.run_begins) << "nothing was full";
    EXPECT_TRUE(useless.needs_key);
    EXPECT_TRUE(put(FrameKind::audio).kept) << "sound needs no key frame";
    EXPECT_TRUE(put(FrameKind::parameter_sets).kept);
    EXPECT_TRUE(put_key().kept);
    EXPECT_THAT(take_all(), ElementsAre(1, 3, 4, 5));
    EXPECT_EQ(stats().dropped_awaiting_key, 1U);
}

TEST_F(Queue, GivesUpAllForTheNewest)
{
    make(3, WhenFull::newest_only);
    put_key();
    put_delta();
    EXPECT_FALSE(put_delta().run_begins);
    const auto newest = put_delta();
    EXPECT_TRUE(newest.kept);
    EXPECT_TRUE(newest.run_begins);
    EXPECT_TRUE(newest.needs_key);
    EXPECT_THAT(take_all(), ElementsAre(4));
    EXPECT_EQ(stats().dropped_superseded, 3U);
}

TEST_F(Queue, NeedsNoKeyFrameWhenTheNewestIsOne)
{
    make(1, WhenFull::newest_only);
    put_delta();
    const auto newest = put_key();
    EXPECT_TRUE(newest.kept && newest.run_begins);
    EXPECT_FALSE(newest.needs_key);
}

TEST_F(Queue, TellsARunOfSupersededFramesOnce)
{
    make(1, WhenFull::newest_only);
    put_delta();
    EXPECT_TRUE(put_delta().run_begins);
    EXPECT_FALSE(put_delta().run_begins);
    EXPECT_THAT(take_all(), ElementsAre(3));
    put_delta();
    EXPECT_TRUE(put_delta().run_begins) << "it had caught up in between";
}

TEST_F(Queue, BlocksUntilThereIsRoom)
{
    make(1, WhenFull::block);
    put_key();
    std::atomic<bool> kept{false};
    const Waiter receiver([&] { kept = put_delta().kept; });
    EXPECT_TRUE(receiver.waits());
    EXPECT_TRUE(all_along([&] { return !kept; }, milliseconds(50)));
    EXPECT_TRUE(next());
    EXPECT_TRUE(eventually([&] { return kept.load(); }));
    EXPECT_THAT(take_all(), ElementsAre(2));
}

TEST_F(Queue, LetsAReceiverGoWhenItEnds)
{
    make(1, WhenFull::block);
    put_key();
    {
        const Waiter receiver([&] { EXPECT_FALSE(put_delta().kept); });
        EXPECT_TRUE(receiver.waits());
        queue->end();
    }
    EXPECT_EQ(stats().dropped_at_end, 2U);
}

TEST_F(Queue, GivesNothingWhenItHasEnded)
{
    make(4, WhenFull::drop_to_key);
    put_key();
    queue->end();
    EXPECT_FALSE(queue->next(zu::Clock::now() + std::chrono::hours(1))) << "at once";
    EXPECT_FALSE(put_key().kept);
    EXPECT_EQ(stats().dropped_at_end, 2U);
}

TEST_F(Queue, WakesWhoWaitsWhenItEnds)
{
    make(4, WhenFull::drop_to_key);
    const Waiter taker(
        [&] { EXPECT_FALSE(queue->next(zu::Clock::now() + std::chrono::hours(1))); });
    EXPECT_TRUE(taker.waits());
    queue->end();
}

TEST_F(Queue, GivesEachFrameToOneOfManyTakers)
{
    make(5, WhenFull::block);
    std::atomic<uint64_t> sum{0};
    std::vector<std::thread> takers;
    for (int i = 0; i < 4; i++) {
        takers.emplace_back([&] {
            while (const auto frame = queue->next(zu::Clock::now() + long_enough)) {
                sum += frame->number;
            }
        });
    }
    for (int i = 0; i < 1000; i++) {
        EXPECT_TRUE(put_key().kept);
    }
    EXPECT_TRUE(eventually([&] { return sum == 500500; }));
    queue->end();
    for (auto& taker : takers) {
        taker.join();
    }
}

} // namespace
