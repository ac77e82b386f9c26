// Runs a fuzz target over files, or over all files of folders: the committed inputs, or one that a
// fuzzer has found.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "scheduler.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace
{

bool run_file(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    if (!file) {
        fprintf(stderr, "replay: %s can't be read\n", path.c_str());
        return false;
    }
    sim::set_run_name(path.string());
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    return true;
}

std::vector<std::filesystem::path> files_of(const std::filesystem::path& place)
{
    if (!std::filesystem::is_directory(place)) {
        return {place};
    }
    const std::filesystem::directory_iterator all(place);
    std::vector<std::filesystem::path> out;
    for (const auto& entry : all) {
        out.push_back(entry.path());
    }
    return out;
}

} // namespace

int main(int argc, char** argv)
{
    size_t count = 0;
    for (int i = 1; i < argc; i++) {
        for (const auto& path : files_of(argv[i])) {
            if (!run_file(path)) {
                return 1;
            }
            count++;
        }
    }
    if (count == 0) {
        fprintf(stderr, "replay: no input; name files, or folders that hold some\n");
        return 2;
    }
    printf("%zu inputs, no finding\n", count);
    return 0;
}
