// The peer libavformat: RTSP interleaved on the connection, one thread a camera.
extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/log.h>
}

#include <stdexcept>
#include <string>
#include <thread>

#include "peer_meter.h"

namespace bench
{

namespace
{

template <class OnUnit>
void read_camera(unsigned short port, OnUnit on_unit)
{
    av_log_set_level(AV_LOG_QUIET);
    const std::string url = "rtsp://127.0.0.1:" + std::to_string(port) + "/camera";
    AVDictionary* options = nullptr;
    av_dict_set(&options, "rtsp_transport", "tcp", 0);
    AVFormatContext* input = nullptr;
    const int error = avformat_open_input(&input, url.c_str(), nullptr, &options);
    av_dict_free(&options);
    if (error < 0) {
        throw std::runtime_error("libavformat can't open " + url);
    }
    AVPacket* packet = av_packet_alloc();
    while (av_read_frame(input, packet) >= 0 && on_unit(packet->size)) {
        av_packet_unref(packet);
    }
    av_packet_free(&packet);
    avformat_close_input(&input);
}

} // namespace

double take_by_libavformat(unsigned short port, long units)
{
    peer_meter meter(units);
    read_camera(port, [&](int size) {
        meter.unit(static_cast<std::size_t>(size));
        return !meter.done();
    });
    if (!meter.done()) {
        throw std::runtime_error("libavformat has missed access units");
    }
    return meter.seconds_a_gigabyte();
}

void watch_by_libavformat(unsigned short port, int cameras, std::atomic<long>& units)
{
    for (int i = 0; i < cameras; i++) {
        std::thread([port, &units] {
            read_camera(port, [&](int) {
                units++;
                return true;
            });
        }).detach();
    }
}

} // namespace bench
