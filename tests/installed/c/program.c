/* Another project's program in C: uses functions, data, records and callbacks of the library. */
#include <stdio.h>
#include <string.h>

#include "zu_net_dev_api.h"
#include "zu_net_dev_disk.h"

static char last_line[256];

static void keep(int type, const char* line)
{
    (void)type;
    snprintf(last_line, sizeof last_line, "%s", line);
}

int main(void)
{
    ZU_U32 handle = 0;
    ZU_S_Video_Ext video = {.u32Stream = 0};

    if (ZU_NET_DEV_SetLogLevel(ZU_LOG_LEVEL_ERROR) != 0 || ZU_NET_DEV_SetLogCallback(keep) != 0 ||
        ZU_NET_DEV_Init() != ZU_SUCCESS) {
        puts("the library cannot be made ready");
        return 1;
    }
    if (ZU_NET_DEV_Login(&handle, "user", "secret", "127.0.0.1", 0) != ZU_FAILURE ||
        ZU_NET_DEV_GetConfig(0, ZU_NET_DEV_CMD_VIDEO_PARAM_EXT, &video, sizeof video) !=
            ZU_FAILURE) {
        puts("the library does what it must refuse");
        return 1;
    }
    if (info_callback != keep || strstr(last_line, dbgout_info) == NULL || dbgout_info[0] == '\0') {
        puts("the library's data is not the program's");
        return 1;
    }
    return ZU_NET_DEV_DeInit() == ZU_SUCCESS && sizeof(ZU_S_GetFileList) == 3132 ? 0 : 1;
}
