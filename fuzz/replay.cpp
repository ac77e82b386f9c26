// Runs a fuzz target over files, or over all files of folders in the order of their names: the
// committed inputs, or one that a fuzzer has found.
//
// Reads with libc alone: streams and paths are compiled into the C++ library, where the memory
// sanitizer sees nothing.
#include <algorithm>
#include <cstdio>
#include <dirent.h>
#include <string>
#include <vector>

#include "scheduler.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace
{

bool read_file(FILE* file, std::vector<uint8_t>& bytes)
{
    uint8_t piece[4096];
    size_t size = 0;
    while ((size = fread(piece, 1, sizeof(piece), file)) > 0) {
        bytes.insert(bytes.end(), piece, piece + size);
    }
    return ferror(file) == 0;
}

bool run_file(const std::string& path)
{
    std::vector<uint8_t> bytes;
    FILE* file = fopen(path.c_str(), "rb");
    const bool whole = file != nullptr && read_file(file, bytes);
    if (file != nullptr) {
        fclose(file);
    }
    if (!whole) {
        fprintf(stderr, "replay: %s can't be read\n", path.c_str());
        return false;
    }
    sim::set_run_name(path);
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    return true;
}

std::vector<std::string> files_of(const std::string& place)
{
    DIR* folder = opendir(place.c_str());
    if (folder == nullptr) {
        return {place};
    }
    std::vector<std::string> out;
    while (const dirent* entry = readdir(folder)) {
        if (entry->d_name[0] != '.') {
            out.push_back(place + '/' + entry->d_name);
        }
    }
    closedir(folder);
    std::sort(out.begin(), out.end());
    return out;
}

} // namespace

int main(int argc, char** argv)
{
    size_t count = 0;
    for (int i = 1; i < argc; i++) {
        for (const std::string& path : files_of(argv[i])) {
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
