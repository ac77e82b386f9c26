/*
 * settings: prints how stream 0 of a device is encoded, changes its bit rate and reads it back.
 *
 * One thread of ours. The bit rate stays as it was set. Ends with 0 when the device has taken and
 * told it; 2: wrong options; 3: no login; 4: the device refused a step, or tells something else.
 */
#include <stdio.h>
#include <string.h>

#include "device_login.h"
#include "zu_net_dev_api.h"

/* The stream is selected by the record itself, and all other fields are filled in. */
static void read_video(ZU_U32 handle, ZU_S_Video_Ext* video, const char* what)
{
    memset(video, 0, sizeof *video);
    video->u32Stream = 0;
    step(handle, ZU_NET_DEV_GetConfig(handle, ZU_NET_DEV_CMD_VIDEO_PARAM_EXT, video, sizeof *video),
         what);
    printf("stream %u: %u x %u, %u frames/s, a key frame every %u, %u kbit/s\n", video->u32Stream,
           video->u32Width, video->u32Height, video->u32Frame, video->u32Iframe, video->u32Bitrate);
}

int main(int argc, char** argv)
{
    struct device_options options;
    ZU_S_Video_Ext video;
    read_device_options(argc, argv, TAKES_BITRATE, &options);
    const ZU_U32 handle = log_in(&options);
    read_video(handle, &video, "read the video setting");
    const ZU_U32 wanted = options.bitrate != 0 ? options.bitrate : video.u32Bitrate / 2;
    video.u32Bitrate = wanted;
    step(handle, ZU_NET_DEV_SetConfig(handle, ZU_NET_DEV_CMD_VIDEO_PARAM_EXT, &video, sizeof video),
         "set the bit rate");
    read_video(handle, &video, "read the video setting again");
    log_out(handle);
    if (video.u32Bitrate != wanted) {
        complain("the device tells another bit rate than the one set: %u instead of %u kbit/s",
                 video.u32Bitrate, wanted);
        return EXIT_REFUSED;
    }
    return EXIT_DONE;
}
