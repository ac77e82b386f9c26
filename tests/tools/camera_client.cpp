// The raw client. Waiting is done by poll with a deadline; a recv never
// blocks after that. A message is read whole before it is handed out; bytes
// of the next one stay in input_. A negative length counts as none here, so
// that a test can look at the header alone.
#include "camera_client.h"

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace tools
{

namespace
{

int patience_ms()
{
    return static_cast<int>(std::chrono::milliseconds(patience).count());
}

bool readable(int socket, short events, int limit_ms)
{
    pollfd wanted = {socket, events, 0};
    return poll(&wanted, 1, limit_ms) > 0 && (wanted.revents & (events | POLLHUP | POLLERR)) != 0;
}

} // namespace

std::uint32_t received::word(std::size_t offset) const
{
    std::uint32_t value = 0;
    for (std::size_t i = 4; i-- > 0;) {
        value = value << 8U | (offset + i < whole.size() ? whole[offset + i] : 0U);
    }
    return value;
}

std::uint32_t received::type() const
{
    return word(0);
}

std::string received::flag() const
{
    return whole.size() < 16 ? "" : std::string(whole.begin() + 12, whole.begin() + 16);
}

bytes received::payload() const
{
    return whole.size() < 12 ? bytes{} : bytes(whole.begin() + 12, whole.end());
}

std::vector<unsigned> nal_types(const bytes& body)
{
    std::vector<unsigned> types;
    for (std::size_t i = 0; i + 3 < body.size(); ++i) {
        if (body[i] == 0 && body[i + 1] == 0 && body[i + 2] == 1) {
            types.push_back(body[i + 3] & 31U);
        }
    }
    return types;
}

bool is_key_frame(const received& message)
{
    const std::vector<unsigned> types = nal_types(message.payload());
    return message.flag() == "KTVF" && !types.empty() && types.back() == 5;
}

bytes joined(std::initializer_list<bytes> parts)
{
    bytes all;
    for (const bytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

bytes from_hex(const std::string& text)
{
    bytes out;
    unsigned value = 0;
    unsigned digits = 0;
    for (const char c : text) {
        if (c == ' ') {
            continue;
        }
        value = value << 4U | static_cast<unsigned>(c <= '9' ? c - '0' : c - 'a' + 10);
        if (++digits % 2 == 0) {
            out.push_back(static_cast<std::uint8_t>(value));
            value = 0;
        }
    }
    return out;
}

camera_client::camera_client(std::uint16_t port)
    : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    connected_ = connect(socket_, reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0;
}

camera_client::~camera_client()
{
    (void)close(socket_);
}

bool camera_client::connected() const
{
    return connected_;
}

void camera_client::send(const bytes& data) const
{
    (void)::send(socket_, data.data(), data.size(), MSG_NOSIGNAL);
}

void camera_client::send_start(std::uint8_t stream) const
{
    bytes request = from_hex("01100000 08000000 39300000 00000000 01000000");
    request[12] = stream;
    send(request);
}

bool camera_client::fill(std::size_t size)
{
    while (input_.size() < size) {
        const bytes piece = next_piece();
        if (piece.empty()) {
            return false;
        }
        input_.insert(input_.end(), piece.begin(), piece.end());
    }
    return true;
}

received camera_client::next()
{
    if (!fill(12)) {
        return {};
    }
    const std::uint32_t length = received{input_}.word(4);
    const std::size_t size = 12 + (length < 0x80000000U ? length : 0U);
    if (!fill(size)) {
        return {};
    }
    const auto end = input_.begin() + static_cast<std::ptrdiff_t>(size);
    received message{{input_.begin(), end}};
    input_.erase(input_.begin(), end);
    return message;
}

received camera_client::next_of_type(std::uint32_t type)
{
    received message = next();
    while (message && message.type() != type) {
        message = next();
    }
    return message;
}

received camera_client::next_with_flag(const std::string& flag)
{
    received message = next();
    while (message && message.flag() != flag) {
        message = next();
    }
    return message;
}

bytes camera_client::next_piece()
{
    bytes piece(65536);
    if (!readable(socket_, POLLIN, patience_ms())) {
        return {};
    }
    const ssize_t count = recv(socket_, piece.data(), piece.size(), MSG_DONTWAIT);
    reset_ = count < 0 && errno == ECONNRESET;
    piece.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return piece;
}

bool camera_client::ends()
{
    const auto latest = std::chrono::steady_clock::now() + patience;
    while (!next_piece().empty()) {
    }
    return std::chrono::steady_clock::now() < latest;
}

bool camera_client::ended_by_reset() const
{
    return reset_;
}

bool camera_client::is_quiet(std::chrono::milliseconds how_long) const
{
    return input_.empty() && !readable(socket_, POLLIN, static_cast<int>(how_long.count()));
}

bool camera_client::urgent_byte_comes() const
{
    char byte = 0;
    return readable(socket_, POLLPRI, patience_ms()) && recv(socket_, &byte, 1, MSG_OOB) == 1;
}

bool somebody_listens(std::uint16_t port)
{
    return camera_client(port).connected();
}

} // namespace tools
