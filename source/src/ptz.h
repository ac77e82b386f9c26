// Pan-tilt-zoom: ZU_NET_DEV_PTZ_Ctrl_Standard and ZU_NET_DEV_PTZ_Ctrl_Preset, which
// zu_net_dev_api.h declares and documents.
//
// They run on the caller's thread and block it for one exchange. Each carries two numbers to the
// device, which alone knows what they mean; nothing of a movement is kept here.
#pragma once

#include "zu_net_dev_api.h"
