// Lies that take their time: devices that refuse, hang up, don't read or hardly speak, for as long
// as the library bears it. The rest is as in hostile_test.cpp.
#include <linux/sockios.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "hostile_kit.h"
#include "seam.h"

using namespace support;
using namespace hostile;

using std::chrono::milliseconds;

namespace
{

// A request as long as they come, as an application's socket sends it.
bytes long_request(unsigned number)
{
    return make_message(0x1061, 0, pattern(sender_room - 12, number));
}

int bytes_of(int socket, unsigned long which)
{
    int count = 0;
    ioctl(socket, which, &count);
    return count;
}

// Hands one request to the login's sender, and waits until that has taken it or the link is lost.
bool request_taken(const lying_device& d, loopback_socket& application, const bytes& request)
{
    application.send_to(d.int_port(), request);
    return eventually([&] { return !d.link_up() || bytes_of(d.int_sock(), SIOCINQ) == 0; });
}

// Whether something waits at the login's end and nothing is on the way: the device's window is
// shut, and no acknowledgement will open it.
bool held_up(const lying_device& d)
{
    tcp_info now = {};
    socklen_t length = sizeof(now);
    getsockopt(d.ext_sock(), IPPROTO_TCP, TCP_INFO, &now, &length);
    return now.tcpi_notsent_bytes > 0 && now.tcpi_unacked == 0;
}

int size_of(int socket, int which_buffer)
{
    int size = 0;
    socklen_t length = sizeof(size);
    getsockopt(socket, SOL_SOCKET, which_buffer, &size, &length);
    return size;
}

// A device that speaks twice a second, of nothing, and so keeps the receiver from giving it up.
class chatter
{
public:
    explicit chatter(lying_device& d)
        : voice([this, &d] {
              while (!over) {
                  d.send(make_message(0x7777, 0, {}));
                  pause(milliseconds(500));
              }
          })
    {
    }
    ~chatter()
    {
        over = true;
        voice.join();
    }

private:
    std::atomic<bool> over{false};
    std::thread voice;
};

} // namespace

TEST_F(Hostile, TenSecondsOfAZeroWindowLoseNothing)
{
    lie_to_one([](lying_device& d) {
        constexpr int device_room = 64 * 1024; // however much the machine would give it
        setsockopt(d.link.socket(), SOL_SOCKET, SO_RCVBUF, &device_room, sizeof(device_room));
        unsigned requests = 0;
        loopback_socket application;
        {
            const chatter alive(d);
            for (; !held_up(d); requests++) {
                ASSERT_TRUE(request_taken(d, application, long_request(requests)));
                ASSERT_TRUE(eventually(
                    [&] { return held_up(d) || bytes_of(d.ext_sock(), SIOCOUTQ) == 0; }));
                ASSERT_LT(requests, 1000U) << "the device takes more and more";
            }
            // And more, but a send must not have to wait for room: it would give up.
            const int own_room = size_of(d.ext_sock(), SO_SNDBUF) / 2;
            while (requests < 100 && bytes_of(d.ext_sock(), SIOCOUTQ) + sender_room < own_room) {
                ASSERT_TRUE(request_taken(d, application, long_request(requests++)));
            }
            pause(std::chrono::seconds(10));
            EXPECT_GT(bytes_of(d.ext_sock(), SIOCOUTQ), 0) << "nothing is held up";
            for (unsigned i = 0; i < requests; i++) {
                auto request = d.link.read_message();
                while (request && request->type == 0x1021) { // the sender has waited for this test
                    request = d.link.read_message();
                }
                ASSERT_TRUE(request) << i;
                EXPECT_TRUE(request->wait_port == application.wait_port() &&
                            request->body == pattern(sender_room - 12, i))
                    << i;
            }
        }
        answer_of_length(d, 4);
        EXPECT_TRUE(d.in_step());
    });
}

// A send that has written a part within its three seconds counts as done; the next one fails.
TEST_F(Hostile, ADeviceThatNeverReadsIsGivenUpOnceNothingMoreGoesOut)
{
    lie_to_one([this](lying_device& d) {
        {
            const chatter alive(d);
            loopback_socket application;
            for (unsigned i = 0; d.link_up() && i < 100000; i++) {
                request_taken(d, application, long_request(i));
            }
        }
        EXPECT_TRUE(d.link_lost());
        EXPECT_TRUE(log.wait_for("send faill!\n"));
        EXPECT_TRUE(d.accept_again());
        EXPECT_TRUE(d.in_step());
    });
}

// The header alone takes twelve seconds, in which the receiver does nothing else.
TEST_F(Hostile, OneByteASecondIsStillAFrame)
{
    lie_to_one([](lying_device& d) {
        byte_by_byte(d, 0, milliseconds(1000));
        EXPECT_TRUE(d.in_step());
    });
}

TEST_F(Hostile, TenThousandRefusedConnectsLaterTheLoginComesBack)
{
    lie_to_one([this](lying_device& d) {
        d.refuse();
        end(d, ending::abrupt);
        ASSERT_TRUE(d.link_lost());
        const before_call connects("connect");
        ASSERT_TRUE(eventually([&] { return connects.count() > 2 * 10000; })); // twice for each
        d.listen_again();
        EXPECT_TRUE(d.accept_again());
        EXPECT_TRUE(d.in_step());
        size_t lines = 0; // one for every sixth
        for (const std::string& message : log.messages_of("sdk_devmanager_main")) {
            lines += message.rfind("tcp_connect to 127.0.0.1:", 0) == 0 ? 1 : 0;
        }
        EXPECT_GE(lines, 10000U / 6);
    });
}

TEST_F(Hostile, ConnectionsThatAreClosedAtOnceAreTriedAgain)
{
    lie_to_one([](lying_device& d) {
        end(d, ending::orderly);
        ASSERT_TRUE(d.link_lost());
        EXPECT_TRUE(d.accept_again(10));
        EXPECT_TRUE(d.in_step());
    });
}

// Login gives up: at once when the first connection has ended before it is looked at, or else after
// some seconds; unless one has lasted just long enough to count.
TEST_F(Hostile, ALoginToADeviceThatClosesEveryConnectionEnds)
{
    scripted_device device;
    std::atomic<bool> over{false};
    int closed = 0;
    std::thread closing([&] {
        while (!over) {
            peer end = device.accept(milliseconds(20));
            closed += end.open() ? 1 : 0;
        }
    });
    {
        live_login login(device.port());
        EXPECT_TRUE(login.result() == ZU_FAILURE || login.log_out() == ZU_SUCCESS);
    }
    over = true;
    closing.join();
    while (device.accept(milliseconds(0)).open()) { // those that it was too late for
        closed++;
    }
    EXPECT_GT(closed, 0);
}
