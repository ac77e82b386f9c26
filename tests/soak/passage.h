// One direction of a relayed connection: bytes come in, are cut into messages, and go out again.
// Of the relay's thread alone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace soak
{

struct message {
    std::uint32_t type;
    const std::uint8_t* whole; // valid until the passage is used again
    std::size_t size;          // of the whole

    // The 32-bit word at this place of the body; 0 behind its end.
    std::uint32_t word(std::size_t place) const;
    // Stream data whose flag says that a frame follows, or the header that a stream begins with.
    bool is_frame() const;
    bool is_stream_header() const;
};

enum class flow { goes_on, has_ended, makes_no_sense };

class passage
{
public:
    // Takes what there is to read.
    flow read_from(int socket);
    // The next whole message that has been read, once.
    std::optional<message> next();

    // Queues bytes, and sends what the socket takes; false when the connection is broken.
    void put(const std::uint8_t* bytes, std::size_t count);
    bool write_to(int socket);
    std::size_t waiting() const;

private:
    std::vector<std::uint8_t> in_;
    std::size_t cut_ = 0; // of in_: what has been given out as messages
    std::vector<std::uint8_t> out_;
    std::size_t sent_ = 0; // of out_
    bool nonsense_ = false;
};

} // namespace soak
