// Event delivery. See event_handler.h.
//
// A handler counts itself as running before it looks at callbacks_over, and finish stores
// callbacks_over before it looks at the count: one of the two always sees the other.
#include "event_handler.h"

#include <unistd.h>

#include "deadline.h"

namespace
{

constexpr int finish_poll_us = 10000;
constexpr int finish_limit_s = 5;

// Whether this thread is inside an event callback, of whichever login.
thread_local bool in_event_callback;

void call_back(zu_sdk_user* user)
{
    const ZU_ON_EVENT_CALLBACK callback = user->event_callback;
    in_event_callback = true;
    callback(user->handle, static_cast<ZU_U32>(user->event.load()), user->event_userdata);
    in_event_callback = false;
}

} // namespace

bool event_handler_start(zu_sdk_user* user, int event)
{
    user->event = event;
    sdk_user_hold(user);
    pthread_t thread;
    if (pthread_create(&thread, nullptr, sdk_eventhandler_main, user) != 0) {
        sdk_user_drop(user);
        return false;
    }
    user->eventhandler = thread;
    return true;
}

void event_handler_finish(zu_sdk_user* user)
{
    user->callbacks_over = true;
    if (in_event_callback) {
        return;
    }
    const timespec end = deadline_in(finish_limit_s);
    while (user->callbacks_running != 0 && !deadline_has_passed(end)) {
        usleep(finish_poll_us);
    }
}

void* sdk_eventhandler_main(void* sdk_user)
{
    auto* user = static_cast<zu_sdk_user*>(sdk_user);
    pthread_detach(pthread_self());
    user->callbacks_running++;
    if (!user->callbacks_over) {
        call_back(user);
    }
    user->callbacks_running--;
    sdk_user_drop(user);
    return nullptr;
}
