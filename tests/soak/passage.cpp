// One direction of a relayed connection. See passage.h. It knows the wire by itself: twelve bytes
// of header, three words, of which the second counts the bytes behind it.
#include "passage.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>

namespace soak
{

namespace
{

constexpr std::size_t header_size = 12;
constexpr std::uint32_t longest_body = 1U << 20U;
constexpr std::uint32_t stream_data = 0x1100;

std::uint32_t word_at(const std::uint8_t* bytes)
{
    return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8U |
           static_cast<std::uint32_t>(bytes[2]) << 16U |
           static_cast<std::uint32_t>(bytes[3]) << 24U;
}

bool has_flag(const message& what, const char* flag)
{
    return what.type == stream_data && what.size >= header_size + 8 &&
           std::memcmp(what.whole + header_size, flag, 4) == 0;
}

} // namespace

std::uint32_t message::word(std::size_t place) const
{
    const std::size_t at = header_size + 4 * place;
    return at + 4 <= size ? word_at(whole + at) : 0;
}

bool message::is_frame() const
{
    return has_flag(*this, "KTVF");
}

bool message::is_stream_header() const
{
    return has_flag(*this, "FSYS");
}

flow passage::read_from(int socket)
{
    in_.erase(in_.begin(), in_.begin() + static_cast<std::ptrdiff_t>(cut_));
    cut_ = 0;
    std::array<std::uint8_t, 65536> buffer;
    const ssize_t count = recv(socket, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (count > 0) {
        in_.insert(in_.end(), buffer.data(), buffer.data() + count);
        return nonsense_ ? flow::makes_no_sense : flow::goes_on;
    }
    const bool later = count < 0 && (errno == EAGAIN || errno == EINTR);
    return later ? flow::goes_on : flow::has_ended;
}

std::optional<message> passage::next()
{
    const std::uint8_t* from = in_.data() + cut_;
    const std::size_t have = in_.size() - cut_;
    if (have < header_size) {
        return std::nullopt;
    }
    const std::uint32_t length = word_at(from + 4);
    nonsense_ = length > longest_body;
    if (nonsense_ || have < header_size + length) {
        return std::nullopt;
    }
    cut_ += header_size + length;
    return message{word_at(from), from, header_size + length};
}

void passage::put(const std::uint8_t* bytes, std::size_t count)
{
    out_.insert(out_.end(), bytes, bytes + count);
}

bool passage::write_to(int socket)
{
    while (sent_ < out_.size()) {
        const ssize_t count =
            send(socket, out_.data() + sent_, out_.size() - sent_, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count < 0 && errno != EINTR) {
            return errno == EAGAIN;
        }
        sent_ += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    out_.clear();
    sent_ = 0;
    return true;
}

std::size_t passage::waiting() const
{
    return out_.size() - sent_;
}

} // namespace soak
