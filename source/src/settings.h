// Settings: ZU_NET_DEV_GetConfig and ZU_NET_DEV_SetConfig, which zu_net_dev_api.h declares and
// documents.
//
// They run on the caller's thread and block it for one exchange. The device is the only store: each
// call is one request and one answer, and nothing of a setting is kept here.
#pragma once

#include "zu_net_dev_api.h"
