// The queue behind a link. Any thread puts in, the link's thread takes out, all under the one
// mutex; bytes_ is the sum of the sizes of what stands in entries_. A message that is alone always
// fits, whatever its size, or a frame larger than the limit could never be sent. Messages are
// shared with other links and never changed.
#include "outbox.h"

#include <algorithm>
#include <utility>

namespace zucam
{

outbox::outbox(std::size_t backlog_limit) : limit_(backlog_limit)
{
}

void outbox::put_answer(shared_message message)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const std::size_t size = message->size();
    entries_.push_back({std::move(message), no_stream}); // throws without memory
    bytes_ += size;
}

bool outbox::put_stream_data(unsigned stream, shared_message message)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const std::size_t size = message->size();
    if (!entries_.empty() && bytes_ + size > limit_) {
        return false;
    }
    entries_.push_back({std::move(message), static_cast<int>(stream)});
    bytes_ += size;
    return true;
}

shared_message outbox::take()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    if (entries_.empty()) {
        return nullptr;
    }
    shared_message message = std::move(entries_.front().message);
    entries_.pop_front();
    bytes_ -= message->size();
    return message;
}

void outbox::discard_stream(unsigned stream)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto belongs = [stream](const entry& e) { return e.stream == static_cast<int>(stream); };
    for (const entry& e : entries_) {
        bytes_ -= belongs(e) ? e.message->size() : 0;
    }
    entries_.erase(std::remove_if(entries_.begin(), entries_.end(), belongs), entries_.end());
}

void outbox::discard_all()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    entries_.clear();
    bytes_ = 0;
}

} // namespace zucam
