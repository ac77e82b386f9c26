// The library object: one at a time, and no order in which it has to go.
#include "client_kit.h"

#include "log.h"
#include "sdk_user.h"
#include "zu_net_dev_api.h"

namespace
{

using namespace support;
using zu::Errc;

class LibraryObject : public ClientTest
{
protected:
    static std::error_code another()
    {
        try {
            const zu::Library second;
        } catch (const std::system_error& failure) {
            return failure.code();
        }
        return {};
    }
};

TEST_F(LibraryObject, MakesTheLibraryReadyWithATimeLimitForRequests)
{
    EXPECT_EQ(zu_sdk_inited, 1);
    EXPECT_EQ(log_level, 1);
    library.reset();
    EXPECT_EQ(zu_sdk_inited, 0);
    library = std::make_unique<zu::Library>(zu::LibraryOptions{{}, true});
    EXPECT_EQ(log_level, 2);
}

TEST_F(LibraryObject, IsTheOnlyOne)
{
    EXPECT_EQ(another(), Errc::library_in_use);
    log_in();
    EXPECT_EQ(camera->standard(1, 1), std::error_code()) << "the first is none the worse";
    camera.reset();
    library.reset();
    EXPECT_EQ(another(), std::error_code());
}

TEST_F(LibraryObject, IsNotMadeWhenTheLibraryWasInitialisedElsewhere)
{
    library.reset();
    EXPECT_EQ(ZU_NET_DEV_Init(), 0);
    EXPECT_EQ(another(), Errc::library_in_use);
    EXPECT_EQ(zu_sdk_inited, 1) << "and leaves it alone";
    EXPECT_EQ(ZU_NET_DEV_DeInit(), 0);
    EXPECT_EQ(another(), std::error_code());
}

TEST_F(LibraryObject, MayGoBeforeItsCameras)
{
    log_in();
    library.reset();
    EXPECT_EQ(zu_sdk_inited, 1);
    EXPECT_EQ(camera->standard(1, 1), std::error_code());
    device->drop_links();
    EXPECT_TRUE(events.wait_for(zu::EventKind::link_up));
    EXPECT_EQ(zu::Camera::log_in(address_of(device->port())).error(), Errc::closed);
    EXPECT_EQ(another(), Errc::library_in_use) << "as long as a camera uses it";
    camera.reset();
    EXPECT_EQ(zu_sdk_inited, 0);
    EXPECT_EQ(another(), std::error_code());
}

TEST_F(LibraryObject, CanBeMadeFromManyThreadsAtOnce)
{
    library.reset();
    std::atomic<int> made{0};
    std::atomic<int> refused{0};
    std::vector<std::thread> makers;
    for (int i = 0; i < 8; i++) {
        makers.emplace_back([&] {
            for (int k = 0; k < 200; k++) {
                const auto outcome = another();
                EXPECT_TRUE(!outcome || outcome == Errc::library_in_use);
                ++(outcome ? refused : made);
            }
        });
    }
    for (auto& maker : makers) {
        maker.join();
    }
    EXPECT_EQ(made + refused, 1600);
    EXPECT_GT(made, 0);
    EXPECT_EQ(zu_sdk_inited, 0);
}

} // namespace
