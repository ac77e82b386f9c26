// A folder that is there for one test. See scratch.h.
#include "scratch.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <stdexcept>

namespace tools
{

namespace fs = std::filesystem;

scratch::scratch() : path_(testing::TempDir() + "zucam.XXXXXX")
{
    if (mkdtemp(path_.data()) == nullptr) {
        throw std::runtime_error("no folder " + path_);
    }
}

scratch::~scratch()
{
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

std::string scratch::operator/(const std::string& name) const
{
    return path_ + "/" + name;
}

std::string scratch::write(const std::string& name, const std::string& text) const
{
    std::ofstream(*this / name) << text;
    return *this / name;
}

std::string scratch::read(const std::string& name) const
{
    std::ifstream file(*this / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::vector<std::string> scratch::names() const
{
    std::vector<std::string> all;
    for (const fs::directory_entry& each : fs::directory_iterator(path_)) {
        all.push_back(each.path().filename());
    }
    std::sort(all.begin(), all.end());
    return all;
}

} // namespace tools
