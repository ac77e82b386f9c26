// What connecting to a device logs, and what it says on the standard streams.
//
// One thread; the levels -1 to 2 are the parameter. A device that is not there is a port nobody
// listens on any more.
#include <cerrno>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "log_story.h"
#include "log_tap.h"
#include "process_probe.h"
#include "scripted_device.h"
#include "seam.h"
#include "sockets.h"
#include "tcp_link.h"

using namespace support;

namespace
{

constexpr char host[] = "127.0.0.1";
constexpr char who[] = "tcp_ext_connect";
const told success{log_at_trace_level, 0, "connect success\n"};

class TcpConnectLines : public at_level
{
protected:
    scripted_device device;
};

} // namespace

TEST_P(TcpConnectLines, OfABlockingConnect)
{
    const log_tap log(level);
    const owned_socket sock(tcp_ext_connect(host, device.port(), -1));
    EXPECT_TRUE(all_told(log, who, level, {success}));
}

TEST_P(TcpConnectLines, OfARefusedBlockingConnect)
{
    const refusing_port port;
    const log_tap log(level);

    testing::internal::CaptureStderr();
    tcp_ext_connect(host, port, -1);
    const std::string complaint = testing::internal::GetCapturedStderr();

    EXPECT_TRUE(all_told(log, who, level, {error("connect fail!\n")}));
    EXPECT_EQ(complaint, level >= 1 ? "connectBloking: Connection refused\n" : "");
}

TEST_P(TcpConnectLines, OfAConnectWithinTheLimit)
{
    const log_tap log(level);
    const owned_socket sock(tcp_ext_connect(host, device.port(), 1000));
    EXPECT_TRUE(all_told(log, who, level, {}));
}

TEST_P(TcpConnectLines, OfARefusedConnectWithLimit)
{
    const refusing_port port;
    const log_tap log(level);

    testing::internal::CaptureStderr();
    tcp_ext_connect(host, port, 1000);

    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_TRUE(all_told(log, who, level, {}));
}

TEST_P(TcpConnectLines, OfAnExpiredLimit)
{
    fault expired("ppoll", 0);
    expired.returning(0);
    const log_tap log(level);
    tcp_ext_connect(host, device.port(), 1000);
    EXPECT_TRUE(all_told(log, who, level, {}));
}

TEST_P(TcpConnectLines, OfAPendingErrorThatCanNotBeRead)
{
    const refusing_port port;
    const fault unreadable("getsockopt", ENOBUFS);
    const log_tap log(level);
    const inventory before;

    EXPECT_EQ(tcp_ext_connect(host, port, 1000), -1);

    EXPECT_TRUE(all_told(log, who, level, {error("get socket option fail!\n")}));
    EXPECT_EQ(before.left_over(), "");
}

INSTANTIATE_TEST_SUITE_P(AtEveryLevel, TcpConnectLines, all_levels(), level_name);

TEST(TcpConnectOutput, OfARefusedBlockingConnectAtLevel0IsNone)
{
    ASSERT_EQ(info_callback, nullptr);
    set_log_level(0);
    const refusing_port port;

    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_EQ(tcp_ext_connect(host, port, -1), -1);

    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}
