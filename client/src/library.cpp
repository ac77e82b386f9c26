// The C library for as long as it is needed. See library.hpp.
//
// Who holds the core keeps the C library initialised: the zu::Library object, and each camera until
// it has logged out. The last one calls DeInit. Init and DeInit need the C library to themselves,
// so both run under the guard, and Init is tried only when no core is there.
#include "zu/library.hpp"

#include <mutex>

#include "library_core.hpp"
#include "log_route.hpp"
#include "zu/error.hpp"
#include "zu_net_dev_api.h"

namespace zu
{

namespace
{

// Never destroyed: a program may keep cameras in statics.
struct Registry {
    std::mutex guard; // of all that follows, and around Init and DeInit
    bool core_exists = false;
    std::weak_ptr<detail::LibraryCore> current; // of the zu::Library object
};

Registry& registry()
{
    static Registry& the = *new Registry;
    return the;
}

} // namespace

namespace detail
{

LibraryCore::LibraryCore(LogHandler log_handler) : log(std::move(log_handler))
{
}

LibraryCore::~LibraryCore()
{
    if (!initialised) {
        return;
    }
    const std::lock_guard<std::mutex> lock(registry().guard);
    ZU_NET_DEV_DeInit();
    registry().core_exists = false;
}

std::shared_ptr<LibraryCore> LibraryCore::current()
{
    const std::lock_guard<std::mutex> lock(registry().guard);
    return registry().current.lock();
}

} // namespace detail

Library::Library(LibraryOptions options)
    : core(std::make_shared<detail::LibraryCore>(std::move(options.log)))
{
    const std::lock_guard<std::mutex> lock(registry().guard);
    if (registry().core_exists || ZU_NET_DEV_Init() != ZU_SUCCESS) {
        throw std::system_error(Errc::library_in_use);
    }
    core->initialised = true;
    registry().core_exists = true;
    registry().current = core;
    detail::open_log_route(core->log, options.trace);
    ZU_NET_DEV_SetLogLevel(options.trace ? ZU_LOG_LEVEL_TRACE : ZU_LOG_LEVEL_ERROR);
}

Library::~Library()
{
    {
        const std::lock_guard<std::mutex> lock(registry().guard);
        registry().current.reset();
    }
    detail::close_log_route();
}

} // namespace zu
