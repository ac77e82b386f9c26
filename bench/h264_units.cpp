// Access units and packets. See h264_units.h.
#include "h264_units.h"

#include <algorithm>

namespace bench
{

namespace
{

constexpr std::size_t start_code_size = 4;
constexpr std::size_t frame_header = 4; // '$', channel, length
constexpr std::size_t rtp_header = 12;
constexpr std::size_t fragment_header = 2;
constexpr char payload_type = 96;

// Bits from the most significant on, and the codes of H.264 for numbers.
class bits
{
public:
    bits& put(unsigned value, int count)
    {
        for (int i = count - 1; i >= 0; i--) {
            last = static_cast<unsigned char>(last << 1 | (value >> i & 1));
            if (++used == 8) {
                out += static_cast<char>(last);
                used = 0;
            }
        }
        return *this;
    }
    bits& code(unsigned value) // ue(v)
    {
        int length = 1;
        while ((value + 1) >> length != 0) {
            length++;
        }
        return put(0, length - 1).put(value + 1, length);
    }
    std::string end() // with the stop bit
    {
        put(1, 1);
        while (used != 0) {
            put(0, 1);
        }
        return out;
    }

private:
    std::string out;
    unsigned char last = 0;
    int used = 0;
};

// Baseline, 1280 by 720, frame numbers of four bits, no picture order count.
nal_unit sequence_parameters()
{
    bits b;
    b.put(66, 8).put(0xc0, 8).put(31, 8).code(0).code(0).code(2).code(1).put(0, 1);
    b.code(79).code(44).put(0b1100, 4);
    return '\x67' + b.end();
}

nal_unit picture_parameters()
{
    bits b;
    b.code(0).code(0).put(0, 2).code(0).code(0).code(0).put(0, 3).code(0).code(0).code(0).put(0, 3);
    return '\x68' + b.end();
}

nal_unit slice(std::size_t size, bool key, int number)
{
    bits b;
    b.code(0).code(key ? 7 : 5).code(0).put(static_cast<unsigned>(number) & 15, 4);
    if (key) {
        b.code(0).put(0, 2);
    } else {
        b.put(0, 3);
    }
    nal_unit out = (key ? '\x65' : '\x41') + b.code(0).end();
    while (out.size() < size) {
        out += static_cast<char>(1 + out.size() * 7 % 250); // no zero, so no start code
    }
    return out;
}

void put_word(char* at, std::uint32_t value, int size)
{
    for (int i = 0; i < size; i++) {
        at[i] = static_cast<char>(value >> 8 * (size - 1 - i));
    }
}

std::string packet(const std::string& payload, bool last)
{
    std::string out(frame_header + rtp_header, '\0');
    out[0] = '$';
    put_word(&out[2], static_cast<std::uint32_t>(rtp_header + payload.size()), 2);
    out[4] = '\x80';
    out[5] = static_cast<char>((last ? 0x80 : 0) | payload_type);
    put_word(&out[12], 0x62656e63, 4); // the source
    return out + payload;
}

std::string fragments(const nal_unit& unit, bool last)
{
    constexpr std::size_t room = largest_packet - frame_header - rtp_header - fragment_header;
    std::string out;
    for (std::size_t at = 1; at < unit.size(); at += room) {
        const bool ends = at + room >= unit.size();
        const char indicator = static_cast<char>((unit[0] & 0xe0) | 28);
        const char header =
            static_cast<char>((at == 1 ? 0x80 : 0) | (ends ? 0x40 : 0) | (unit[0] & 0x1f));
        out += packet(std::string{indicator, header} + unit.substr(at, room), last && ends);
    }
    return out;
}

} // namespace

std::vector<nal_unit> access_unit(std::size_t size, bool key, int number)
{
    std::vector<nal_unit> units;
    if (key) {
        units = {sequence_parameters(), picture_parameters()};
    }
    const std::size_t before = byte_stream(units).size() + start_code_size;
    units.push_back(slice(size - before, key, number));
    return units;
}

std::string byte_stream(const std::vector<nal_unit>& units)
{
    std::string out;
    for (const nal_unit& unit : units) {
        out += std::string("\0\0\0\1", start_code_size) + unit;
    }
    return out;
}

std::string packets_of(const std::vector<nal_unit>& units)
{
    std::string out;
    for (std::size_t i = 0; i < units.size(); i++) {
        const bool last = i + 1 == units.size();
        const bool small = units[i].size() <= largest_packet - frame_header - rtp_header;
        out += small ? packet(units[i], last) : fragments(units[i], last);
    }
    return out;
}

std::uint16_t stamp_packets(char* packets, std::size_t size, std::uint16_t sequence,
                            std::uint32_t time)
{
    for (std::size_t at = 0; at < size;) {
        const std::size_t length = static_cast<unsigned char>(packets[at + 2]) * 256U +
                                   static_cast<unsigned char>(packets[at + 3]);
        put_word(packets + at + 6, sequence++, 2);
        put_word(packets + at + 8, time, 4);
        at += frame_header + length;
    }
    return sequence;
}

} // namespace bench
