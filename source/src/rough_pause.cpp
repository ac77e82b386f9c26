// A pause that may end late. See rough_pause.h.
#include "rough_pause.h"

#include <sys/prctl.h>

namespace
{

constexpr int slack_ns = 10 * 1000 * 1000;

} // namespace

void rough_pause(useconds_t time)
{
    const int before = prctl(PR_GET_TIMERSLACK);
    if (before < 0 || before >= slack_ns) {
        usleep(time); // it can't be told, or the application wants more
        return;
    }
    prctl(PR_SET_TIMERSLACK, static_cast<unsigned long>(slack_ns));
    usleep(time);
    prctl(PR_SET_TIMERSLACK, static_cast<unsigned long>(before));
}
