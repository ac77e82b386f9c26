// The hops of a request. See bare_path.h.
#include "bare_path.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace bench
{

namespace
{

constexpr std::size_t longest_message = 5120;

sockaddr_in loopback(in_port_t port_in_network_order)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = port_in_network_order;
    return address;
}

bool send_datagram(int fd, const void* data, std::size_t size, in_port_t port_in_network_order)
{
    const sockaddr_in to = loopback(port_in_network_order);
    return sendto(fd, data, size, 0, reinterpret_cast<const sockaddr*>(&to), sizeof(to)) ==
           static_cast<ssize_t>(size);
}

} // namespace

bare_path::bare_path(unsigned short device_port)
    : link(connect_to_loopback(device_port)), forwarding(datagrams_on_loopback(&forwarder_port)),
      relaying(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)), forwarder([this] { forward(); }),
      receiver([this] {
          cutter responses(link.get(), longest_message, relay, this);
          while (responses.read_once()) {
          }
      })
{
}

bare_path::~bare_path()
{
    shutdown(link.get(), SHUT_RDWR);
    send_datagram(relaying.get(), "", 0, htons(forwarder_port)); // ends the forwarder
    forwarder.join();
    receiver.join();
}

void bare_path::request() const
{
    const descriptor own(socket(AF_INET, SOCK_DGRAM, 0));
    const std::string asked = message(key_frame_request, 0, words({0}));
    char answer[longest_message];
    demand(send_datagram(own.get(), asked.data(), asked.size(), htons(forwarder_port)), "sendto");
    demand(recv(own.get(), answer, sizeof(answer), 0) > 0, "recv");
}

void bare_path::forward() const
{
    char room[longest_message];
    for (;;) {
        sockaddr_in from = {};
        socklen_t length = sizeof(from);
        const ssize_t got = recvfrom(forwarding.get(), room, sizeof(room), 0,
                                     reinterpret_cast<sockaddr*>(&from), &length);
        if (got < static_cast<ssize_t>(sizeof(head))) {
            return;
        }
        const std::int32_t port = from.sin_port;
        std::memcpy(room + offsetof(head, wait_port), &port, sizeof(port));
        if (!send_all(link.get(), room, static_cast<std::size_t>(got))) {
            return;
        }
    }
}

// The header lies right in front of the body, so the message goes on as it came.
void bare_path::relay(void* self, const head& first, unsigned char* body)
{
    demand(send_datagram(static_cast<bare_path*>(self)->relaying.get(), body - sizeof(first),
                         sizeof(first) + static_cast<std::size_t>(first.len),
                         static_cast<in_port_t>(first.wait_port)),
           "sendto");
}

} // namespace bench
