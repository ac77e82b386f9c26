// The device's end of one TCP connection. See peer.h.
#include "peer.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace support
{

using clock = std::chrono::steady_clock;

peer::peer(int socket) : fd(socket)
{
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
}

peer::~peer()
{
    close();
}

peer::peer(peer&& other) noexcept : fd(other.fd.exchange(-1))
{
}

peer& peer::operator=(peer&& other) noexcept
{
    close();
    fd = other.fd.exchange(-1);
    return *this;
}

bool peer::send(const bytes& data)
{
    size_t sent = 0;
    while (sent < data.size()) {
        const ssize_t ret = ::send(fd, data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
        if (ret <= 0) {
            return false;
        }
        sent += static_cast<size_t>(ret);
    }
    return true;
}

bool peer::send_split(const bytes& data, size_t size)
{
    for (size_t at = 0; at < data.size(); at += size) {
        const size_t end = std::min(at + size, data.size());
        if (!send(bytes(data.begin() + static_cast<long>(at),
                        data.begin() + static_cast<long>(end)))) {
            return false;
        }
    }
    return true;
}

bool peer::send_urgent(unsigned char byte)
{
    return ::send(fd, &byte, 1, MSG_OOB | MSG_NOSIGNAL) == 1;
}

bytes peer::read_bytes(size_t count, std::chrono::milliseconds deadline)
{
    const auto end = clock::now() + deadline;
    bytes out(count);
    size_t got = 0;
    while (got < count && fd != -1) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - clock::now());
        pollfd waiting = {fd, POLLIN, 0};
        if (left.count() <= 0 || poll(&waiting, 1, static_cast<int>(left.count())) <= 0) {
            break;
        }
        const ssize_t ret = recv(fd, out.data() + got, count - got, 0);
        if (ret <= 0) {
            break;
        }
        got += static_cast<size_t>(ret);
    }
    out.resize(got);
    return out;
}

std::optional<message> peer::read_message(std::chrono::milliseconds deadline)
{
    const bytes header = read_bytes(12, deadline);
    if (header.size() < 12) {
        return std::nullopt;
    }
    message m;
    m.type = word_at(header, 0);
    m.len = static_cast<int32_t>(word_at(header, 4));
    m.wait_port = word_at(header, 8);
    m.body = read_bytes(m.len > 0 ? static_cast<size_t>(m.len) : 0, deadline);
    if (m.len > 0 && m.body.size() < static_cast<size_t>(m.len)) {
        return std::nullopt;
    }
    return m;
}

std::optional<message> peer::read_request(std::chrono::milliseconds deadline)
{
    const auto end = clock::now() + deadline;
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - clock::now());
        auto m = read_message(left);
        if (!m || m->type != 0x1021) {
            return m;
        }
        send(make_message(0x1022, 0, {}));
    }
}

bool peer::wait_until_closed(std::chrono::milliseconds deadline)
{
    const auto end = clock::now() + deadline;
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - clock::now());
        pollfd waiting = {fd, POLLIN, 0};
        if (left.count() <= 0 || poll(&waiting, 1, static_cast<int>(left.count())) <= 0) {
            return false;
        }
        char waste[4096];
        if (recv(fd, waste, sizeof(waste), 0) <= 0) {
            return true;
        }
    }
}

void peer::close()
{
    const int socket = fd.exchange(-1);
    if (socket != -1) {
        ::close(socket);
    }
}

void peer::reset()
{
    const linger at_once = {1, 0};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
    close();
}

void peer::hang_up()
{
    shutdown(fd, SHUT_RDWR);
}

} // namespace support
