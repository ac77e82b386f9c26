// A device that sends its messages as the body of an HTTP response. See roles.h.
#include <sys/socket.h>

#include "roles.h"
#include "sockets.h"
#include "traffic.h"

namespace bench
{

namespace
{

// Reads a request, which has no body.
bool take_request(int fd)
{
    std::string request;
    char some[4096];
    while (request.find("\r\n\r\n") == std::string::npos) {
        const ssize_t got = recv(fd, some, sizeof(some), 0);
        if (got <= 0) {
            return false;
        }
        request.append(some, static_cast<std::size_t>(got));
    }
    return true;
}

} // namespace

void run_http(const arguments& given)
{
    const traffic what(given.at(0));
    const std::size_t cycles = std::stoul(given.at(1));
    serve_until_told([&](int fd) {
        if (!take_request(fd) || !send_all(fd, "HTTP/1.1 200 OK\r\n"
                                               "Content-Type: application/octet-stream\r\n"
                                               "Connection: close\r\n\r\n")) {
            return;
        }
        for (std::size_t i = 0; i < cycles && send_all(fd, what.cycle()); i++) {
        }
    });
}

} // namespace bench
