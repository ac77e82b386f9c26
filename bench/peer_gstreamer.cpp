// The peer GStreamer: rtspsrc with RTP interleaved on the connection, and the depayloader that
// makes access units of the packets.
#include <gst/gst.h>

#include <stdexcept>
#include <string>

#include "peer_meter.h"

namespace bench
{

namespace
{

void start_camera(unsigned short port, GCallback on_unit, gpointer user)
{
    const std::string pipeline =
        "rtspsrc protocols=tcp latency=0 location=rtsp://127.0.0.1:" + std::to_string(port) +
        "/camera ! rtph264depay ! "
        "video/x-h264,stream-format=byte-stream,alignment=au ! "
        "fakesink name=sink sync=false signal-handoffs=true";
    GError* error = nullptr;
    GstElement* all = gst_parse_launch(pipeline.c_str(), &error);
    if (all == nullptr || error != nullptr) {
        throw std::runtime_error("GStreamer can't make the pipeline");
    }
    GstElement* sink = gst_bin_get_by_name(GST_BIN(all), "sink");
    g_signal_connect(sink, "handoff", on_unit, user);
    gst_object_unref(sink);
    gst_element_set_state(all, GST_STATE_PLAYING);
}

void measure_unit(GstElement*, GstBuffer* unit, GstPad*, gpointer meter)
{
    auto* own = static_cast<peer_meter*>(meter);
    if (!own->done()) {
        own->unit(gst_buffer_get_size(unit));
    }
}

void count_unit(GstElement*, GstBuffer*, GstPad*, gpointer units)
{
    ++*static_cast<std::atomic<long>*>(units);
}

} // namespace

double take_by_gstreamer(unsigned short port, long units)
{
    gst_init(nullptr, nullptr);
    peer_meter meter(units);
    start_camera(port, G_CALLBACK(measure_unit), &meter);
    return meter.seconds_a_gigabyte();
}

void watch_by_gstreamer(unsigned short port, int cameras, std::atomic<long>& units)
{
    gst_init(nullptr, nullptr);
    for (int i = 0; i < cameras; i++) {
        start_camera(port, G_CALLBACK(count_unit), &units);
    }
}

} // namespace bench
