/*
 * events: logs in to a device and prints a line for every event of the link, until SIGINT or for so
 * many seconds. To see one, take the device's cable out and put it back.
 *
 * The library calls on_event on a thread per event; one printf per line keeps lines whole. Ends
 * with 0; 2: wrong options; 3: no login; 4: the callback could not be set.
 */
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "device_login.h"
#include "zu_net_dev_api.h"

static const char* name_of(ZU_U32 event)
{
    switch (event) {
    case ZU_NET_DEV_CONNECTED:
        return "connected again";
    case ZU_NET_DEV_DISCONNECTED:
        return "disconnected";
    case ZU_NET_DEV_HEARTBEAT:
        return "heartbeat answered";
    default:
        return "unknown";
    }
}

static ZU_S32 on_event(ZU_U32 handle, ZU_U32 event, ZU_VOID* user)
{
    (void)user;
    printf("event of 0x%x: %s\n", handle, name_of(event));
    return 0;
}

/* The signals are blocked before the library starts threads, so they wait for sigtimedwait. */
static void block_signals(sigset_t* awaited)
{
    (void)sigemptyset(awaited);
    (void)sigaddset(awaited, SIGINT);
    (void)sigaddset(awaited, SIGTERM);
    (void)pthread_sigmask(SIG_BLOCK, awaited, NULL);
}

static struct timespec left_until(const struct timespec* end)
{
    struct timespec left;
    (void)clock_gettime(CLOCK_MONOTONIC, &left);
    left.tv_sec = end->tv_sec - left.tv_sec;
    left.tv_nsec = end->tv_nsec - left.tv_nsec;
    if (left.tv_nsec < 0) {
        left.tv_sec -= 1;
        left.tv_nsec += 1000000000;
    }
    if (left.tv_sec < 0) {
        memset(&left, 0, sizeof left);
    }
    return left;
}

/* A program that was stopped and goes on (Ctrl-Z, fg) finds its wait interrupted. */
static void wait_for_end(const sigset_t* awaited, long seconds)
{
    struct timespec end;
    struct timespec left;
    int number = 0;
    if (seconds == 0) {
        (void)sigwait(awaited, &number); /* begins again by itself */
        return;
    }
    (void)clock_gettime(CLOCK_MONOTONIC, &end);
    end.tv_sec += seconds;
    do {
        left = left_until(&end);
    } while (sigtimedwait(awaited, NULL, &left) < 0 && errno == EINTR);
}

int main(int argc, char** argv)
{
    struct device_options options;
    sigset_t awaited;
    read_device_options(argc, argv, TAKES_SECONDS, &options);
    block_signals(&awaited);
    const ZU_U32 handle = log_in(&options);
    step(handle, ZU_NET_DEV_SetEventCallBack(handle, on_event, NULL), "set the event callback");
    wait_for_end(&awaited, options.seconds);
    log_out(handle);
    return EXIT_DONE;
}
