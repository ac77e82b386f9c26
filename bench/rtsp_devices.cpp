// RTSP servers: one that sends as fast as it can, one that sends 25 frames a second. See roles.h.
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>

#include "feed.h"
#include "h264_units.h"
#include "roles.h"
#include "rtsp_link.h"
#include "sockets.h"
#include "traffic.h"

namespace bench
{

namespace
{

constexpr std::uint32_t ticks_a_second = 90000;

unsigned short local_port(int fd)
{
    sockaddr_in address = {};
    socklen_t length = sizeof(address);
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

// The packets of each access unit of the camera's second.
std::vector<std::string> packets_of_a_second()
{
    std::vector<std::string> out;
    for (const std::size_t size : camera_frames()) {
        const int number = static_cast<int>(out.size());
        out.push_back(packets_of(access_unit(size, number == 0, number)));
    }
    return out;
}

void blast(int fd, std::size_t cycles)
{
    const std::vector<std::string> units = packets_of_a_second();
    const auto ticks = ticks_a_second / static_cast<std::uint32_t>(units.size());
    std::uint16_t sequence = 0;
    std::uint32_t time = 0;
    for (std::size_t i = 0; i < cycles; i++) {
        std::string second;
        for (const std::string& unit : units) {
            const std::size_t at = second.size();
            second += unit;
            sequence = stamp_packets(&second[at], unit.size(), sequence, time);
            time += ticks;
        }
        if (!send_all(fd, second)) {
            return;
        }
    }
}

} // namespace

void run_rtsp_blaster(const arguments& given)
{
    const std::size_t cycles = std::stoul(given.at(0));
    serve_until_told([cycles](int fd) {
        rtsp_link link(fd, local_port(fd), [fd, cycles](const std::string& response, bool plays) {
            send_all(fd, response);
            if (plays) {
                blast(fd, cycles);
            }
        });
        link.serve();
    });
}

void run_rtsp_feeder(const arguments& given)
{
    std::string frame = packets_of(access_unit(std::stoul(given.at(0)), true, 0));
    const std::uint32_t packets = stamp_packets(frame.data(), frame.size(), 0, 0);
    feed frames({frame, largest_packet, ""}, std::stoul(given.at(1)),
                [packets](std::string& one, long number) {
                    const auto n = static_cast<std::uint32_t>(number);
                    stamp_packets(one.data(), one.size(), static_cast<std::uint16_t>(n * packets),
                                  n * (ticks_a_second / 25));
                });
    std::thread([&frames] { frames.run(); }).detach();
    serve_until_told([&frames](int fd) {
        rtsp_link link(fd, local_port(fd), [&frames, fd](const std::string& response, bool plays) {
            frames.answer(fd, response, plays);
        });
        link.serve();
        frames.leave(fd);
    });
}

} // namespace bench
