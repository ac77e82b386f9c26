// Connections with the least that a client needs. See bare_links.h.
#include "bare_links.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

namespace bench
{

namespace
{

constexpr useconds_t polling_period_us = 30000;
constexpr timeval look_interval = {0, 500000};
constexpr int looks_a_heartbeat = 6;
constexpr int other_threads = 2; // of a login, besides the one that reads

void start_stream(const descriptor& link)
{
    demand(send_all(link.get(), message(start_stream_request, 0, words({0, 1}))), "send");
}

void read_all(int fd, sink& blocks)
{
    cutter reader(fd, large_read, sink::on_message, &blocks);
    while (reader.read_once()) {
    }
}

void read_all_that_is_whole(int fd, sink& blocks)
{
    cutter reader(fd, large_read, sink::on_message, &blocks);
    int told = 1;
    do {
        const int lacking = static_cast<int>(reader.lacking());
        if (lacking != told) {
            setsockopt(fd, SOL_SOCKET, SO_RCVLOWAT, &lacking, sizeof(lacking));
            told = lacking;
        }
    } while (reader.read_once());
}

void poll_state(int fd, const std::atomic<bool>& stop)
{
    while (!stop) {
        tcp_info info = {};
        socklen_t length = sizeof(info);
        getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &length);
        usleep(polling_period_us);
    }
}

void send_heartbeats(int fd, const std::atomic<bool>& stop)
{
    int looks = 0;
    while (!stop) {
        timeval interval = look_interval;
        select(0, nullptr, nullptr, nullptr, &interval);
        if (++looks % looks_a_heartbeat == 0) {
            send_all(fd, message(heartbeat_request, 0, ""));
        }
    }
}

void take_answers(int fd)
{
    char answer[sizeof(head)];
    while (recv(fd, answer, sizeof(answer), 0) > 0) {
    }
}

void wait_for_end(int fd)
{
    pollfd waiting = {fd, POLLRDHUP, 0};
    poll(&waiting, 1, -1);
}

} // namespace

blocked_readers::blocked_readers(unsigned short port, int how_many, bool waits_for_all)
    : sinks(static_cast<std::size_t>(how_many))
{
    for (sink& own : sinks) {
        links.push_back(connect_to_loopback(port));
        start_stream(links.back());
        threads.emplace_back(waits_for_all ? read_all_that_is_whole : read_all, links.back().get(),
                             std::ref(own));
    }
}

blocked_readers::~blocked_readers()
{
    for (const descriptor& link : links) {
        shutdown(link.get(), SHUT_RDWR);
    }
    for (std::thread& each : threads) {
        each.join();
    }
}

long blocked_readers::taken() const
{
    long sum = 0;
    for (const sink& each : sinks) {
        sum += each.taken();
    }
    return sum;
}

idle_connections::idle_connections(unsigned short port, int how_many)
{
    for (int i = 0; i < how_many; i++) {
        links.push_back(connect_to_loopback(port));
        const int link = links.back().get();
        threads.emplace_back(poll_state, link, std::cref(stop));
        threads.emplace_back(send_heartbeats, link, std::cref(stop));
        threads.emplace_back(take_answers, link);
    }
}

idle_connections::~idle_connections()
{
    stop = true;
    for (const descriptor& link : links) {
        shutdown(link.get(), SHUT_RDWR);
    }
    for (std::thread& each : threads) {
        each.join();
    }
}

bare_login::bare_login(unsigned short port, bool streaming) : link(connect_to_loopback(port))
{
    if (streaming) {
        start_stream(link);
    }
    threads.emplace_back(read_all, link.get(), std::ref(blocks));
    for (int i = 0; i < other_threads; i++) {
        threads.emplace_back(wait_for_end, link.get());
    }
}

bare_login::~bare_login()
{
    shutdown(link.get(), SHUT_RDWR);
    for (std::thread& each : threads) {
        each.join();
    }
}

} // namespace bench
