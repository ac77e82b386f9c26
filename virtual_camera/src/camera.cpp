// The public face of a camera. It exists so that the public header needs
// neither the links' nor the streams' headers; everything is done by the core,
// which the camera owns for its whole life. Calls may come from any thread and
// are passed on as they are; the core guards itself.
#include "virtual_camera/camera.h"

#include "camera_core.h"

namespace zucam
{

camera::camera(const camera_options& options) : core_(std::make_unique<camera_core>(options))
{
}

camera::~camera() = default;

std::uint16_t camera::port() const
{
    return core_->port();
}

camera_counters camera::counters() const
{
    return core_->counters();
}

std::vector<journal_entry> camera::journal() const
{
    return core_->received_so_far().requests();
}

std::size_t camera::received(std::uint32_t type) const
{
    return core_->received_so_far().count(type);
}

void camera::drop_links()
{
    core_->drop_links();
}

void camera::set_faults(const faults& value)
{
    core_->set_faults(value);
}

void camera::stop()
{
    core_->stop();
}

} // namespace zucam
