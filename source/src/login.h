// Login, logout and the settings of a login: ZU_NET_DEV_Login, ZU_NET_DEV_Logout,
// ZU_NET_DEV_SetReconnect, ZU_NET_DEV_SetStreamCallBack and ZU_NET_DEV_SetEventCallBack, which
// zu_net_dev_api.h declares and documents. They run on the caller's thread.
//
// Login waits up to about three seconds for the device manager to bring the link up. Whoever ends a
// login (one Logout, or Login's failure path) leaves no thread, descriptor or record of it behind,
// except what calls still under way on other threads hold.
#pragma once

#include "zu_net_dev_api.h"
