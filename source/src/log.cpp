// The diagnostic log: one line, its delivery, and the two settings of the log. See log.h. Runs on
// whichever thread writes a line; nothing is locked.
//
// A line is built on the caller's stack and then copied into the shared buffers. The copies are the
// library's one deliberate data race: an application reads `dbgout_info` and the line it is handed
// in place, so the buffers can be neither locked nor per thread. The copy never writes anything but
// NUL into a buffer's last byte, so that a reader always finds an end.
#include "log.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <sys/time.h>

std::atomic<int> log_level{-1};

extern "C" {
LOG_CALLBACK info_callback;
char dbgout_info[256];
}

namespace
{

char dbg_info[256];
char time_stamp[23];

// Copies the whole of `text`; the buffer's last byte stays NUL.
//
// ThreadSanitizer leaves these writes alone: the buffers are shared by contract (see above).
// Volatile keeps the loop from becoming a call of memcpy, whose interceptor would report it.
template <size_t size>
__attribute__((no_sanitize("thread"))) void publish(char (&buffer)[size], const char (&text)[size])
{
    volatile char* out = buffer;
    for (size_t i = 0; i < size - 1; i++) {
        out[i] = text[i];
    }
}

// Builds the stamp in `text` and leaves it in the shared buffer too. Empty when the clock can't be
// read or the zone not be worked out.
void make_time_stamp(char (&text)[sizeof(time_stamp)])
{
    memset(text, 0, sizeof(text));
    publish(time_stamp, text);
    timeval now;
    tm local;
    if (gettimeofday(&now, nullptr) != 0 || localtime_r(&now.tv_sec, &local) == nullptr) {
        return;
    }
    char full[96] = {};
    snprintf(full, sizeof(full), "%d-%02d-%02d %02d:%02d:%02d.%03d", local.tm_year + 1900,
             local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
             static_cast<int>(now.tv_usec / 1000));
    // The full text has 23 characters: its last digit is cut, which is part of the line format.
    memcpy(text, full, sizeof(text) - 1);
    publish(time_stamp, text);
}

} // namespace

const char* format_time()
{
    char text[sizeof(time_stamp)];
    make_time_stamp(text);
    return time_stamp;
}

void info_call(int type, const char* info, const char* /*dbgout_info*/)
{
    const LOG_CALLBACK callback = __atomic_load_n(&info_callback, __ATOMIC_ACQUIRE);
    if (callback != nullptr) {
        callback(type, info);
    } else {
        printf("%s", info);
    }
}

void log_write(int type, const char* function, int line, const char* format, ...)
{
    const int error = errno;
    char whole[sizeof(dbg_info)] = {};
    char bare[sizeof(dbgout_info)] = {};
    char stamp[sizeof(time_stamp)];

    va_list arguments;
    va_start(arguments, format);
    vsnprintf(bare, sizeof(bare), format, arguments);
    va_end(arguments);
    make_time_stamp(stamp); // not read back from the shared buffer, which another line may clear
    snprintf(whole, sizeof(whole), "[%s %s +%-4d %s] ", stamp, log_source_file, line, function);
    strncat(whole, bare, sizeof(whole) - strlen(whole) - 1);

    publish(dbg_info, whole);
    publish(dbgout_info, bare);
    info_call(type, dbg_info, dbgout_info);
    errno = error;
}

ZU_S32 ZU_NET_DEV_SetLogLevel(ZU_U32 type)
{
    if (type > ZU_LOG_LEVEL_TRACE) {
        return ZU_FAILURE;
    }
    log_level = static_cast<int>(type);
    return ZU_SUCCESS;
}

int ZU_NET_DEV_SetLogCallback(LOG_CALLBACK callback)
{
    if (callback == nullptr) {
        return ZU_FAILURE;
    }
    __atomic_store_n(&info_callback, callback, __ATOMIC_RELEASE);
    return ZU_SUCCESS;
}
