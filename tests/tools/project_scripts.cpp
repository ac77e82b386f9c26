// The project's own scripts: what they refuse, and that the house rules see what they are to see.
// The rules are run in a copy of the sources, to which a test adds what they forbid.
#include "program_runner.h"
#include "scratch.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

namespace fs = std::filesystem;

using testing::ContainsRegex;
using testing::HasSubstr;
using tools::program;

const fs::path project = PROJECT;
// The rules read this file too.
const std::string nap = std::string("sleep") + "(1)";
const std::string ignored_failure = std::string("rm -r somewhere |") + "| true\n";

TEST(ProjectScripts, TheDemoRefusesWrongArgumentsBeforeItBuilds)
{
    const std::vector<std::vector<std::string>> wrong = {
        {"100000"},
        {"0"},
        {"--host", "name", "--port", "9000"},
        {"--host", "192.0.2.256", "--port", "9000"},
        {"--host", "192.0.2.7"},
        {"--port", "9000"},
        {"--host", "192.0.2.7", "--port", "65536"},
        {"--colour", "red"},
        {"5", "--user"}};
    for (const auto& arguments : wrong) {
        std::vector<std::string> all = {"demo"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        program run(project / "run", all);
        EXPECT_EQ(run.exit_status(), 2) << testing::PrintToString(arguments);
        EXPECT_EQ(run.output(), "") << "nothing was begun";
        EXPECT_THAT(run.errors(), testing::MatchesRegex("demo: [^\n]*\n"));
    }
}

TEST(ProjectScripts, CommandsRefuseWrongArgumentsBeforeTheyBuild)
{
    const std::vector<std::vector<std::string>> wrong = {{},
                                                         {"tset"},
                                                         {"test", "heartbeat"},
                                                         {"test", "--heartbeat"},
                                                         {"soak", "long"},
                                                         {"check", "all"},
                                                         {"build", "dev"},
                                                         {"torture", "5"},
                                                         {"fuzz", "0"},
                                                         {"fuzz", "1.5"},
                                                         {"fuzz", "1", "receiver"},
                                                         {"bench", "nosuch"},
                                                         {"bench", "--json"},
                                                         {"bench", "--json", "/no/such/folder/f"},
                                                         {"bench", "stream", "idle"},
                                                         {"bench", "--rounds"},
                                                         {"coverage", "source"},
                                                         {"docs", "html"},
                                                         {"package", "zucam"},
                                                         {"format", "run"},
                                                         {"help", "test"}};
    for (const auto& arguments : wrong) {
        program run(project / "run", arguments);
        EXPECT_EQ(run.exit_status(), 2) << testing::PrintToString(arguments);
        EXPECT_EQ(run.output(), "") << "nothing was begun";
        EXPECT_THAT(run.errors(), testing::MatchesRegex("run: [^\n]*\n"));
    }
}

TEST(ProjectScripts, TheDemosArgumentsCanBeJudgedAlone)
{
    program run(project / "scripts/demo.sh",
                {"--check", "20", "--host", "192.0.2.7", "--port", "9000", "--user", "a"});
    EXPECT_EQ(run.exit_status(), 0);
    EXPECT_EQ(run.output() + run.errors(), "");
}

class HouseRules : public testing::Test
{
protected:
    void SetUp() override
    {
        for (const char* const part : {"README.md",
                                       "CHANGELOG.md",
                                       "CONTRIBUTING.md",
                                       "docs",
                                       "cmake",
                                       "CMakeLists.txt",
                                       "CMakePresets.json",
                                       ".clang-tidy",
                                       ".clang-format",
                                       "run",
                                       ".ci",
                                       "scripts",
                                       "packaging",
                                       "source",
                                       "client",
                                       "virtual_camera",
                                       "tools",
                                       "fuzz",
                                       "examples",
                                       "bench"}) {
            fs::create_directories(copy_);
            fs::copy(project / part, copy_ / part, fs::copy_options::recursive);
        }
        fs::create_directories(copy_ / "tests");
        add("tests/some_test.cpp", "// A test.\n");
    }

    void add(const std::string& file, const std::string& text) const
    {
        std::ofstream(copy_ / file, std::ios::app) << text;
    }

    // What they print; empty when all is well.
    std::string breaches() const
    {
        program run(copy_ / "scripts/house_rules.sh", {});
        const bool good = run.exit_status() == 0;
        EXPECT_EQ(good, run.output().empty()) << run.output() << run.errors();
        return run.output() + run.errors();
    }

    const tools::scratch folder_;
    const fs::path copy_ = folder_ / "copy";
};

TEST_F(HouseRules, FindNothingInTheSourcesAsTheyAre)
{
    EXPECT_EQ(breaches(), "");
}

TEST_F(HouseRules, SeeCodeThatBeginsWithAStar)
{
    add("source/src/log.cpp", "*record = new int;\n");
    add("tests/some_test.cpp", "*later = " + nap + ";\n");
    EXPECT_THAT(breaches(), testing::AllOf(HasSubstr("the library allocates nothing"),
                                           HasSubstr("tests/some_test.cpp:2: a test polls")));
}

TEST_F(HouseRules, PassOverCommentsOfEveryShape)
{
    add("source/src/log.cpp", "/* throw\n * catch (x)\n   new thing; */ // new thing; /*\n"
                              "/* one */ /* new thing; */\n");
    add("tests/some_test.cpp", "// " + nap + "\nint i = " + nap + "; // sleep: a slow device\n");
    EXPECT_EQ(breaches(), "");
}

TEST_F(HouseRules, SeeCodeBehindWhatOnlyLooksLikeAComment)
{
    add("source/src/log.cpp", "const char* a = \"http://x/*\"; int* b = new int;\n");
    EXPECT_THAT(breaches(), HasSubstr("the library allocates nothing"));
}

TEST_F(HouseRules, SeeAFailureThatAScriptIgnores)
{
    add("scripts/lib.sh", ignored_failure);
    EXPECT_THAT(breaches(), ContainsRegex("scripts/lib\\.sh:[0-9]+: a failure is dealt with"));
}

TEST_F(HouseRules, SeeTheLayerReachIntoTheLibrary)
{
    add("client/src/frame.cpp", "#include \"zu_net_dev_disk.h\"\n");
    add("client/src/library_core.hpp", "#include \"sdk_user.h\"\n");
    EXPECT_THAT(breaches(), testing::AllOf(HasSubstr("library_core.hpp:"),
                                           HasSubstr("public headers of the library only"),
                                           testing::Not(HasSubstr("client/src/frame.cpp"))));
}

TEST_F(HouseRules, SeeAToolReachBehindThePublicHeaders)
{
    add("tools/zucam/zucam.cpp", "#include \"zu/camera.hpp\"\n");
    EXPECT_EQ(breaches(), "");
    add("tools/zucam/zucam.cpp", "#include \"virtual_camera/camera.h\"\n");
    EXPECT_THAT(breaches(), HasSubstr("a tool includes public headers"));
}

TEST_F(HouseRules, SeeAFailureThatAScriptOfThePackagesIgnores)
{
    add("packaging/debian/changelog.sh", ignored_failure);
    EXPECT_THAT(breaches(),
                ContainsRegex("packaging/debian/changelog\\.sh:[0-9]+: a failure is dealt with"));
}

TEST_F(HouseRules, SeeAVersionThatTheChangelogDoesNotTell)
{
    fs::remove(copy_ / "CHANGELOG.md");
    add("CHANGELOG.md", "# Changes\n\n## 99.0.0 (2026-11-21)\n\n- Everything.\n");
    EXPECT_THAT(breaches(), HasSubstr("CHANGELOG.md: opens with 99.0.0, but CMakeLists.txt says"));
}

TEST_F(HouseRules, SeeAnExportThatThePackagesDoNotTell)
{
    add("scripts/exports.txt", "zzz_new_function\n");
    EXPECT_THAT(breaches(), HasSubstr("packaging/debian/symbols: zzz_new_function is missing"));
}

TEST_F(HouseRules, SeeAPackageThatTheReadmeDoesNotTell)
{
    add("scripts/lib.sh", "packages_more=(zzz-tool)\n");
    EXPECT_THAT(breaches(), HasSubstr("README.md: does not say what the package zzz-tool is for"));
}

TEST_F(HouseRules, FailWhenAPathIsNotThere)
{
    fs::remove_all(copy_ / "docs");
    program run(copy_ / "scripts/house_rules.sh", {});
    EXPECT_NE(run.exit_status(), 0);
    EXPECT_THAT(run.errors(), HasSubstr("docs"));
}

} // namespace
