// The thread that takes the signals. It polls a signalfd and an eventfd that tells it to end; the
// main thread sees a flag, and another eventfd where it waits.
#include "shared/stop_signals.h"

#include "shared/exit_codes.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>

namespace tool
{

namespace
{

bool is_ignored(int number)
{
    struct sigaction present = {};
    (void)sigaction(number, nullptr, &present);
    return present.sa_handler == SIG_IGN;
}

sigset_t ending_signals()
{
    sigset_t all;
    (void)sigemptyset(&all);
    (void)sigaddset(&all, SIGINT);
    (void)sigaddset(&all, SIGTERM);
    if (!is_ignored(SIGHUP)) {
        (void)sigaddset(&all, SIGHUP);
    }
    return all;
}

int checked(int descriptor)
{
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "no descriptor for signals");
    }
    return descriptor;
}

void raise_flag(int event)
{
    const std::uint64_t one = 1;
    (void)!write(event, &one, sizeof one); // it can only be full, and then it is readable
}

} // namespace

stop_signals::stop_signals()
{
    const sigset_t all = ending_signals();
    (void)pthread_sigmask(SIG_BLOCK, &all, &before_);
    (void)std::signal(SIGPIPE, SIG_IGN);
    (void)std::signal(SIGXFSZ, SIG_IGN);
    signals_ = checked(signalfd(-1, &all, SFD_CLOEXEC));
    asked_ = checked(eventfd(0, EFD_CLOEXEC));
    ended_ = checked(eventfd(0, EFD_CLOEXEC));
    watcher_ = std::thread([this] { watch(); });
}

stop_signals::~stop_signals()
{
    raise_flag(ended_);
    watcher_.join();
    for (const int each : {signals_, asked_, ended_}) {
        (void)close(each);
    }
}

void stop_signals::watch()
{
    for (;;) {
        std::array<pollfd, 2> wanted = {{{signals_, POLLIN, 0}, {ended_, POLLIN, 0}}};
        (void)poll(wanted.data(), wanted.size(), -1);
        if (wanted[1].revents != 0) {
            return;
        }
        signalfd_siginfo taken = {};
        if (wanted[0].revents == 0 || read(signals_, &taken, sizeof taken) <= 0) {
            continue;
        }
        if (!orderly_ || asked_to_end_) {
            _exit(static_cast<int>(exit_code::interrupted));
        }
        asked_to_end_ = true;
        raise_flag(asked_);
    }
}

void stop_signals::finish_orderly(bool orderly)
{
    orderly_ = orderly;
}

bool stop_signals::asked_to_end() const
{
    return asked_to_end_;
}

int stop_signals::descriptor() const
{
    return asked_;
}

void stop_signals::wait(std::chrono::milliseconds duration) const
{
    pollfd wanted = {asked_, POLLIN, 0};
    (void)poll(&wanted, 1, static_cast<int>(duration.count()));
}

void stop_signals::hand_back()
{
    (void)std::signal(SIGPIPE, SIG_DFL);
    (void)std::signal(SIGXFSZ, SIG_DFL);
    (void)pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

} // namespace tool
