// What an access unit is, by the types of its NAL units. See frame.hpp.
//
// The bytes are a device's and may be anything, so nothing is read beyond the end and the work
// grows with the size alone. Works on its arguments; any thread.
//
// The two codecs are told apart by headers that can be of one of them only: the types of H.264 that
// matter are odd but for SEI and PPS, and an odd first byte would mean a layer of 32 or more in
// H.265, which nobody sends.
#include "zu/frame.hpp"

namespace zu
{

namespace
{

struct NalUnit {
    const std::uint8_t* data; // its header
    std::size_t size;         // up to the end of the access unit, at least 1
};

// Goes through the NAL units of an access unit: whatever stands behind a start code 00 00 01. The
// end of a unit is looked for only when the next one is asked for.
class NalUnits
{
public:
    NalUnits(const std::uint8_t* data, std::size_t size) : at(data), end(data + size)
    {
    }

    std::optional<NalUnit> next()
    {
        std::size_t zeros = 0;
        while (at != end) {
            const std::uint8_t byte = *at++;
            if (byte == 1 && zeros >= 2 && at != end) {
                return NalUnit{at, static_cast<std::size_t>(end - at)};
            }
            zeros = byte == 0 ? zeros + 1 : 0;
        }
        return {};
    }

private:
    const std::uint8_t* at;
    const std::uint8_t* end;
};

// ---- H.264 ----

unsigned type_in_h264(const NalUnit& unit)
{
    return unit.data[0] & 0x1fU;
}

bool fits_h264(const NalUnit& unit)
{
    const bool is_reference = (unit.data[0] & 0x60U) != 0;
    if ((unit.data[0] & 0x80U) != 0) {
        return false;
    }
    switch (type_in_h264(unit)) {
    case 1: // slice
        return true;
    case 5: // IDR slice
    case 7: // SPS
    case 8: // PPS
        return is_reference;
    case 6: // SEI
    case 9: // access unit delimiter
        return !is_reference;
    default:
        return false;
    }
}

// ---- H.265 ----

unsigned type_in_h265(const NalUnit& unit)
{
    return (unit.data[0] >> 1U) & 0x3fU;
}

bool is_irap(unsigned type)
{
    return type >= 16 && type <= 21;
}

bool fits_h265(const NalUnit& unit)
{
    if (unit.size < 2) {
        return false;
    }
    const unsigned type = type_in_h265(unit);
    const bool base_layer = (unit.data[0] & 0x81U) == 0 && (unit.data[1] & 0xf8U) == 0;
    const unsigned sublayer_plus_1 = unit.data[1] & 0x07U;
    if (!base_layer || sublayer_plus_1 == 0) {
        return false;
    }
    if (is_irap(type) || type == 32 || type == 33) { // VPS, SPS
        return sublayer_plus_1 == 1;
    }
    return type <= 9 || (type >= 34 && type <= 40);
}

// ---- both ----

// By the first unit that can be of one codec only.
Codec codec_of(NalUnits units, Codec before)
{
    bool fits_both = false;
    while (const auto unit = units.next()) {
        const bool h264 = fits_h264(*unit);
        const bool h265 = fits_h265(*unit);
        if (h264 != h265) {
            return h264 ? Codec::h264 : Codec::h265;
        }
        fits_both = fits_both || h264;
    }
    return fits_both ? before : Codec::unknown;
}

// By the first slice; all slices of a picture are alike in this.
bool is_key(NalUnits units, Codec codec)
{
    while (const auto unit = units.next()) {
        const unsigned type = codec == Codec::h264 ? type_in_h264(*unit) : type_in_h265(*unit);
        const bool slice = codec == Codec::h264 ? type >= 1 && type <= 5 : type <= 21;
        if (slice) {
            return codec == Codec::h264 ? type == 5 : is_irap(type);
        }
    }
    return false;
}

} // namespace

AccessUnit look_at_access_unit(const std::uint8_t* data, std::size_t size, Codec before)
{
    const NalUnits units(data, size);
    const Codec codec = codec_of(units, before);
    return {codec, codec != Codec::unknown && is_key(units, codec)};
}

} // namespace zu
