// The entries in use are the first ones, in the order in which they were stored; clearing one moves
// the later ones up. There are as many entries as numbers, so a new one always has a place.
// One caller at a time.
#include "preset_list.h"

#include "setting_records.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace zucam
{

namespace
{

using record::within;

constexpr std::size_t list_begin = 4;
constexpr std::size_t entry_size = 20;
constexpr std::size_t list_end = list_begin + entry_size * last_preset;

enum index : std::size_t { number_index, pan_index, tilt_index, zoom_index, focus_index };

std::size_t offset_of(std::uint32_t entry)
{
    return list_begin + entry_size * entry;
}

std::uint32_t rounded(double value)
{
    return static_cast<std::uint32_t>(static_cast<std::int32_t>(std::lround(value)));
}

} // namespace

preset_list::preset_list(wire::bytes& record) : record_(record)
{
}

std::uint32_t preset_list::count() const
{
    return record::word(record_, 0);
}

std::int32_t preset_list::field(std::uint32_t entry, std::size_t index) const
{
    return static_cast<std::int32_t>(record::word(record_, offset_of(entry) / 4 + index));
}

std::optional<std::uint32_t> preset_list::entry_of(std::uint32_t number) const
{
    for (std::uint32_t entry = 0; entry < count(); ++entry) {
        if (field(entry, number_index) == static_cast<std::int32_t>(number)) {
            return entry;
        }
    }
    return std::nullopt;
}

bool preset_list::is_good_entry(std::uint32_t entry) const
{
    const std::int32_t number = field(entry, number_index);
    return within(number, first_preset, last_preset) &&
           entry_of(static_cast<std::uint32_t>(number)) == entry &&
           within(field(entry, pan_index), lowest_view.pan, highest_view.pan) &&
           within(field(entry, tilt_index), lowest_view.tilt, highest_view.tilt) &&
           within(field(entry, zoom_index), lowest_view.zoom, highest_view.zoom);
}

bool preset_list::is_good() const
{
    bool good = count() <= last_preset;
    for (std::uint32_t entry = 0; good && entry < count(); ++entry) {
        good = is_good_entry(entry);
    }
    return good;
}

std::optional<head_view> preset_list::find(std::uint32_t number) const
{
    const auto entry = entry_of(number);
    if (!entry) {
        return std::nullopt;
    }
    return head_view{static_cast<double>(field(*entry, pan_index)),
                     static_cast<double>(field(*entry, tilt_index)),
                     static_cast<double>(field(*entry, zoom_index))};
}

void preset_list::store(std::uint32_t number, const head_view& view)
{
    auto entry = entry_of(number);
    if (!entry) {
        entry = count();
        record::set_word(record_, 0, *entry + 1);
    }
    const std::array<std::uint32_t, 5> values = {number, rounded(view.pan), rounded(view.tilt),
                                                 rounded(view.zoom), 0};
    for (std::size_t i = 0; i < values.size(); ++i) {
        record::set_word(record_, offset_of(*entry) / 4 + i, values[i]);
    }
}

void preset_list::clear(std::uint32_t number)
{
    const auto entry = entry_of(number);
    if (!entry) {
        return;
    }
    const auto begin = record_.begin();
    const auto at = begin + static_cast<std::ptrdiff_t>(offset_of(*entry));
    const auto end = begin + static_cast<std::ptrdiff_t>(list_end);
    std::fill(std::copy(at + entry_size, end, at), end, std::uint8_t{0});
    record::set_word(record_, 0, count() - 1);
}

} // namespace zucam
