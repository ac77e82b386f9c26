// The reachability probe. See ping.h. Runs on the caller's thread and keeps no state.
#include "ping.h"

#include <cerrno>
#include <sys/wait.h>
#include <unistd.h>

#include "log.h"

int ping_status(const char* ip)
{
    LOG_TRACE(__func__, "enter\n");
    // The child shares this process's memory until it executes "ping", so a large application is
    // not copied for a probe.
    const pid_t pid = vfork(); // NOLINT(clang-analyzer-security.insecureAPI.vfork)
    if (pid < 0) {
        LOG_ERROR(__func__, "vfork error\n");
        return -1;
    }
    if (pid == 0) {
        execlp("ping", "ping", "-w", "1", ip, static_cast<char*>(nullptr));
        LOG_ERROR(__func__, "execlp error\n"); // NOLINT(clang-analyzer-unix.Vfork)
        _exit(127);
    }
    int status = -1;
    while (waitpid(pid, &status, 0) == -1 && errno == EINTR) {
    }
    LOG_LINE(log_at_error_levels, ZU_LOG_TYPE_TRACE, __func__, "status: %d\n", status);
    return status == 0 ? 0 : -1;
}
