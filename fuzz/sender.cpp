// Fuzz target: what requesters, or anybody on this machine, send to the sender's loopback port, and
// what the link does meanwhile.
#include "msg_sender.h"
#include "worker_bench.h"

using namespace sim;

namespace
{

void send_datagram(fuzz::worker_bench& bench, micros after, const std::string& bytes,
                   unsigned short from)
{
    bench.then(after, [&bench, bytes, from] {
        if (const descriptor_ref desk = bench.here.descriptors.bound_to(
                static_cast<unsigned short>(bench.user->int_port))) {
            desk->datagrams.push_back({bytes, from});
        }
    });
}

void lay_out(fuzz::worker_bench& bench, fuzz::input& in)
{
    const unsigned step = in.byte();
    const micros after = (step >> 4) * 40 * milliseconds;
    switch (step & 15) {
    case 0:
    case 1:
    case 2:
    case 3:
    case 4:
        send_datagram(bench, after, in.text(in.byte()), static_cast<unsigned short>(in.word()));
        break;
    case 5: // around and beyond the sender's buffer
        send_datagram(bench, after, std::string(in.byte() * 40, 'x') + in.text(3), 40000);
        break;
    case 6:
        bench.then(in.byte() % 8 * seconds, [] {});
        break;
    case 7:
        bench.then(after, [&bench] { bench.link->stalled = true; });
        break;
    case 8:
        bench.then(after, [&bench] { bench.link->stalled = false; });
        break;
    case 9:
        bench.then(after, [&bench] { bench.link->close(); });
        break;
    case 10:
        bench.then(after, [&bench] { bench.link->reset(); });
        break;
    case 11:
        bench.then(after, [&bench] { bench.link->send_urgent(); });
        break;
    case 12:
        bench.then(after, [&bench] { bench.wake_by_pipe(bench.user->shutdown_pipe_sender); });
        break;
    case 13:
        bench.then(after, [&bench] { link_shut_int(bench.user->link); });
        break;
    case 14:
        bench.then(after, [&bench] { link_shut_ext(bench.user->link); });
        break;
    default:
        bench.then(after, [&bench] { bench.user->msgsender_run = 0; });
        break;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz::input in(data, size);
    fuzz::worker_bench bench;
    while (!in.empty()) {
        lay_out(bench, in);
    }
    bench.run(sdk_msgsender_main);
    return 0;
}
