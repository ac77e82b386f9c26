// Waiting on descriptors of any number. See fd_wait.h.
//
// `select` reads and writes as many bits of a set as the descriptor count asks for, so a longer set
// than fd_set serves. The sets stand on the stack and are cleared only as far as they are used.
// Runs on any thread.
#include "fd_wait.h"

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/select.h>

namespace
{

constexpr int fd_limit = 65536;
constexpr int bits_per_word = 8 * sizeof(unsigned long);

// The layout of `fd_set`, longer. Only the words up to the highest descriptor are ever touched.
struct fd_bits {
    unsigned long words[fd_limit / bits_per_word];

    void clear(int count)
    {
        memset(words, 0, sizeof(words[0]) * ((count + bits_per_word - 1) / bits_per_word));
    }
    void set(int fd)
    {
        words[fd / bits_per_word] |= 1UL << (fd % bits_per_word);
    }
    bool test(int fd) const
    {
        return (words[fd / bits_per_word] >> (fd % bits_per_word) & 1UL) != 0;
    }
    fd_set* for_select()
    {
        return reinterpret_cast<fd_set*>(words);
    }
};

// The descriptor count for `select`, or -1 when a descriptor has no place in the sets.
int descriptor_count(const fd_watch* watches, int count)
{
    int highest = -1;
    for (int i = 0; i < count; i++) {
        if (watches[i].fd < 0 || watches[i].fd >= fd_limit) {
            return -1;
        }
        if (watches[i].fd > highest) {
            highest = watches[i].fd;
        }
    }
    return highest + 1;
}

bool any_wants(const fd_watch* watches, int count, fd_condition condition)
{
    for (int i = 0; i < count; i++) {
        if ((watches[i].wanted & condition) != 0) {
            return true;
        }
    }
    return false;
}

// Fills the set for one condition; null when nobody wants it.
fd_set* fill(fd_bits& bits, int nfds, const fd_watch* watches, int count, fd_condition condition)
{
    if (!any_wants(watches, count, condition)) {
        return nullptr;
    }
    bits.clear(nfds);
    for (int i = 0; i < count; i++) {
        if ((watches[i].wanted & condition) != 0) {
            bits.set(watches[i].fd);
        }
    }
    return bits.for_select();
}

void take(const fd_bits& bits, fd_watch& watch, fd_condition condition)
{
    if ((watch.wanted & condition) != 0 && bits.test(watch.fd)) {
        watch.ready |= condition;
    }
}

} // namespace

int fd_wait(fd_watch* watches, int count, timeval* timeout)
{
    for (int i = 0; i < count; i++) {
        watches[i].ready = 0;
    }
    const int nfds = descriptor_count(watches, count);
    if (nfds < 0) {
        errno = EBADF;
        return -1;
    }
    fd_bits readable;
    fd_bits writable;
    fd_bits exceptional;
    const int ret = select(nfds, fill(readable, nfds, watches, count, fd_readable),
                           fill(writable, nfds, watches, count, fd_writable),
                           fill(exceptional, nfds, watches, count, fd_exceptional), timeout);
    for (int i = 0; ret > 0 && i < count; i++) {
        take(readable, watches[i], fd_readable);
        take(writable, watches[i], fd_writable);
        take(exceptional, watches[i], fd_exceptional);
    }
    return ret;
}

// An end of the connection and an error count as readable, as they do for `select`.
int fd_look(int fd, unsigned char wanted)
{
    const int before = errno;
    pollfd watch = {fd, 0, 0};
    watch.events |= (wanted & fd_readable) != 0 ? POLLIN : 0;
    watch.events |= (wanted & fd_exceptional) != 0 ? POLLPRI : 0;
    const int ret = poll(&watch, 1, 0);
    errno = before;
    if (ret == -1) {
        return -1;
    }
    const bool readable = (watch.revents & (POLLIN | POLLERR | POLLHUP | POLLNVAL)) != 0;
    const bool exceptional = (watch.revents & POLLPRI) != 0;
    return ((readable ? fd_readable : 0) | (exceptional ? fd_exceptional : 0)) & wanted;
}
