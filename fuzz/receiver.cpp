// Fuzz target: what a device sends, in pieces and with pauses as the input says.
//
// A plan of steps, each a byte and what it asks for: a piece of raw bytes, a message with a header
// that fits or one with a length of its own, a pause, the end of the connection.
#include <cerrno>
#include <cstring>

#include "msg_receiver.h"
#include "worker_bench.h"
#include "zu_net_dev_msg.h"

using namespace sim;

namespace
{

constexpr int32_t types[] = {0x1002, 0x1012, 0x1022, 0x1032, 0x1042, 0x1052,
                             0x1062, 0x1072, 0x1100, 0x1100, 0x1101, 0};
const char* const flags[] = {"FSYS", "EXVC", "KTVF", "KTAF", "VUYV", "ABCD", ""};

std::string header(int32_t type, int32_t len, uint32_t wait_port)
{
    const zu_sdk_msg_head head = {type, len, static_cast<int32_t>(wait_port)};
    char bytes[sizeof(head)];
    memcpy(bytes, &head, sizeof(head));
    return {bytes, sizeof(bytes)};
}

void lay_out(fuzz::worker_bench& bench, fuzz::input& in)
{
    const unsigned step = in.byte();
    const micros after = (step >> 4) * 3 * milliseconds;
    const auto send = [&bench, after](const std::string& bytes) {
        bench.then(after, [&bench, bytes] { bench.link->send(bytes); });
    };
    switch (step & 15) {
    case 0:
    case 1:
    case 2:
        send(in.text(in.byte()));
        break;
    case 3:
    case 4: { // a message that fits
        const int32_t type = types[in.byte() % std::size(types)];
        const std::string body = flags[in.byte() % std::size(flags)] + in.text(in.byte());
        send(header(type, static_cast<int32_t>(body.size()), in.word()) + body);
        break;
    }
    case 5: { // any length
        const int32_t type = types[in.byte() % std::size(types)];
        send(header(type, static_cast<int32_t>(in.word()), 0x4e9c) + in.text(in.byte()));
        break;
    }
    case 6: { // a long body, made when it is due: most plans are longer than the worker's life
        const size_t size = (in.byte() + 1) * 5000;
        bench.then(after, [&bench, size] { bench.link->send(std::string(size, 'x')); });
        break;
    }
    case 7:
        bench.then(in.byte() % 8 * seconds, [] {});
        break;
    case 8:
        bench.then(after, [&bench] { bench.link->close(); });
        break;
    case 9:
        bench.then(after, [&bench] { bench.link->reset(); });
        break;
    case 10:
        bench.then(after, [&bench] { bench.link->send_urgent(); });
        break;
    case 11:
        bench.then(after, [&bench] { bench.wake_by_pipe(bench.user->shutdown_pipe_recver); });
        break;
    case 12:
        bench.then(after, [&bench] { link_shut_ext(bench.user->link); });
        break;
    case 13:
        bench.then(after, [&bench] { bench.user->msgrecver_run = 0; });
        break;
    case 14:
        bench.then(after, [&bench] { bench.user->used = -1; });
        break;
    default:
        bench.then(after, [&bench] { bench.user->used = ZU_SDK_USER_USED; });
        break;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz::input in(data, size);
    fuzz::worker_bench bench;
    const unsigned how = in.byte();
    if ((how & 2) != 0) {
        bench.user->event_callback = nullptr;
    }
    if ((how & 4) != 0) {
        bench.user->stream_callback = nullptr;
    }
    while (!in.empty()) {
        lay_out(bench, in);
    }
    errno = (how & 1) == 0 ? 0 : EAGAIN; // left over from before
    bench.run(sdk_msgrecver_main);
    return 0;
}
