// The bytes of a cycle. See traffic.h.
#include "traffic.h"

#include <algorithm>
#include <cmath>
#include <random>

#include "h264_units.h"
#include "wire.h"

namespace bench
{

namespace
{

constexpr std::size_t shortest_cycle = 1 << 20;
constexpr std::size_t key_frame = 90000;
constexpr std::size_t sound = 320;
constexpr int frames = 50;

} // namespace

std::vector<std::size_t> camera_frames()
{
    std::mt19937 dice(50);
    std::vector<std::size_t> sizes = {key_frame};
    for (int i = 1; i < frames; i++) {
        sizes.push_back(4200 + dice() % 8001);
    }
    return sizes;
}

traffic::traffic(const std::string& name)
{
    if (name != "mix" && name != "video") {
        while (bytes.size() < shortest_cycle) {
            append("KTVF", std::stoul(name));
        }
        return;
    }
    int number = 0;
    for (const std::size_t size : camera_frames()) {
        if (name == "video") {
            append_block("KTVF" + byte_stream(access_unit(size, number == 0, number)));
            number++;
        } else {
            append("KTVF", size);
            append("KTAF", sound);
        }
    }
}

std::size_t traffic::cycles_for(double amount) const
{
    const double cycles = std::round(amount / static_cast<double>(bytes.size()));
    return static_cast<std::size_t>(std::max(cycles, 1.0));
}

void traffic::append(const std::string& flag, std::size_t block_size)
{
    std::string block = flag;
    for (std::size_t i = flag.size(); i < block_size; i++) {
        block += static_cast<char>(i * 31 + count);
    }
    append_block(block);
}

void traffic::append_block(const std::string& block)
{
    const std::string whole = message(stream_data, 0, block);
    longest_message = std::max(longest_message, whole.size());
    bytes += whole;
    count++;
}

} // namespace bench
