// Logins by the library. See logins.h.
#include "logins.h"

#include <future>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace bench
{

namespace
{

// The lines of the library are made, as in any application, and not shown; the last one says why
// when something fails.
std::mutex guard;
std::string last_line;

void keep_line(int, const char* line)
{
    const std::lock_guard<std::mutex> lock(guard);
    last_line = line;
}

void must_succeed(ZU_S32 result, const char* what)
{
    if (result != ZU_SUCCESS) {
        const std::lock_guard<std::mutex> lock(guard);
        throw std::runtime_error(std::string(what) + " fails; the last line is: " + last_line);
    }
}

// Each call on a thread of its own, all at once. What one of them throws is thrown here.
template <class What>
void on_many_threads(int how_many, What what)
{
    std::vector<std::future<void>> calls;
    for (int i = 0; i < how_many; i++) {
        calls.push_back(std::async(std::launch::async, what, i));
    }
    for (std::future<void>& each : calls) {
        each.get();
    }
}

} // namespace

library::library()
{
    ZU_NET_DEV_SetLogCallback(keep_line);
    ZU_NET_DEV_SetLogLevel(ZU_LOG_LEVEL_ERROR);
    must_succeed(ZU_NET_DEV_Init(), "Init");
}

library::~library()
{
    ZU_NET_DEV_DeInit();
}

login::login(unsigned short port)
{
    must_succeed(ZU_NET_DEV_Login(&own_handle, "user", "secret", "127.0.0.1", port), "Login");
}

login::~login()
{
    ZU_NET_DEV_Logout(own_handle);
}

void login::deliver_to(sink& blocks) const
{
    must_succeed(ZU_NET_DEV_SetStreamCallBack(own_handle, sink::on_stream, &blocks),
                 "SetStreamCallBack");
}

void login::start_stream() const
{
    ZU_S_STREAM_INFO_EXT stream = {};
    stream.u8Type = 1;
    must_succeed(ZU_NET_DEV_StartStreamExt(own_handle, &stream), "StartStreamExt");
}

login_crowd::login_crowd(unsigned short port, int how_many, bool streaming)
    : sinks(static_cast<std::size_t>(how_many)), logins(static_cast<std::size_t>(how_many))
{
    on_many_threads(how_many, [&](int i) {
        const auto at = static_cast<std::size_t>(i);
        logins[at] = std::make_unique<login>(port);
        logins[at]->deliver_to(sinks[at]);
        if (streaming) {
            logins[at]->start_stream();
        }
    });
}

login_crowd::~login_crowd()
{
    on_many_threads(static_cast<int>(logins.size()),
                    [this](int i) { logins[static_cast<std::size_t>(i)].reset(); });
}

long login_crowd::taken() const
{
    long sum = 0;
    for (const sink& each : sinks) {
        sum += each.taken();
    }
    return sum;
}

} // namespace bench
