// G.711 as the standard describes it: a sign, three bits of segment, four bits within the segment;
// mu-law with all bits inverted, A-law with every other one. A tone keeps its phase from call to
// call, so that pieces join without a click. No tables: a few hundred samples a frame cost nothing.
// One thread.
#include "tone.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace zucam
{

namespace
{

constexpr double two_pi = 6.283185307179586;
constexpr double loudness_per_volume = 160.0; // of 32767

// The segment is the position of the highest set bit, counted from `first`.
unsigned segment_of(unsigned magnitude, unsigned first)
{
    unsigned segment = 0;
    while (segment < 7 && (magnitude >> (first + segment + 1U)) != 0) {
        ++segment;
    }
    return segment;
}

} // namespace

std::uint8_t ulaw_byte(std::int16_t sample)
{
    constexpr unsigned bias = 132;
    constexpr unsigned clip = 32635;
    const unsigned sign = sample < 0 ? 0x80U : 0U;
    const auto magnitude = static_cast<unsigned>(std::abs(static_cast<int>(sample)));
    const unsigned biased = std::min(magnitude, clip) + bias;
    const unsigned segment = segment_of(biased, 7);
    const unsigned within = (biased >> (segment + 3U)) & 15U;
    return static_cast<std::uint8_t>(~(sign | segment << 4U | within));
}

std::uint8_t alaw_byte(std::int16_t sample)
{
    const unsigned sign = sample < 0 ? 0U : 0x80U;
    const int folded = sample < 0 ? -static_cast<int>(sample) - 1 : sample;
    const auto magnitude = static_cast<unsigned>(folded);
    const unsigned segment = segment_of(magnitude, 7);
    const unsigned shift = segment == 0 ? 4U : segment + 3U;
    unsigned code = 0;
    if (magnitude >= 256) {
        code = segment << 4U;
    }
    code |= (magnitude >> shift) & 15U;
    return static_cast<std::uint8_t>((sign | code) ^ 0x55U);
}

tone::tone(audio_kind kind, unsigned hertz, unsigned rate, unsigned volume)
    : kind_(kind), step_(two_pi * hertz / rate), loudness_(loudness_per_volume * volume)
{
}

void tone::append(wire::bytes& out, unsigned samples)
{
    for (unsigned i = 0; i < samples; ++i) {
        const auto sample = static_cast<std::int16_t>(std::lround(loudness_ * std::sin(phase_)));
        out.push_back(kind_ == audio_kind::alaw ? alaw_byte(sample) : ulaw_byte(sample));
        phase_ = std::fmod(phase_ + step_, two_pi);
    }
}

} // namespace zucam
