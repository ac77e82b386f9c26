// A log callback that calls the library from within a line of the table.
//
// The table's mutex is not held while one of its lines is delivered; were it, the calls made here
// would wait for it for ever. One thread.
#include <cerrno>
#include <cstring>
#include <functional>
#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include "seam.h"
#include "table_user.h"

using namespace support;

namespace
{

// What the callback calls once, on the line it waits for. One thread.
const char* awaited_line;
bool called_back;

void call_back_on_the_line(int /*type*/, const char* /*line*/)
{
    if (called_back || std::strcmp(dbgout_info, awaited_line) != 0) {
        return;
    }
    called_back = true; // the calls below write lines too
    ZU_U32 handle = 0;
    EXPECT_EQ(ZU_NET_DEV_SetReconnect(9, 1), ZU_FAILURE);
    EXPECT_EQ(ZU_NET_DEV_MakeKeyFrame(9, 11), ZU_FAILURE);
    const fault memory("mmap", ENOMEM);
    EXPECT_EQ(ZU_NET_DEV_Login(&handle, "u", "p", "127.0.0.1", 1), ZU_FAILURE);
}

struct table_line {
    const char* name;
    const char* message;
    std::function<void()> provoke;
};

void PrintTo(const table_line& line, std::ostream* out)
{
    *out << line.name;
}

class SdkUserTableCallback : public table_user, public testing::WithParamInterface<table_line>
{
};

} // namespace

TEST_P(SdkUserTableCallback, MayCallTheLibraryFromATableLine)
{
    awaited_line = GetParam().message;
    ZU_NET_DEV_SetLogCallback(call_back_on_the_line);
    ZU_NET_DEV_SetLogLevel(2);

    GetParam().provoke();

    EXPECT_TRUE(called_back);
}

INSTANTIATE_TEST_SUITE_P(
    OnEveryLine, SdkUserTableCallback,
    testing::Values(
        table_line{"Full", "sdk user number full!\n", [] { allocate(257); }},
        table_line{"Allocated", "alloc sdk user:0\n", [] { alloc_sdkuser(); }},
        table_line{"NoMemory", "alloc sdk user fail!\n",
                   [] {
                       const fault memory("mmap", ENOMEM);
                       alloc_sdkuser();
                   }},
        table_line{"LookUpOfAFreeSlot", "sdkuser invalid! index: 5\n", [] { get_sdkuser(5); }},
        table_line{"LookUpBeyondTheEnd", " index invalid! index: 256\n", [] { get_sdkuser(256); }},
        table_line{"ReleaseOfAFreeSlot", "sdkuser invalid! index: 5\n", [] { free_sdkuser(5); }},
        table_line{"ReleaseBeyondTheEnd", " index invalid! index: 256\n",
                   [] { free_sdkuser(256); }}),
    [](const auto& with) { return std::string(with.param.name); });
