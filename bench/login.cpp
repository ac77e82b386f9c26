// The group `login`: how long Login and Logout take, and how much memory a login holds, against a
// connection with three threads. Memory is measured in a fresh process each time (memory.cpp).
#include <chrono>
#include <memory>

#include "bare_links.h"
#include "child.h"
#include "groups.h"
#include "logins.h"

namespace bench
{

namespace
{

constexpr int logins = 64;

template <class What>
double milliseconds(What what)
{
    const auto begun = std::chrono::steady_clock::now();
    what();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begun)
        .count();
}

void measure_time(report& out, unsigned short port)
{
    row in = {"Login", "ms", {}};
    row over = {"Logout", "ms", {}};
    for (int round = 0; round < rounds; round++) {
        std::unique_ptr<bare_login> reference;
        std::unique_ptr<login> own;
        const double their_in =
            milliseconds([&] { reference = std::make_unique<bare_login>(port, false); });
        const double their_out = milliseconds([&] { reference.reset(); });
        in.add(milliseconds([&] { own = std::make_unique<login>(port); }), their_in);
        over.add(milliseconds([&] { own.reset(); }), their_out);
    }
    out.add(in);
    out.add(over);
}

double resident(const std::string& who, const std::string& what, unsigned short port)
{
    child fresh("zu_bench",
                {"--as", "memory", who, what, std::to_string(port), std::to_string(logins)});
    return std::stod(fresh.read_line());
}

void measure_memory(report& out, unsigned short port, const std::string& what, const goal& wanted)
{
    row figure = {"memory of a login, " + what, "KB", wanted};
    for (int round = 0; round < rounds; round++) {
        const double theirs = resident("bare", what, port);
        figure.add(resident("library", what, port), theirs);
    }
    out.add(figure);
}

} // namespace

void measure_login(report& out)
{
    out.begin_group("login", "Login and Logout, and the resident memory of a login, against a "
                             "connection with three threads");
    const device_process device({"feeder", "20000", "0", "0", std::to_string(logins)});
    measure_time(out, device.port());
    measure_memory(out, device.port(), "idle", {});
    measure_memory(out, device.port(), "streaming", value_at_most(130));
}

} // namespace bench
