// Logging in: what is refused, what fails and how, and that a login that failed leaves nothing.
#include "client_kit.h"

#include "seam.h"

namespace
{

using namespace support;
using zu::Camera;
using zu::Errc;

class LogIn : public ClientTest
{
protected:
    std::error_code result_of(const zu::CameraAddress& address,
                              const zu::CameraOptions& options = {}) const
    {
        return Camera::log_in(address, options).error();
    }
    std::error_code with(const std::function<void(zu::CameraOptions&)>& change) const
    {
        zu::CameraOptions options;
        change(options);
        return result_of(address_of(device->port()), options);
    }
};

TEST_F(LogIn, MakesACameraWhoseLinkIsUp)
{
    const zu::Camera& its = log_in();
    EXPECT_EQ(its.link().state, zu::LinkState::up);
    EXPECT_LE(its.link().since, zu::Clock::now());
    EXPECT_EQ(its.media().state, zu::MediaState::off);
    EXPECT_EQ(device->connections_made(), 1);
}

TEST_F(LogIn, GivesTheSameWithoutAnException)
{
    auto made = Camera::log_in(address_of(device->port()));
    ASSERT_TRUE(made) << made.error().message();
    EXPECT_EQ(made->link().state, zu::LinkState::up);
}

TEST_F(LogIn, RefusesAnAddressThatTheLibraryWouldReadAsAnother)
{
    const auto good = address_of(device->port());
    const auto with_host = [&](const std::string& host) {
        auto address = good;
        address.host = host;
        return result_of(address);
    };
    EXPECT_EQ(with_host(""), Errc::bad_argument);
    EXPECT_EQ(with_host("localhost"), Errc::bad_argument);
    EXPECT_EQ(with_host("127.1"), Errc::bad_argument);
    EXPECT_EQ(with_host("127.0.0.256"), Errc::bad_argument);
    EXPECT_EQ(with_host("127.0.0.1 "), Errc::bad_argument);
    EXPECT_EQ(with_host(std::string("127.0.0.1\0x", 11)), Errc::bad_argument);
    auto no_port = good;
    no_port.port = 0;
    EXPECT_EQ(result_of(no_port), Errc::bad_argument);
    EXPECT_EQ(device->connections_made(), 0);
}

TEST_F(LogIn, RefusesTextsThatTheLibraryWouldCut)
{
    auto address = address_of(device->port());
    address.user = "sixteen letters!";
    EXPECT_EQ(result_of(address), Errc::bad_argument);
    address.user = std::string("ad\0min", 6);
    EXPECT_EQ(result_of(address), Errc::bad_argument);
    address.user = "fifteen letters";
    address.password = "sixteen letters!";
    EXPECT_EQ(result_of(address), Errc::bad_argument);
    address.password = "fifteen letters";
    EXPECT_EQ(result_of(address), std::error_code());
}

TEST_F(LogIn, RefusesOptionsOutOfRange)
{
    EXPECT_EQ(with([](auto& o) { o.stalled_after = milliseconds(199); }), Errc::bad_argument);
    EXPECT_EQ(with([](auto& o) { o.peer_silent_after = milliseconds(999); }), Errc::bad_argument);
    EXPECT_EQ(with([](auto& o) { o.deadline = milliseconds(0); }), Errc::bad_argument);
    EXPECT_EQ(with([](auto& o) { o.requests_at_once = 0; }), Errc::bad_argument);
    EXPECT_EQ(with([](auto& o) { o.requests_at_once = 65; }), Errc::bad_argument);
    EXPECT_EQ(with([](auto& o) { o.queue.frames = 0; }), Errc::bad_argument);
    EXPECT_EQ(with([](auto& o) { o.queue.when_full = static_cast<zu::WhenFull>(3); }),
              Errc::bad_argument);
    EXPECT_EQ(device->connections_made(), 0);
}

TEST_F(LogIn, TakesTheLargestNumbersThereAre)
{
    EXPECT_EQ(with([](auto& o) {
                  o.stalled_after = milliseconds::max();
                  o.peer_silent_after = milliseconds::max();
                  o.deadline = milliseconds::max();
              }),
              std::error_code());
}

TEST_F(LogIn, TellsWhenNobodyIsThere)
{
    device->refuse();
    EXPECT_EQ(result_of(address_of(device->port())), Errc::cannot_connect);
}

TEST_F(LogIn, ThrowsWhatTheConstructorCannotReturn)
{
    device->refuse();
    try {
        const Camera never(address_of(device->port()));
        FAIL() << "nobody was there";
    } catch (const std::system_error& failure) {
        EXPECT_EQ(failure.code(), Errc::cannot_connect);
    }
}

TEST_F(LogIn, NeedsALibrary)
{
    library.reset();
    EXPECT_EQ(result_of(address_of(device->port())), Errc::closed);
    EXPECT_EQ(device->connections_made(), 0);
}

} // namespace
