// The settings that a device brings back as records, by type. The records are those of the C
// interface, where each field is documented.
#pragma once

#include <cstdint>

#include "zu_net_dev_api.h"

namespace zu
{

using VideoSettings = ZU_S_Video_Ext;
using AudioSettings = ZU_S_Audio_Ext;
using EncodeLevel = ZU_S_Video_Encode_Level;
using IdrQp = ZU_S_Video_IDR_QP;
using PresetList = ZU_S_PRESET_INFO;

// The command code of a record, and whether its u32Stream selects what is read.
template <class Record>
struct SettingOf;

template <>
struct SettingOf<VideoSettings> {
    static constexpr std::uint32_t command = ZU_NET_DEV_CMD_VIDEO_PARAM_EXT;
    static constexpr bool by_stream = true;
};
template <>
struct SettingOf<AudioSettings> {
    static constexpr std::uint32_t command = ZU_NET_DEV_CMD_AUDIO_PARAM_EXT;
    static constexpr bool by_stream = true;
};
template <>
struct SettingOf<EncodeLevel> {
    static constexpr std::uint32_t command = ZU_NET_DEV_CMD_VIDEO_ENCODE_LEVEL;
    static constexpr bool by_stream = false;
};
template <>
struct SettingOf<IdrQp> {
    static constexpr std::uint32_t command = ZU_NET_DEV_CMD_VIDEO_H264_H265_IDR_QP;
    static constexpr bool by_stream = true;
};
template <>
struct SettingOf<PresetList> {
    static constexpr std::uint32_t command = ZU_NET_DEV_CMD_PTZ_PRESET_INFO;
    static constexpr bool by_stream = false;
};

} // namespace zu
