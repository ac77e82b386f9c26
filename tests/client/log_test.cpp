// The log: what reaches the program's handler, and what never does.
#include "client_kit.h"
#include "log_route.hpp"

#include "zu_net_dev_api.h"

namespace
{

using namespace support;
using testing::Each;
using testing::HasSubstr;
using testing::Not;

class Log : public ClientTest
{
protected:
    void listen(bool trace)
    {
        library.reset();
        library = std::make_unique<zu::Library>(zu::LibraryOptions{lines.handler(), trace});
    }
    // A line that the C library might write.
    void write(const std::string& line) const
    {
        info_callback(ZU_LOG_TYPE_ERROR, line.c_str());
    }

    LineLog lines;
};

TEST_F(Log, TellsOnlyWhatWentWrong)
{
    listen(false);
    log_in();
    EXPECT_EQ(camera->standard(1, 1), std::error_code());
    EXPECT_THAT(lines.all(), testing::IsEmpty());
    device->refuse();
    EXPECT_FALSE(zu::Camera::log_in(address_of(device->port())));
    EXPECT_THAT(lines.all(), Each(HasSubstr("E [")));
    EXPECT_GT(lines.count("tcp_connect"), 0U);
}

TEST_F(Log, TellsEveryStepWhenAsked)
{
    listen(true);
    log_in();
    EXPECT_EQ(lines.count("enter ZU_NET_DEV_Login"), 1U);
    EXPECT_GT(lines.count("T ["), 0U);
}

TEST_F(Log, HasLinesWithoutTheirEnd)
{
    listen(true);
    log_in();
    camera.reset();
    EXPECT_FALSE(lines.all().empty());
    EXPECT_THAT(lines.all(), Each(Not(HasSubstr("\n"))));
}

TEST_F(Log, NeverShowsAPassword)
{
    listen(true);
    {
        const zu::Camera its({"127.0.0.1", device->port(), "admin", "pa55-Wort*x"});
        write("someone says pa55-Wort*x twice: pa55-Wort*xpa55-Wort*x\n");
    }
    EXPECT_EQ(lines.count("pa55"), 0U);
    EXPECT_EQ(lines.count("password:***"), 1U) << "the line of the login itself";
    EXPECT_EQ(lines.count("someone says *** twice: ******"), 1U);
    write("pa55-Wort*x\n");
    EXPECT_EQ(lines.count("pa55"), 1U) << "no camera has it any more";
}

TEST_F(Log, BlanksOutTheLongerOfTwoPasswords)
{
    listen(false);
    const zu::detail::Secret shorter("abc");
    const zu::detail::Secret longer("abcdef");
    const zu::detail::Secret again("abc");
    const zu::detail::Secret none("");
    write("abcdefabcd\n");
    EXPECT_THAT(lines.all(), testing::ElementsAre("E ******d"));
}

TEST_F(Log, BlanksOutEveryLetterOfALongLine)
{
    listen(false);
    const zu::detail::Secret letter("x");
    write(std::string(255, 'x'));
    EXPECT_EQ(lines.all().at(0).size(), 2 + 3 * 255U);
}

TEST_F(Log, CutsWhatIsTooLong)
{
    listen(false);
    write(std::string(300, 'y'));
    write("");
    write("\r\n\n");
    EXPECT_THAT(lines.all(), testing::ElementsAre("E " + std::string(255, 'y'), "E ", "E "));
}

TEST_F(Log, IsSilentWithoutAHandler)
{
    device->refuse();
    testing::internal::CaptureStdout();
    EXPECT_FALSE(zu::Camera::log_in(address_of(device->port())));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(Log, GoesNowhereWhenTheLibraryHasGone)
{
    listen(true);
    write("in time\n");
    EXPECT_EQ(lines.all().size(), 1U);
    library.reset();
    const size_t by_then = lines.all().size();
    write("late\n");
    EXPECT_EQ(lines.all().size(), by_then);
}

TEST_F(Log, DoesNotCallItsHandlerFromInsideIt)
{
    int depth = 0;
    int calls = 0;
    library.reset();
    zu::LibraryOptions options;
    options.log = [&](const zu::LogLine& line) {
        ++calls;
        EXPECT_EQ(++depth, 1);
        EXPECT_EQ(line.text, "one");
        write("two\n");
        --depth;
    };
    library = std::make_unique<zu::Library>(options);
    write("one\n");
    write("one\n");
    EXPECT_EQ(calls, 2);
}

// A line that is under way when the library object ends is waited for; none is begun afterwards.
TEST_F(Log, EndsWithTheLibrary)
{
    for (int round = 0; round < 50; round++) {
        auto witness = std::make_unique<std::atomic<int>>(0);
        library.reset();
        library = std::make_unique<zu::Library>(
            zu::LibraryOptions{[use = witness.get()](const zu::LogLine&) { ++*use; }, false});
        std::atomic<bool> over{false};
        std::vector<std::thread> writers;
        for (int i = 0; i < 3; i++) {
            writers.emplace_back([&] {
                while (!over) {
                    write("line\n");
                }
            });
        }
        EXPECT_TRUE(eventually([&] { return *witness > 10; }));
        library.reset();
        witness.reset();
        over = true;
        for (auto& writer : writers) {
            writer.join();
        }
    }
}

} // namespace
