// The group `stream`: what a gigabyte of messages costs the client, by size of message.
//
// The reference reads with large reads and cuts messages where they lie. Each round takes one blast
// by either way, and each comes from a device in a process of its own.
#include "blast.h"
#include "child.h"
#include "groups.h"
#include "logins.h"
#include "traffic.h"

namespace bench
{

namespace
{

constexpr double gigabyte = 1e9;
constexpr int blasts = 9; // of either side, after one that warms up

struct kind {
    const char* traffic_name;
    const char* name;
    double amount; // bytes of a round
    double goal;   // of the ratio
};

constexpr kind kinds[] = {
    {"320", "320 B", 32e6, 2},
    {"4096", "4 KiB", 128e6, 1.4},
    {"16384", "16 KiB", 256e6, 1.4},
    {"65536", "64 KiB", 256e6, 1.4},
    {"262144", "256 KiB", 256e6, 1.3},
    {"1048576", "1 MiB", 256e6, 1.4},
    {"mix", "4 Mbit/s camera", 192e6, 1.3},
};

// The reference: a connection of its own.
class large_reads
{
public:
    large_reads(unsigned short port, std::size_t longest, sink& its_blocks)
        : link(connect_to_loopback(port)), blocks(its_blocks),
          reader(link.get(), longest, sink::on_message, &its_blocks)
    {
    }

    void take_blast()
    {
        demand(send_all(link.get(), message(start_stream_request, 0, words({0, 1}))), "send");
        while (!blocks.satisfied() && reader.read_once()) {
        }
        demand(blocks.satisfied(), "the device has hung up");
    }
    long reads() const
    {
        return reader.reads();
    }

private:
    const descriptor link;
    sink& blocks;
    cutter reader;
};

// System calls of the library's receiver for each message, counted in a process of its own while it
// takes a blast.
std::string calls_per_message(unsigned short port, long messages)
{
    child counting("zu_bench_calls", {std::to_string(port), std::to_string(messages)});
    return counting.read_line();
}

void measure(report& out, const kind& of, bool reads_every_byte)
{
    const traffic what(of.traffic_name);
    const std::size_t cycles = what.cycles_for(of.amount);
    const auto messages = static_cast<long>(cycles * what.messages());
    const double gigabytes = static_cast<double>(cycles * what.cycle().size()) / gigabyte;
    const device_process device({"blaster", of.traffic_name, std::to_string(cycles)});

    sink by_library(reads_every_byte);
    sink by_reference(reads_every_byte);
    const login own(device.port());
    own.deliver_to(by_library);
    large_reads reference(device.port(), what.longest(), by_reference);

    row figure = {of.name + std::string(reads_every_byte ? ", every byte read" : ""), "s/GB",
                  ratio_at_most(of.goal)};
    for (int round = 0; round <= blasts; round++) {
        const double theirs = cpu_of_blast(by_reference, messages, [&] { reference.take_blast(); });
        const double ours = cpu_of_blast(by_library, messages, [&] { own.start_stream(); });
        if (round > 0) {
            figure.add(ours / gigabytes, theirs / gigabytes);
        }
    }
    if (!reads_every_byte) {
        char note[80];
        snprintf(note, sizeof(note), "%s calls a message (%.3g)",
                 calls_per_message(device.port(), messages).c_str(),
                 static_cast<double>(reference.reads()) / static_cast<double>(messages) /
                     (blasts + 1));
        figure.note = note;
    }
    out.add(figure);
}

} // namespace

void measure_stream(report& out)
{
    out.begin_group("stream", "CPU of the client for a gigabyte of messages, against large reads "
                              "that are cut where they lie");
    for (const bool reads_every_byte : {false, true}) {
        for (const kind& each : kinds) {
            measure(out, each, reads_every_byte);
        }
    }
}

} // namespace bench
