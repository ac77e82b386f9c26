// Error codes and results.
#include "client_kit.h"

namespace
{

using zu::Errc;
using zu::Result;

TEST(Errors, SayWhatTheyMean)
{
    std::set<std::string> texts;
    for (int value = 1; value <= static_cast<int>(Errc::closed); value++) {
        const std::error_code code = static_cast<Errc>(value);
        EXPECT_TRUE(code);
        EXPECT_EQ(code.category(), zu::error_category());
        EXPECT_NE(code.message(), "unknown failure");
        EXPECT_FALSE(zu::refused(code));
        texts.insert(code.message());
    }
    EXPECT_EQ(texts.size(), 9U) << "each in its own words";
    EXPECT_EQ(std::error_code(99, zu::error_category()).message(), "unknown failure");
    EXPECT_STREQ(zu::error_category().name(), "zu");
}

TEST(Errors, OfADeviceCarryItsCode)
{
    const std::error_code code(7, zu::device_category());
    EXPECT_TRUE(zu::refused(code));
    EXPECT_EQ(code.message(), "refused by the device (code 7)");
    EXPECT_NE(code, std::error_code(Errc::busy)) << "7 is another thing there";
    EXPECT_FALSE(zu::refused(std::error_code(0, zu::device_category())));
    EXPECT_STREQ(zu::device_category().name(), "zu.device");
}

TEST(Results, HoldAValue)
{
    Result<std::string> result(std::string("value"));
    EXPECT_TRUE(result);
    EXPECT_FALSE(result.error());
    EXPECT_EQ(result.value(), "value");
    EXPECT_EQ(*result, "value");
    EXPECT_EQ(result->size(), 5U);
    EXPECT_EQ(std::move(result).value(), "value");
}

TEST(Results, OrTellWhyThereIsNone)
{
    const Result<int> result(Errc::link_down);
    EXPECT_FALSE(result);
    EXPECT_EQ(result.error(), Errc::link_down);
    try {
        const int value = result.value();
        FAIL() << value;
    } catch (const std::system_error& failure) {
        EXPECT_EQ(failure.code(), Errc::link_down);
    }
}

TEST(Results, HoldWhatCanOnlyBeMoved)
{
    Result<std::unique_ptr<int>> result(std::make_unique<int>(4));
    const std::unique_ptr<int> taken = std::move(result).value();
    EXPECT_EQ(*taken, 4);
}

TEST(Events, HaveNames)
{
    std::set<std::string> names;
    for (int kind = 0; kind <= static_cast<int>(zu::EventKind::movement_stopped); kind++) {
        names.insert(zu::name_of(static_cast<zu::EventKind>(kind)));
    }
    EXPECT_EQ(names.size(), 11U);
    EXPECT_EQ(names.count("link up"), 1U);
    EXPECT_EQ(names.count("unknown event"), 0U);
    EXPECT_STREQ(zu::name_of(static_cast<zu::EventKind>(99)), "unknown event");
}

} // namespace
