// The link's thread: write, wait, read, handle, over and over, until one of these says that it is
// over. Everything below run() is called by that thread only; the outbox, the two flags and the
// waker are what other threads may touch. Each turn looks at the faults in force anew, so that new
// ones act on the next message.
#include "link.h"

#include "socket_end.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace zucam
{

namespace
{

constexpr std::int32_t request_limit = 1 << 20;

int until_ms(std::chrono::steady_clock::time_point when)
{
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(when - std::chrono::steady_clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 60000));
}

} // namespace

link::link(int socket, std::uint64_t number, const link_limits& limits, link_owner& owner,
           link_totals& totals)
    : number_(number), limits_(limits), owner_(owner), totals_(totals), outbox_(limits.backlog),
      socket_(socket), writer_(socket, outbox_), faults_(owner.current_faults())
{
}

link::~link()
{
    ask_end();
    if (thread_.joinable()) {
        thread_.join();
    } else {
        (void)close(socket_);
    }
}

void link::begin()
{
    thread_ = std::thread([this] { run(); });
}

std::uint64_t link::number() const
{
    return number_;
}

bool link::has_ended() const
{
    return ended_;
}

void link::send_answer(wire::bytes message)
{
    outbox_.put_answer(std::make_shared<const wire::bytes>(std::move(message)));
    wake();
}

bool link::send_stream_data(unsigned stream, shared_message message)
{
    if (!outbox_.put_stream_data(stream, std::move(message))) {
        return false;
    }
    wake();
    return true;
}

void link::discard_stream(unsigned stream)
{
    outbox_.discard_stream(stream);
}

void link::count_dropped()
{
    ++totals_.dropped;
}

void link::ask_end()
{
    end_asked_ = true;
    wake();
}

void link::wake() const
{
    waker_.wake();
}

void link::run()
{
    serve();
    close_socket();
    ended_ = true;
    owner_.ended(*this);
}

// What a request needs may not be there, a thread for a stream for instance. That costs this peer
// its link, and nobody else anything.
void link::serve()
{
    try {
        while (!end_asked_ && step()) {
        }
    } catch (const std::exception& error) {
        (void)std::fprintf(stderr, "zucam: a connection was given up: %s\n", error.what());
    }
}

bool link::step()
{
    faults_ = owner_.current_faults();
    return write_messages() && wait_for_work() && read_requests() && handle_due_requests();
}

bool link::wait_for_work()
{
    const bool blocked = last_outcome_ == message_writer::outcome::blocked;
    std::array<pollfd, 2> wanted = {
        {{socket_, static_cast<short>(blocked ? POLLIN | POLLOUT : POLLIN), 0},
         {waker_.descriptor(), POLLIN, 0}}};
    if (poll(wanted.data(), wanted.size(), wait_limit_ms()) < 0 && errno != EINTR) {
        return false;
    }
    readable_ = wanted[0].revents != 0;
    if (wanted[1].revents != 0) {
        waker_.clear();
    }
    return !end_asked_;
}

int link::wait_limit_ms() const
{
    int limit = 60000;
    if (!waiting_.empty()) {
        limit = std::min(limit, until_ms(waiting_.front().due));
    }
    if (faults_->value.drop_after_time) {
        // Once it was looked at and no drop came of it (they are used up), it is no reason to wake.
        const auto due = began_ + *faults_->value.drop_after_time;
        limit = looked_at_ < due ? std::min(limit, until_ms(due)) : limit;
    }
    switch (last_outcome_) {
    case message_writer::outcome::more:
        return 0;
    case message_writer::outcome::paused:
        return std::min(limit, until_ms(writer_.resume_at()));
    case message_writer::outcome::blocked:
        return std::min(limit, until_ms(progress_at_ + limits_.stall));
    default:
        return limit;
    }
}

bool link::read_requests()
{
    if (!readable_) {
        return true;
    }
    std::array<std::uint8_t, 16384> buffer{};
    const ssize_t count = recv(socket_, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (count > 0) {
        input_.insert(input_.end(), buffer.data(), buffer.data() + count);
        return take_requests();
    }
    return count < 0 && (errno == EAGAIN || errno == EINTR);
}

bool link::take_requests()
{
    std::size_t at = 0;
    while (input_.size() - at >= wire::header_size) {
        const wire::header head = wire::read_header(input_.data() + at);
        if (head.length < 0 || head.length > request_limit) {
            owner_.malformed(*this, head);
            return false;
        }
        const std::size_t end = at + wire::header_size + static_cast<std::size_t>(head.length);
        if (input_.size() < end) {
            break;
        }
        const std::uint8_t* payload = input_.data() + at + wire::header_size;
        wire::request what = {head.type, head.wait_port, {}};
        what.payload.assign(payload, payload + head.length);
        owner_.received(*this, what);
        waiting_.push_back({clock::now() + faults_->value.answer_delay, std::move(what)});
        at = end;
    }
    input_.erase(input_.begin(), input_.begin() + static_cast<std::ptrdiff_t>(at));
    return true;
}

bool link::handle_due_requests()
{
    while (!waiting_.empty() && waiting_.front().due <= clock::now()) {
        const wire::request what = std::move(waiting_.front().what);
        waiting_.pop_front();
        owner_.handle(*this, what);
    }
    return true;
}

bool link::drop_is_due()
{
    looked_at_ = clock::now();
    const faults& wanted = faults_->value;
    const bool by_count =
        wanted.drop_after_messages && writer_.messages_sent() >= *wanted.drop_after_messages;
    const bool by_time = wanted.drop_after_time && looked_at_ >= began_ + *wanted.drop_after_time;
    return (by_count || by_time) && faults_->take_drop();
}

bool link::write_messages()
{
    if (faults_->value.silent) {
        outbox_.discard_all();
        last_outcome_ = message_writer::outcome::idle;
        return !drop_is_due();
    }
    const std::uint64_t before = writer_.messages_sent();
    if (drop_is_due()) {
        return false;
    }
    last_outcome_ = writer_.write_some(*faults_);
    totals_.sent += writer_.messages_sent() - before;
    return last_outcome_ != message_writer::outcome::failed && still_moving() && !drop_is_due();
}

bool link::still_moving()
{
    const bool blocked = last_outcome_ == message_writer::outcome::blocked;
    if (!blocked || writer_.bytes_sent() != progress_bytes_) {
        progress_bytes_ = writer_.bytes_sent();
        progress_at_ = clock::now();
    }
    return clock::now() < progress_at_ + limits_.stall;
}

void link::close_socket()
{
    if (owner_.current_faults()->value.drop_with_reset) {
        close_with_reset(socket_);
    } else {
        close_in_order(socket_);
    }
}

} // namespace zucam
