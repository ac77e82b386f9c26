// Messages as bytes, written by hand: the tests' own idea of the wire, apart from the library's.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace support
{

using bytes = std::vector<unsigned char>;

// Bytes from their hexadecimal text; blanks are for the eye: hex("21 10 00 00  00 00 00 00").
bytes hex(const std::string& text);

// Bytes of a text, without its end.
bytes text(const std::string& characters);

bytes operator+(bytes left, const bytes& right);

// A 32-bit word in little-endian order.
bytes le32(uint32_t value);
uint32_t word_at(const bytes& data, size_t offset);

// `count` bytes that differ from their neighbours and by seed.
bytes pattern(size_t count, unsigned seed = 0);

// One message as the device has read it.
struct message {
    uint32_t type = 0;
    int32_t len = 0;
    uint32_t wait_port = 0;
    bytes body;

    bytes raw() const; // header and body as they stood on the wire
};

// A message for the wire; the second form gives a length of its own to a body.
bytes make_message(uint32_t type, uint32_t wait_port, const bytes& body);
bytes make_message(uint32_t type, int32_t len, uint32_t wait_port, const bytes& body);

// The answer to a request: its type plus one, its port echoed, a response code and what follows it.
bytes answer(const message& request, int32_t retcode, const bytes& more = {});

// A stream data message.
bytes stream_data(const std::string& flag, const bytes& payload);

} // namespace support
