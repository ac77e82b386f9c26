// One record with a connection. See worker_stand.h.
#include "worker_stand.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "device_manager.h"
#include "msg_receiver.h"
#include "msg_sender.h"
#include "tcp_link.h"

namespace support
{

worker_stand::worker_stand(int level) : log(0)
{
    ZU_NET_DEV_Init();
    const int slot = alloc_sdkuser();
    if (slot == -1) {
        throw std::runtime_error("no slot for the record");
    }
    user = sdk_users[slot];
    user->handle = sdk_user_handle_base + static_cast<ZU_U32>(slot);
    user->used = ZU_SDK_USER_USED;
    user->state = login_live;
    if (pipe(user->shutdown_pipe_recver) != 0 || pipe(user->shutdown_pipe_sender) != 0) {
        throw std::runtime_error("no pipes for the record");
    }
    const int ext_sock = tcp_ext_connect("127.0.0.1", device.port(), 1000);
    link = device.accept();
    device_link* fresh = link_open(user->links, ext_sock);
    sdk_user_set_link(user, fresh);
    user->ext_sock = ext_sock;
    if (build_int_sock(&user->int_sock, &user->int_port) != 0) {
        throw std::runtime_error("no loopback socket for the record");
    }
    fresh->int_sock = user->int_sock.load();
    user->worker_link = fresh;
    set_log_level(level);
}

worker_stand::~worker_stand()
{
    set_log_level(0);
    end_workers();
    sdk_user_set_link(user, nullptr);
    for (int i = 0; i < 2; i++) {
        close(user->shutdown_pipe_recver[i]);
        close(user->shutdown_pipe_sender[i]);
    }
    free_sdkuser(user->handle);
    ZU_NET_DEV_DeInit();
    link.close();
    device.close();
    EXPECT_EQ(before.left_over(), "");
}

void worker_stand::start(pthread_t* thread, bool* unjoined, void* (*main)(void*))
{
    sdk_user_hold(user);
    link_hold(user->worker_link);
    if (pthread_create(thread, nullptr, main, user) != 0) {
        throw std::runtime_error("no thread for a worker");
    }
    *unjoined = true;
}

void worker_stand::start_receiver()
{
    user->msgrecver_run = 1;
    start(&user->msgrecver, &user->msgrecver_unjoined, sdk_msgrecver_main);
    eventually([this] { return receiver_runs(); });
}

void worker_stand::start_sender()
{
    user->msgsender_run = 1;
    start(&user->msgsender, &user->msgsender_unjoined, sdk_msgsender_main);
    eventually([this] { return sender_runs(); });
}

bool worker_stand::receiver_ended(std::chrono::milliseconds deadline) const
{
    return eventually([this] { return !receiver_runs(); }, deadline);
}

bool worker_stand::sender_ended(std::chrono::milliseconds deadline) const
{
    return eventually([this] { return !sender_runs(); }, deadline);
}

bool worker_stand::receiver_runs() const
{
    return user->msgrecver_started == 1;
}

bool worker_stand::sender_runs() const
{
    return user->msgsender_started == 1;
}

void worker_stand::end_workers()
{
    link_shut_ext(user->link);
    link_shut_int(user->link);
    user->msgrecver_run = 0;
    user->msgsender_run = 0;
    join_workers(user);
}

ZU_U32 worker_stand::handle() const
{
    return user->handle;
}

unsigned short worker_stand::int_port() const
{
    return static_cast<unsigned short>(user->int_port.load());
}

void still_stand::let_pass(int seconds)
{
    const before_call waits("ppoll");
    EXPECT_TRUE(eventually([&] { return waits.count() >= 1; }));
    clock.advance(seconds);
}

static sockaddr_in loopback(unsigned short port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

loopback_socket::loopback_socket() : loopback_socket(0)
{
}

loopback_socket::loopback_socket(unsigned short port)
    : fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)), own_port(0)
{
    sockaddr_in address = loopback(port);
    socklen_t length = sizeof(address);
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), length) == 0) {
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
        own_port = ntohs(address.sin_port);
    }
}

loopback_socket::~loopback_socket()
{
    close(fd);
}

uint32_t loopback_socket::wait_port() const
{
    return htons(own_port);
}

bool loopback_socket::send_to(unsigned short to_port, const bytes& datagram)
{
    const sockaddr_in to = loopback(to_port);
    return sendto(fd, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&to),
                  sizeof(to)) == static_cast<ssize_t>(datagram.size());
}

std::optional<bytes> loopback_socket::receive(std::chrono::milliseconds deadline)
{
    pollfd waiting = {fd, POLLIN, 0};
    if (poll(&waiting, 1, static_cast<int>(deadline.count())) <= 0) {
        return std::nullopt;
    }
    bytes datagram(70000);
    sockaddr_in from = {};
    socklen_t length = sizeof(from);
    const ssize_t ret = recvfrom(fd, datagram.data(), datagram.size(), 0,
                                 reinterpret_cast<sockaddr*>(&from), &length);
    if (ret < 0) {
        return std::nullopt;
    }
    last_sender = ntohs(from.sin_port);
    datagram.resize(static_cast<size_t>(ret));
    return datagram;
}

} // namespace support
