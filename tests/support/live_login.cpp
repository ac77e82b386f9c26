// A login to a device. See live_login.h.
#include "live_login.h"

#include <algorithm>

#include "log_tap.h"
#include "sdk_user.h"

namespace support
{

ZU_S32 watcher::on_stream(ZU_U32 handle, ZU_U32 type, ZU_U8* data, ZU_U32 length, ZU_VOID* self)
{
    auto* w = static_cast<watcher*>(self);
    const std::lock_guard<std::mutex> lock(w->guard);
    w->taken_blocks.push_back({handle, type, bytes(data, data + length)});
    return 0;
}

ZU_S32 watcher::on_event(ZU_U32 /*handle*/, ZU_U32 event, ZU_VOID* self)
{
    auto* w = static_cast<watcher*>(self);
    const std::lock_guard<std::mutex> lock(w->guard);
    w->taken_events.push_back(event);
    return 0;
}

std::vector<stream_block> watcher::blocks() const
{
    const std::lock_guard<std::mutex> lock(guard);
    return taken_blocks;
}

std::vector<ZU_U32> watcher::events() const
{
    const std::lock_guard<std::mutex> lock(guard);
    return taken_events;
}

size_t watcher::block_count() const
{
    const std::lock_guard<std::mutex> lock(guard);
    return taken_blocks.size();
}

int watcher::count(ZU_U32 event) const
{
    const std::lock_guard<std::mutex> lock(guard);
    return static_cast<int>(std::count(taken_events.begin(), taken_events.end(), event));
}

bool watcher::wait_for_blocks(size_t count, std::chrono::milliseconds deadline) const
{
    return grows_to([this] { return block_count(); }, count, deadline);
}

bool watcher::wait_for_event(ZU_U32 event, int times, std::chrono::milliseconds deadline) const
{
    return grows_to([&] { return count(event); }, times, deadline);
}

library::library(int level)
{
    ZU_NET_DEV_Init();
    set_log_level(level);
}

library::~library()
{
    ZU_NET_DEV_DeInit();
    set_log_level(0);
}

live_login::live_login(unsigned short port)
    : outcome(ZU_NET_DEV_Login(&own_handle, "admin", "secret", "127.0.0.1", port)),
      logged_in(outcome == ZU_SUCCESS)
{
}

live_login::~live_login()
{
    if (logged_in) {
        log_out();
    }
}

ZU_S32 live_login::log_out()
{
    logged_in = false;
    return ZU_NET_DEV_Logout(own_handle);
}

bool live_login::watch()
{
    return ZU_NET_DEV_SetStreamCallBack(own_handle, watcher::on_stream, &seen) == ZU_SUCCESS &&
           ZU_NET_DEV_SetEventCallBack(own_handle, watcher::on_event, &seen) == ZU_SUCCESS;
}

ZU_S32 live_login::start_stream(ZU_U32 stream, ZU_U8 type)
{
    ZU_S_STREAM_INFO_EXT info = {};
    info.u32Stream = stream;
    info.u8Type = type;
    return ZU_NET_DEV_StartStreamExt(own_handle, &info);
}

bool live_login::wait_until_up(std::chrono::milliseconds deadline) const
{
    return eventually([this] { return used_word(own_handle) == ZU_SDK_USER_USED; }, deadline);
}

bool live_login::wait_until_down(std::chrono::milliseconds deadline) const
{
    return eventually([this] { return used_word(own_handle) != ZU_SDK_USER_USED; }, deadline);
}

int used_word(ZU_U32 handle)
{
    const held_user user(handle);
    return user.missing() ? 0 : user->used.load();
}

} // namespace support
