// From the user pointer of an event callback to the camera that it was for.
//
// Logout waits no longer than five seconds for an event callback, and not at all when it is called
// from inside one. So what such a callback is handed is a number, which names the camera as long as
// that has not ended, and then nothing. The stream callback needs none of this: it is never running
// when Logout has returned. Any thread.
#pragma once

#include <memory>

namespace zu::detail
{

class CameraCore;

void* add_event_route(const std::shared_ptr<CameraCore>& core);
void remove_event_route(void* number);
std::shared_ptr<CameraCore> find_event_route(void* number);

} // namespace zu::detail
