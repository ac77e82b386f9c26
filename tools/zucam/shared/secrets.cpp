// Wiping and blanking of passwords. What stands in argv is overwritten in place, because that is
// what /proc shows; the copy that the program works with lives in its own memory only.
#include "shared/secrets.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace tool
{

namespace
{

constexpr std::string_view password_option = "--password";
constexpr std::string_view blank = "***";
constexpr std::size_t long_enough_anywhere = 4;

bool is_word(char character)
{
    return std::isalnum(static_cast<unsigned char>(character)) != 0;
}

bool stands_alone(const std::string& text, std::size_t at, std::size_t size)
{
    const bool begins = at == 0 || !is_word(text[at - 1]);
    const bool ends = at + size >= text.size() || !is_word(text[at + size]);
    return begins && ends;
}

void wipe(char* text)
{
    std::memset(text, 0, std::strlen(text));
}

// Where the value of --password begins that stands at this position, or in front of it.
char* password_at(int position, char** argv)
{
    const std::string_view argument = argv[position];
    if (position > 1 && argv[position - 1] == password_option) {
        return argv[position];
    }
    const bool joined = argument.substr(0, password_option.size() + 1) == "--password=";
    return joined ? argv[position] + password_option.size() + 1 : nullptr;
}

} // namespace

void secrets::add(const std::string& secret)
{
    if (!secret.empty()) {
        hidden_.push_back(secret);
    }
}

std::string secrets::blanked(std::string text) const
{
    for (const std::string& secret : hidden_) {
        std::size_t at = 0;
        while ((at = text.find(secret, at)) != std::string::npos) {
            if (secret.size() >= long_enough_anywhere || stands_alone(text, at, secret.size())) {
                text.replace(at, secret.size(), blank);
                at += blank.size();
            } else {
                ++at;
            }
        }
    }
    return text;
}

std::vector<std::string> take_arguments(int argc, char** argv, secrets& found)
{
    std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
    for (int i = 1; i < argc; ++i) {
        char* const password = password_at(i, argv);
        if (password != nullptr) {
            found.add(password);
            wipe(password);
        }
    }
    return arguments;
}

std::string take_from_environment(const char* name)
{
    char* const value = std::getenv(name);
    if (value == nullptr) {
        return "";
    }
    std::string taken = value;
    wipe(value);
    (void)unsetenv(name);
    return taken;
}

} // namespace tool
