// Frames at their time. See feed.h.
#include "feed.h"

#include <algorithm>
#include <ctime>
#include <sys/prctl.h>

#include "sockets.h"

namespace bench
{

namespace
{

constexpr long second_ns = 1000000000;
constexpr long period_ns = 40000000;
constexpr long piece_ns = 120000; // what 1,448 bytes take on a wire of 100 Mbit/s

std::vector<due> make_round(std::size_t links, const course& of)
{
    const std::size_t frame_size = of.frame.size();
    const std::size_t piece = of.piece == 0 ? frame_size : of.piece;
    std::vector<due> out;
    for (std::size_t i = 0; i < links; i++) {
        long at = period_ns / static_cast<long>(links) * static_cast<long>(i);
        for (std::size_t from = 0; from < frame_size; from += piece, at += piece_ns) {
            out.push_back({at, i, from, std::min(piece, frame_size - from)});
        }
        if (!of.sound.empty()) {
            out.push_back({(at + period_ns / 4) % period_ns, i, frame_size, 0});
            out.push_back({(at + period_ns * 3 / 4) % period_ns, i, frame_size, 0});
        }
    }
    std::sort(out.begin(), out.end(),
              [](const due& a, const due& b) { return a.after_ns < b.after_ns; });
    return out;
}

void sleep_until(long ns)
{
    const timespec when = {ns / second_ns, ns % second_ns};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &when, nullptr) != 0) {
    }
}

long now_ns()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * second_ns + now.tv_nsec;
}

} // namespace

feed::feed(course of_each, std::size_t links, stamp its_stamp)
    : own(std::move(of_each)), stamp_frame(std::move(its_stamp)), round(make_round(links, own)),
      taken(links), frames(links, own.frame)
{
}

void feed::answer(int fd, const std::string& bytes, bool starts)
{
    std::unique_lock<std::mutex> lock(guard);
    if (slot* place = find(fd)) {
        place->answers += bytes;
        return;
    }
    send_all(fd, bytes);
    if (starts) {
        freed.wait(lock, [this] { return find(no_link) != nullptr; });
        find(no_link)->fd = fd;
    }
}

void feed::leave(int fd)
{
    const std::lock_guard<std::mutex> lock(guard);
    if (slot* place = find(fd)) {
        *place = slot();
        freed.notify_one();
    }
}

void feed::run()
{
    prctl(PR_SET_TIMERSLACK, 1);
    long begun = now_ns();
    for (;;) {
        for (const due& next : round) {
            sleep_until(begun + next.after_ns);
            send(next);
        }
        begun = std::max(begun + period_ns, now_ns() - period_ns); // what is late stays late
    }
}

feed::slot* feed::find(int fd)
{
    const auto place =
        std::find_if(taken.begin(), taken.end(), [fd](const slot& s) { return s.fd == fd; });
    return place == taken.end() ? nullptr : &*place;
}

void feed::send(const due& next)
{
    const std::lock_guard<std::mutex> lock(guard);
    slot& to = taken[next.link];
    if (to.fd == no_link) {
        return;
    }
    if (next.from == 0) {
        to.begun = true;
        send_all(to.fd, to.answers);
        to.answers.clear();
        if (stamp_frame) {
            stamp_frame(frames[next.link], to.frames++);
        }
    }
    if (!to.begun) {
        return;
    }
    if (next.size == 0) {
        send_all(to.fd, own.sound);
    } else {
        send_all(to.fd, frames[next.link].data() + next.from, next.size);
    }
}

} // namespace bench
