// Finds NAL units by their start codes: 00 00 01, with one more zero byte in front where there is
// one. That zero belongs to the start code of the unit that follows, so a unit's end is the begin
// of the next one. Emulation prevention keeps start codes out of units, hence one scan without
// looking inside is enough. No state, any thread.
#include "annexb.h"

namespace zucam::annexb
{

namespace
{

bool start_code_at(const std::uint8_t* data, std::size_t size, std::size_t at)
{
    return at + 3 < size && data[at] == 0 && data[at + 1] == 0 && data[at + 2] == 1;
}

} // namespace

std::vector<nal> split(const std::uint8_t* data, std::size_t size)
{
    std::vector<nal> found;
    for (std::size_t at = 0; at + 3 < size; ++at) {
        if (!start_code_at(data, size, at)) {
            continue;
        }
        const bool long_code = at > 0 && data[at - 1] == 0;
        const std::size_t begin = long_code ? at - 1 : at;
        if (!found.empty()) {
            found.back().end = begin;
        }
        found.push_back({begin, at + 3, size});
        at += 3;
    }
    return found;
}

} // namespace zucam::annexb
