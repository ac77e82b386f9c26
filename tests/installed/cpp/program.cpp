// Another project's program in C++ on the C interface.
#include <iostream>
#include <string>

#include "queue.h"
#include "zu_net_dev_api.h"

namespace
{

std::string lines;

void keep(int, const char* line)
{
    lines += line;
}

} // namespace

int main()
{
    ZU_NET_DEV_SetLogLevel(ZU_LOG_LEVEL_TRACE);
    ZU_NET_DEV_SetLogCallback(keep);
    const bool ready = ZU_NET_DEV_Init() == ZU_SUCCESS && ZU_NET_DEV_Init() == ZU_FAILURE;
    const bool ended = ZU_NET_DEV_Logout(0) == ZU_FAILURE && ZU_NET_DEV_DeInit() == ZU_SUCCESS;
    if (!ready || !ended || lines.find("ZU_NET_DEV_Logout") == std::string::npos) {
        std::cout << "the library does not do as it should; it says\n" << lines;
        return 1;
    }
    return 0;
}
