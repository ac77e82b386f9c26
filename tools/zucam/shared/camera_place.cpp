// Addresses, names and passwords. The library takes dotted IPv4 alone, so names of hosts are
// resolved here. User and password: the option wins over the environment, that over the list.
#include "shared/camera_place.h"

#include "shared/exit_codes.h"
#include "shared/password_prompt.h"
#include "shared/values.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <memory>
#include <netdb.h>

namespace tool
{

namespace
{

constexpr std::uint16_t usual_port = 9000;
constexpr std::size_t longest_text = 15; // of user and password; the library would cut them

struct host_and_port {
    std::string host;
    std::uint16_t port;
};

host_and_port split(const std::string& text)
{
    const std::size_t colon = text.find(':');
    if (colon == std::string::npos) {
        return {text, usual_port};
    }
    const auto port = whole_number(text.substr(colon + 1));
    if (!port || *port < 1 || *port > 65535) {
        throw bad_value("CAMERA", text, "HOST:PORT with a port from 1 to 65535");
    }
    return {text.substr(0, colon), static_cast<std::uint16_t>(*port)};
}

bool is_dotted(const std::string& host)
{
    in_addr address = {};
    return inet_pton(AF_INET, host.c_str(), &address) == 1;
}

// What was meant for an address and is none is not asked for in the network.
bool may_be_host(const std::string& host)
{
    return !host.empty() &&
           host.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                  "0123456789.-") == std::string::npos &&
           host.find_first_not_of("0123456789.") != std::string::npos;
}

// The dotted address of a host; empty when nobody knows one.
std::string resolved(const std::string& host)
{
    addrinfo wanted = {};
    addrinfo* found = nullptr;
    wanted.ai_family = AF_INET;
    wanted.ai_socktype = SOCK_STREAM;
    const int result = getaddrinfo(host.c_str(), nullptr, &wanted, &found);
    if (result == EAI_AGAIN) {
        throw failure(exit_code::cannot_connect,
                      fmt::format("the name server does not say where '{}' is", host));
    }
    if (result != 0) {
        return "";
    }
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, freeaddrinfo);
    char text[INET_ADDRSTRLEN] = {};
    const auto* const address = reinterpret_cast<const sockaddr_in*>(found->ai_addr);
    return inet_ntop(AF_INET, &address->sin_addr, text, sizeof text);
}

[[noreturn]] void refuse_unknown(const std::string& text, const camera_list* list)
{
    std::string line =
        fmt::format("'{}' is no camera; give an address such as 192.0.2.7:9000", text);
    if (list != nullptr && list->cameras.empty()) {
        line += fmt::format(", or list it in {}", list->file);
    } else if (list != nullptr) {
        line += fmt::format(", or a name of {}: {}", list->file, list->names());
    }
    throw failure(exit_code::usage, line);
}

// The address of a text that is one, or else of the list's camera behind it.
host_and_port address_of(const std::string& text, const camera_list* list)
{
    host_and_port address = split(text);
    if (!is_dotted(address.host)) {
        const std::string dotted = may_be_host(address.host) ? resolved(address.host) : "";
        if (dotted.empty()) {
            refuse_unknown(text, list);
        }
        address.host = dotted;
    }
    return address;
}

std::string short_enough(const std::string& option, const std::string& text)
{
    if (text.size() > longest_text) { // and is not repeated, since it may be the password
        throw failure(exit_code::usage, option + ": devices take 15 characters at most");
    }
    return text;
}

std::optional<std::string> first_of(const std::optional<std::string>& option,
                                    const char* environment,
                                    const std::optional<std::string>& listed)
{
    const std::string set = take_from_environment(environment);
    if (option) {
        return option;
    }
    return set.empty() ? listed : std::make_optional(set);
}

void fill_in_user(toolbox& tools, const listed_camera& listed, camera_place& place)
{
    const common_options& options = tools.options;
    place.address.user =
        short_enough("--user", first_of(options.user, "ZUCAM_USER", listed.user).value_or("admin"));
    auto password = first_of(options.password, "ZUCAM_PASSWORD", listed.password);
    if (password) {
        tools.out.hide(*password);
    } else if (can_ask_for_password()) {
        password = ask_for_password(tools.signals, place.address.user, place.label);
        tools.out.hide(*password);
    }
    place.address.password = short_enough("--password", password.value_or(""));
}

} // namespace

camera_place find_camera(toolbox& tools, const std::string& text)
{
    listed_camera listed;
    std::optional<camera_list> list;
    if (!is_dotted(text.substr(0, text.find(':')))) {
        list = read_camera_list(tools.options.camera_list);
        const listed_camera* const found = list->find(text);
        listed = found != nullptr ? *found : listed_camera();
    }
    const bool by_name = !listed.name.empty();
    const host_and_port address =
        address_of(by_name ? listed.address : text, list ? &*list : nullptr);
    camera_place place;
    place.address.host = address.host;
    place.address.port = address.port;
    place.label = fmt::format("{}:{}", address.host, address.port);
    if (by_name) {
        place.label = fmt::format("{} ({})", text, place.label);
    }
    place.numbers = listed.numbers;
    fill_in_user(tools, listed, place);
    place.label = tools.out.shown(place.label);
    return place;
}

} // namespace tool
