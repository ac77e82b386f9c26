// zu_bench_calls PORT MESSAGES: takes one blast of that many messages from the device on that port,
// and prints how many system calls the library's receiver has made for each.
//
// The library here is the copy of it whose calls go through the tests' seam (tests/support/seam.h),
// which costs time; so nothing is timed.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <pthread.h>
#include <sstream>
#include <string>

#include "logins.h"
#include "seam.h"

namespace
{

std::atomic<bool> receiver_known{false};
std::atomic<pthread_t> receiver;
std::atomic<long> calls{0};

struct counted_sink {
    bench::sink blocks;

    static ZU_S32 on_stream(ZU_U32 handle, ZU_U32 type, ZU_U8* block, ZU_U32 length, ZU_VOID* self)
    {
        receiver = pthread_self();
        receiver_known = true;
        return bench::sink::on_stream(handle, type, block, length,
                                      &static_cast<counted_sink*>(self)->blocks);
    }
};

void count()
{
    if (receiver_known && pthread_equal(receiver, pthread_self()) != 0) {
        calls++;
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: zu_bench_calls PORT MESSAGES\n");
        return 2;
    }
    const long messages = std::atol(argv[2]);
    std::deque<support::before_call> counted;
    std::istringstream names(SEAM_NAMES);
    for (std::string function; names >> function;) {
        counted.emplace_back(function.c_str(), count);
    }
    const bench::library in_use;
    counted_sink own;
    const bench::login here(static_cast<unsigned short>(std::atoi(argv[1])));
    if (ZU_NET_DEV_SetStreamCallBack(here.handle(), counted_sink::on_stream, &own) != ZU_SUCCESS) {
        return 1;
    }
    own.blocks.expect(messages);
    here.start_stream();
    own.blocks.wait();
    std::printf("%.3g\n", static_cast<double>(calls) / static_cast<double>(messages));
    return 0;
}
