// Numbered frames. The bytes come eight at a time from a small mixing function (the finalizer of
// SplitMix64) over seed, number and position: cheap, the same on every machine, and different in
// every place, so that a shifted or mixed-up piece is noticed. Checking makes the frame again and
// compares. No state, any thread.
#include "virtual_camera/numbered.h"

#include "wire.h"

#include <algorithm>

namespace zucam
{

namespace
{

std::uint64_t mix(std::uint64_t value)
{
    value += 0x9e3779b97f4a7c15U;
    value = (value ^ (value >> 30U)) * 0xbf58476d1ce4e5b9U;
    value = (value ^ (value >> 27U)) * 0x94d049bb133111ebU;
    return value ^ (value >> 31U);
}

void fill(std::uint32_t seed, std::uint32_t number, std::uint8_t* out, std::size_t size)
{
    std::uint64_t state = mix(static_cast<std::uint64_t>(seed) << 32U | number);
    for (std::size_t done = 0; done < size; done += 8) {
        std::uint64_t word = mix(state++);
        const std::size_t count = std::min<std::size_t>(8, size - done);
        for (std::size_t i = 0; i < count; ++i, word >>= 8U) {
            out[done + i] = static_cast<std::uint8_t>(word);
        }
    }
}

} // namespace

std::vector<std::uint8_t> numbered_body(std::uint32_t seed, std::uint32_t number, std::size_t size)
{
    wire::bytes body;
    body.reserve(std::max(size, numbered_body_min));
    wire::put_flag(body, "KTVF");
    wire::put_u32(body, number);
    body.resize(std::max(size, numbered_body_min));
    fill(seed, number, body.data() + numbered_body_min, body.size() - numbered_body_min);
    return body;
}

std::optional<std::uint32_t> check_numbered_body(std::uint32_t seed, const std::uint8_t* data,
                                                 std::size_t size)
{
    if (size < numbered_body_min) {
        return std::nullopt;
    }
    const std::uint32_t number = wire::get_u32(data + 4);
    const wire::bytes expected = numbered_body(seed, number, size);
    if (!std::equal(expected.begin(), expected.end(), data)) {
        return std::nullopt;
    }
    return number;
}

} // namespace zucam
