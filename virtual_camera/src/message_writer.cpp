// Sending with faults. Between two messages (the boundary) it is decided what comes next: an urgent
// byte, a message that nobody should send, the next one from the outbox; within a message, how much
// of it goes into one send. A message once begun is always finished, so the peer stays in step.
// Runs on the link's thread; only the outbox is shared.
#include "message_writer.h"

#include <cerrno>
#include <sys/socket.h>
#include <utility>

namespace zucam
{

namespace
{

constexpr int sends_at_once = 512;            // then requests get their turn
constexpr std::int32_t body_limit = 16 << 20; // an odd length up to this comes with its body

shared_message share(wire::bytes message)
{
    return std::make_shared<const wire::bytes>(std::move(message));
}

// A negative or huge length stands in a header that nothing follows.
shared_message odd_message(std::uint32_t type, std::int32_t length)
{
    wire::bytes message = wire::write_header({type, length, 0});
    if (length >= 4 && length <= body_limit) {
        wire::put_flag(message, "KTVF");
        message.resize(wire::header_size + static_cast<std::size_t>(length), 0x55);
    } else if (length > 0 && length < 4) {
        message.resize(wire::header_size + static_cast<std::size_t>(length), 0x55);
    }
    return share(std::move(message));
}

shared_message unknown_message()
{
    return share(wire::message(wire::unknown, 0, {1, 2, 3, 4, 5, 6, 7, 8}));
}

} // namespace

message_writer::message_writer(int socket, outbox& box) : socket_(socket), box_(box)
{
}

std::uint64_t message_writer::messages_sent() const
{
    return sent_;
}

std::uint64_t message_writer::bytes_sent() const
{
    return bytes_;
}

message_writer::clock::time_point message_writer::resume_at() const
{
    return resume_at_;
}

bool message_writer::at_boundary() const
{
    return current_ == nullptr;
}

message_writer::outcome message_writer::write_some(const active_faults& active)
{
    if (at_boundary() && !begin_message(active)) {
        return outcome::idle;
    }
    for (int sends = 0; sends < sends_at_once && !at_boundary(); ++sends) {
        if (clock::now() < resume_at_) {
            return outcome::paused;
        }
        const outcome result = send_piece(active.value);
        if (result != outcome::more) {
            return result;
        }
    }
    return outcome::more;
}

bool message_writer::begin_message(const active_faults& active)
{
    renew(active);
    inject(active.value);
    current_ = next_message(active.value);
    offset_ = 0;
    return current_ != nullptr;
}

void message_writer::renew(const active_faults& active)
{
    if (generation_ == active.generation) {
        return;
    }
    generation_ = active.generation;
    odd_length_due_ = active.value.odd_length.has_value();
    oob_due_ = active.value.oob_after.has_value();
    since_unknown_ = 0;
}

void message_writer::inject(const faults& wanted)
{
    if (oob_due_ && sent_ >= *wanted.oob_after) {
        oob_due_ = send(socket_, "!", 1, MSG_OOB | MSG_NOSIGNAL | MSG_DONTWAIT) != 1;
    }
    if (odd_length_due_ && sent_ >= wanted.odd_length_after) {
        odd_length_due_ = false;
        injected_.push_back(odd_message(wanted.odd_length_type, *wanted.odd_length));
    }
}

shared_message message_writer::next_message(const faults& wanted)
{
    if (injected_.empty()) {
        shared_message next = box_.take();
        const bool unknown_due = next != nullptr && wanted.unknown_every != 0 &&
                                 ++since_unknown_ >= wanted.unknown_every;
        if (!unknown_due) {
            return next;
        }
        since_unknown_ = 0;
        injected_.push_back(unknown_message());
        injected_.push_back(std::move(next));
    }
    shared_message next = std::move(injected_.front());
    injected_.pop_front();
    return next;
}

std::size_t message_writer::piece_size(const faults& wanted) const
{
    if (wanted.split_bytes) {
        return 1;
    }
    if (wanted.header_apart && offset_ < wire::header_size) {
        return wire::header_size - offset_;
    }
    return current_->size() - offset_;
}

message_writer::outcome message_writer::send_piece(const faults& wanted)
{
    const ssize_t count =
        send(socket_, current_->data() + offset_, piece_size(wanted), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count > 0) {
        advance(static_cast<std::size_t>(count), wanted);
        return outcome::more;
    }
    if (errno == EINTR) {
        return outcome::more;
    }
    return errno == EAGAIN ? outcome::blocked : outcome::failed;
}

void message_writer::advance(std::size_t count, const faults& wanted)
{
    offset_ += count;
    bytes_ += count;
    if (offset_ == current_->size()) {
        current_.reset();
        ++sent_;
    } else if (wanted.header_apart && offset_ == wire::header_size) {
        resume_at_ = clock::now() + wanted.header_gap;
    }
}

} // namespace zucam
