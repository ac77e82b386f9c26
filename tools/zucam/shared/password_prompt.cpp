// The prompt waits for the terminal and for the signals at once, so that an interruption finds the
// echo restored. The question goes to standard error: standard output is for data.
#include "shared/password_prompt.h"

#include "shared/exit_codes.h"

#include <array>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace tool
{

namespace
{

class without_echo
{
public:
    without_echo()
    {
        (void)tcgetattr(STDIN_FILENO, &before_);
        termios silent = before_;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        silent.c_lflag |= ECHONL;
        (void)tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
    }
    ~without_echo()
    {
        (void)tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_);
    }
    without_echo(const without_echo&) = delete;
    without_echo& operator=(const without_echo&) = delete;

private:
    termios before_ = {};
};

// One character; 0 at the end of the input. A byte at a time, since what follows the line is not
// ours.
char next_character(const stop_signals& signals)
{
    std::array<pollfd, 2> wanted = {{{STDIN_FILENO, POLLIN, 0}, {signals.descriptor(), POLLIN, 0}}};
    (void)poll(wanted.data(), wanted.size(), -1);
    if (wanted[1].revents != 0) {
        throw interrupted();
    }
    char character = 0;
    return read(STDIN_FILENO, &character, 1) == 1 ? character : '\0';
}

void show(const std::string& text)
{
    (void)!write(STDERR_FILENO, text.data(), text.size()); // a terminal, a moment ago
}

} // namespace

bool can_ask_for_password()
{
    return isatty(STDIN_FILENO) == 1 && isatty(STDERR_FILENO) == 1;
}

std::string ask_for_password(stop_signals& signals, const std::string& user,
                             const std::string& camera)
{
    signals.finish_orderly();
    const without_echo silence;
    show("password of " + user + " at " + camera + " (may be empty): ");
    std::string password;
    for (char next = next_character(signals); next != '\n' && next != '\0';
         next = next_character(signals)) {
        password += next;
    }
    signals.finish_orderly(false);
    return password;
}

} // namespace tool
