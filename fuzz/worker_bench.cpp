// One record with a link to a device on a simulated machine. See worker_bench.h.
#include "worker_bench.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "event_handler.h"
#include "tcp_link.h"

using namespace sim;

extern "C" int sim_pipe(int* ends);
extern "C" int sim_close(int fd);

namespace fuzz
{

namespace
{

constexpr unsigned short port = 9000;
constexpr micros afterwards = 60 * seconds; // that a worker may take beyond what is laid out

// A body lies on a word boundary behind a header in the receiver's buffer, and ends in it.
ZU_S32 on_stream(ZU_U32, ZU_U32 type, ZU_U8* data, ZU_U32 length, ZU_VOID* self)
{
    auto* user = static_cast<worker_bench*>(self)->user;
    demand(type <= ZU_NET_DEV_KEY_DATA, "a data type that there is not");
    const long at = reinterpret_cast<char*>(data) - user->msgrecver_buf;
    demand(at >= 12 && at % 4 == 0, "a body from elsewhere");
    demand(at < msgrecver_buf_size, "a body behind its buffer");
    demand(at + length <= msgrecver_buf_size, "a body longer than its buffer");
    return 0;
}

ZU_S32 on_event(ZU_U32, ZU_U32 event, ZU_VOID*)
{
    demand(event == ZU_NET_DEV_HEARTBEAT, "an event of nobody's");
    return 0;
}

void on_log(int, const char*)
{
}

} // namespace

void demand(bool holds, const char* what)
{
    if (!holds) {
        give_up(what);
    }
}

worker_bench::worker_bench()
{
    abort_when_giving_up();
    here.fruitless_time = 20 * milliseconds; // a busy loop is soon through
    here.listen(port, this);
    ZU_NET_DEV_SetLogLevel(ZU_LOG_LEVEL_TRACE);
    ZU_NET_DEV_SetLogCallback(on_log);
    ZU_NET_DEV_Init();
    const int slot = alloc_sdkuser();
    user = sdk_users[slot];
    user->handle = sdk_user_handle_base + static_cast<ZU_U32>(slot);
    sim_pipe(user->shutdown_pipe_recver);
    sim_pipe(user->shutdown_pipe_sender);
    user->ext_sock = tcp_ext_connect("192.0.2.1", port, 1000);
    sdk_user_set_link(user, link_open(user->links, user->ext_sock));
    demand(build_int_sock(&user->int_sock, &user->int_port) == 0, "no loopback socket");
    user->link->int_sock = user->int_sock.load();
    user->worker_link = user->link;
    user->used = ZU_SDK_USER_USED;
    user->stream_userdata = this;
    user->stream_callback = on_stream;
    user->event_callback = on_event;
    user->msgrecver_run = 1;
    user->msgsender_run = 1;
    laid_out = here.now();
}

worker_bench::~worker_bench()
{
    event_handler_finish(user);
    for (int i = 0; i < 2; i++) {
        sim_close(user->shutdown_pipe_recver[i]);
        sim_close(user->shutdown_pipe_sender[i]);
    }
    sdk_user_set_link(user, nullptr);
    free_sdkuser(user->handle);
    ZU_NET_DEV_DeInit();
    const std::string left = here.left_over();
    demand(left.empty(), left.c_str());
}

void worker_bench::connected(const connection_ref& fresh)
{
    link = fresh;
}

void worker_bench::received(const connection_ref& on)
{
    on->request_bytes.clear();
}

void worker_bench::then(micros after, std::function<void()> what)
{
    laid_out += after;
    here.at(laid_out, [this, what = std::move(what)] {
        if (!over) {
            what();
        }
    });
}

void worker_bench::wake_by_pipe(const int (&pipe)[2])
{
    here.descriptors.find(pipe[1], "write")->pipe->bytes += 'q';
}

void worker_bench::run(void* (*worker)(void*))
{
    then(8 * seconds, [this] { link->close(); });
    then(8 * seconds, [this] {
        link_shut_ext(user->link);
        link_shut_int(user->link);
    });
    here.threads.set_limit(laid_out + afterwards);
    sdk_user_hold(user);
    link_hold(user->link);
    worker(user);
    over = true;
}

} // namespace fuzz
