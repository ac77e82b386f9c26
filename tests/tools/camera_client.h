// A raw client of a device: TCP, bytes and the message header, with no code of
// the library's or the camera's, so that a mistake of theirs is not mirrored.
// Every wait has a generous deadline, after which an empty message comes back
// and the test fails on it. One thread per client.
#pragma once

#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace tools
{

using bytes = std::vector<std::uint8_t>;

constexpr std::chrono::seconds patience{60};

// One message as it came, header included.
struct received {
    bytes whole; // empty: the connection ended, or patience did

    explicit operator bool() const
    {
        return !whole.empty();
    }

    std::uint32_t word(std::size_t offset) const; // little-endian, offset from the header's start
    std::uint32_t type() const;
    std::string flag() const; // the first four bytes of the payload
    bytes payload() const;
};

// NAL unit types of a "KTVF" body in order.
std::vector<unsigned> nal_types(const bytes& body);
bool is_key_frame(const received& message);

bytes joined(std::initializer_list<bytes> parts);
bytes from_hex(const std::string& text);

class camera_client
{
public:
    explicit camera_client(std::uint16_t port); // see connected()
    ~camera_client();
    camera_client(const camera_client&) = delete;
    camera_client& operator=(const camera_client&) = delete;

    bool connected() const;
    void send(const bytes& data) const;
    void send_start(std::uint8_t stream) const;

    // The next message; an empty one when the connection ends or patience does.
    received next();
    // The next message of this type or with this flag, throwing away what comes before.
    received next_of_type(std::uint32_t type);
    received next_with_flag(const std::string& flag);

    // What one recv brings; empty at the end of the connection.
    bytes next_piece();
    bool ends(); // throws away what comes before the end
    bool ended_by_reset() const;
    bool is_quiet(std::chrono::milliseconds how_long) const; // nothing to read for that long
    bool urgent_byte_comes() const;

private:
    bool fill(std::size_t size);

    int socket_;
    bool connected_ = false;
    bool reset_ = false;
    bytes input_;
};

// A connection attempt: true when somebody accepted.
bool somebody_listens(std::uint16_t port);

} // namespace tools
