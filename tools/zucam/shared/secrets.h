// Passwords: taken from the arguments so that `ps` does not show them, and blanked in what is
// printed. Filled by the main thread before any other runs, then only read.
#pragma once

#include <string>
#include <vector>

namespace tool
{

class secrets
{
public:
    void add(const std::string& secret); // an empty one is none
    // The text with "***" for every secret in it. One of fewer than four characters is blanked only
    // where it stands as a word: within words it would tell itself by what is missing.
    std::string blanked(std::string text) const;

private:
    std::vector<std::string> hidden_;
};

// Copies the arguments behind the program's name, and wipes the values of --password, which are
// added to the secrets, where the system keeps them.
std::vector<std::string> take_arguments(int argc, char** argv, secrets& found);

// The value of an environment variable, which is then removed; empty when there is none.
std::string take_from_environment(const char* name);

} // namespace tool
