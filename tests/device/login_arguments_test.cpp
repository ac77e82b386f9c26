// What Login and Logout refuse before they do anything, and with which lines at which log level.
#include "login_kit.h"

using namespace support;

namespace
{

constexpr char argument_line[] = "zu_sdk_inited == 0 || psUsername == NULL || psPassword == NULL "
                                 "|| psHost == NULL || u16Port == 0\n";

struct bad_login {
    const char* name;
    const char* username;
    const char* password;
    const char* host;
    ZU_U16 port;
};

class LoginArguments : public testing::TestWithParam<bad_login>
{
};

std::string name_of_case(const testing::TestParamInfo<bad_login>& info)
{
    return info.param.name;
}

} // namespace

TEST_P(LoginArguments, AreRefusedWithTheOneLineForAllAndTakeNoSlot)
{
    const library lib;
    const bad_login& bad = GetParam();
    for (const int level : log_levels) {
        const log_tap log(level);
        ZU_U32 handle = 77;
        EXPECT_EQ(ZU_NET_DEV_Login(&handle, bad.username, bad.password, bad.host, bad.port), -1);
        EXPECT_TRUE(all_told(log, login_name, level,
                             {trace("enter ZU_NET_DEV_Login\n"), error(argument_line)}));
        EXPECT_EQ(handle, 77U);
    }
    EXPECT_THAT(sdk_users, testing::Each(nullptr));
}

INSTANTIATE_TEST_SUITE_P(Each, LoginArguments,
                         testing::Values(bad_login{"ANullUserName", nullptr, "p", "127.0.0.1", 1},
                                         bad_login{"ANullPassword", "u", nullptr, "127.0.0.1", 1},
                                         bad_login{"ANullHost", "u", "p", nullptr, 1},
                                         bad_login{"PortZero", "u", "p", "127.0.0.1", 0}),
                         name_of_case);

TEST(Login, BeforeInitIsRefusedWithTheArgumentLine)
{
    for (const int level : log_levels) {
        const log_tap log(level);
        ZU_U32 handle = 77;
        EXPECT_EQ(ZU_NET_DEV_Login(&handle, "u", "p", "127.0.0.1", 1), -1);
        EXPECT_TRUE(all_told(log, login_name, level,
                             {trace("enter ZU_NET_DEV_Login\n"), error(argument_line)}));
        EXPECT_EQ(handle, 77U);
    }
}

TEST(Login, AfterDeInitIsRefused)
{
    {
        const library lib;
    }
    const log_tap log(1);
    ZU_U32 handle = 0;
    EXPECT_EQ(ZU_NET_DEV_Login(&handle, "u", "p", "127.0.0.1", 1), -1);
    EXPECT_TRUE(log.has(0, login_name, argument_line));
}

TEST(Login, TakesAnEmptyUserNameAndAnEmptyPassword)
{
    const library lib;
    serving_device device;
    ZU_U32 handle = 0;
    EXPECT_EQ(ZU_NET_DEV_Login(&handle, "", "", "127.0.0.1", device.port()), 0);
    EXPECT_EQ(ZU_NET_DEV_Logout(handle), 0);
}

TEST(Logout, BeforeInitIsRefusedWithItsLine)
{
    for (const int level : log_levels) {
        const log_tap log(level);
        EXPECT_EQ(ZU_NET_DEV_Logout(0x43210000), -1);
        EXPECT_TRUE(told_by(log, logout_name, level,
                            {trace("enter ZU_NET_DEV_Logout\n"), error("zu_sdk_inited == 0\n")}));
    }
}

TEST(Logout, OfAHandleNobodyHoldsIsRefusedWithItsLine)
{
    const library lib;
    for (const int level : log_levels) {
        const log_tap log(level);
        EXPECT_EQ(ZU_NET_DEV_Logout(0x43210005), -1);
        EXPECT_TRUE(told_by(log, logout_name, level,
                            {trace("enter ZU_NET_DEV_Logout\n"), error(no_user_line)}));
        EXPECT_TRUE(told_by(log, "get_sdkuser", level, {error("sdkuser invalid! index: 5\n")}));
    }
}

TEST(Logout, OfAHandleBeyondTheTableIsRefusedWithItsLine)
{
    const library lib;
    const log_tap log(2);
    EXPECT_EQ(ZU_NET_DEV_Logout(0x43210100), -1);
    EXPECT_TRUE(log.has(0, logout_name, no_user_line));
    EXPECT_FALSE(log.has("leave ZU_NET_DEV_Logout\n"));
}

TEST(Logout, LooksAtTheLowSixteenBitsOfTheHandleOnly)
{
    const inventory before;
    {
        const library lib;
        serving_device device;
        ZU_U32 handle = 0;
        ASSERT_EQ(log_in(&handle, device.port()), 0);
        EXPECT_EQ(ZU_NET_DEV_Logout(0xABCD0000 | (handle & 0xffff)), 0);
        EXPECT_EQ(ZU_NET_DEV_Logout(handle), -1);
    }
    EXPECT_EQ(before.left_over(), "");
}
