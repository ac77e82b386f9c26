// The list of presets, kept as the record that a client reads: a count, then a hundred entries of
// number, pan, tilt, zoom and focus. Storing and clearing edit the record in place, so a list that
// was written by a client is read back byte for byte. Guarded by its owner.
#ifndef ZUCAM_PRESET_LIST_H
#define ZUCAM_PRESET_LIST_H

#include "camera_head.h"
#include "wire.h"

#include <optional>

namespace zucam
{

constexpr std::uint32_t first_preset = 1;
constexpr std::uint32_t last_preset = 100;

class preset_list
{
public:
    // Works on a setting's bytes, which must outlive it.
    explicit preset_list(wire::bytes& record);

    // Numbers 1 to 100, each once, and positions that the head can take.
    bool is_good() const;
    std::optional<head_view> find(std::uint32_t number) const;
    void store(std::uint32_t number, const head_view& view);
    void clear(std::uint32_t number);

private:
    std::uint32_t count() const;
    std::int32_t field(std::uint32_t entry, std::size_t index) const;
    std::optional<std::uint32_t> entry_of(std::uint32_t number) const;
    bool is_good_entry(std::uint32_t entry) const;

    wire::bytes& record_;
};

} // namespace zucam

#endif
