/*
 * ptz: stores where a device looks as preset 1, pans to the right for a second, stops, stores that
 * as preset 2, prints the presets, and goes back to preset 1 unless --stay is given.
 *
 * The command numbers are the device's own; these are the virtual camera's. One thread of ours. A
 * movement is always stopped, since a device may move on for a while by itself. Ends with 0 when
 * all steps were done; 2: wrong options; 3: no login; 4: the device refused a step.
 */
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "device_login.h"
#include "zu_net_dev_api.h"

enum { MOVE_STOP = 0, MOVE_RIGHT = 4, SPEED = 48 };
enum { PRESET_STORE = 1, PRESET_GO_TO = 2 };

static void wait_a_second(void)
{
    struct timespec left = {1, 0};
    while (nanosleep(&left, &left) != 0) {
    }
}

static void pan_right(ZU_U32 handle)
{
    step(handle, ZU_NET_DEV_PTZ_Ctrl_Standard(handle, MOVE_RIGHT, SPEED), "move to the right");
    wait_a_second();
    step(handle, ZU_NET_DEV_PTZ_Ctrl_Standard(handle, MOVE_STOP, 0), "stop");
}

/* A device may tell of more entries than the list has. */
static void print_presets(ZU_U32 handle)
{
    ZU_S_PRESET_INFO presets;
    const ZU_S32 most = (ZU_S32)(sizeof presets.preset_list / sizeof presets.preset_list[0]);
    memset(&presets, 0, sizeof presets);
    step(handle,
         ZU_NET_DEV_GetConfig(handle, ZU_NET_DEV_CMD_PTZ_PRESET_INFO, &presets, sizeof presets),
         "read the presets");
    for (ZU_S32 i = 0; i < presets.s32Sum && i < most; ++i) {
        const ZU_S_PRESET_DETAILED* const each = &presets.preset_list[i];
        printf("preset %d: pan %d, tilt %d, zoom %d\n", each->s32Num, each->s32Pan, each->s32Tilt,
               each->s32Zoom);
    }
}

int main(int argc, char** argv)
{
    struct device_options options;
    read_device_options(argc, argv, TAKES_STAY, &options);
    const ZU_U32 handle = log_in(&options);
    step(handle, ZU_NET_DEV_PTZ_Ctrl_Preset(handle, PRESET_STORE, 1), "store preset 1");
    pan_right(handle);
    step(handle, ZU_NET_DEV_PTZ_Ctrl_Preset(handle, PRESET_STORE, 2), "store preset 2");
    print_presets(handle);
    if (!options.stay) {
        step(handle, ZU_NET_DEV_PTZ_Ctrl_Preset(handle, PRESET_GO_TO, 1), "go to preset 1");
    }
    log_out(handle);
    return EXIT_DONE;
}
