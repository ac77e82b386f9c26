/*
 * Logging in and out, and one line per step. Log level 1 comes first: without it a request that the
 * device does not answer waits for ever. The log callback runs on any thread and only prints.
 */
#include "device_login.h"

#include <stdio.h>
#include <stdlib.h>

#include "zu_net_dev_api.h"

static void on_log_shown(int type, const char* line)
{
    (void)type;
    (void)fputs(line, stderr);
}

static void on_log_hidden(int type, const char* line)
{
    (void)type;
    (void)line;
}

ZU_U32 log_in(const struct device_options* options)
{
    ZU_U32 handle = 0;
    (void)setvbuf(stdout, NULL, _IOLBF, 0); /* a line is seen when it happens, in a pipe too */
    (void)ZU_NET_DEV_SetLogLevel(ZU_LOG_LEVEL_ERROR);
    (void)ZU_NET_DEV_SetLogCallback(options->verbose ? on_log_shown : on_log_hidden);
    if (ZU_NET_DEV_Init() != ZU_SUCCESS ||
        ZU_NET_DEV_Login(&handle, options->user, options->password, options->host, options->port) !=
            ZU_SUCCESS) {
        complain("no login to %s:%u (--verbose tells more)", options->host, options->port);
        exit(EXIT_LOGIN);
    }
    printf("logged in to %s:%u\n", options->host, options->port);
    return handle;
}

void log_out(ZU_U32 handle)
{
    (void)ZU_NET_DEV_Logout(handle);
    (void)ZU_NET_DEV_DeInit();
    printf("logged out\n");
}

void step(ZU_U32 handle, ZU_S32 code, const char* what)
{
    if (code == ZU_SUCCESS) {
        printf("%s: done\n", what);
        return;
    }
    if (code == ZU_FAILURE) {
        complain("%s: failed, link down or no answer (--verbose tells more)", what);
    } else {
        complain("%s: refused by the device (code %d)", what, (int)code);
    }
    log_out(handle);
    exit(EXIT_REFUSED);
}
