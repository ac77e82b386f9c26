// Reading ahead. See read_ahead.h.
//
// Runs on the receiver thread. The calls that are made here beside the reads leave errno alone:
// what a later empty read means may be decided by an errno from long before.
#include "read_ahead.h"

#include <cerrno>
#include <cstring>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "fd_wait.h"

namespace
{

constexpr int worth_a_mark = 4096;       // less comes in one or two pieces anyway
constexpr int highest_mark = 256 * 1024; // more is better fetched while it is in the caches

// A read that brought all it had room for has most likely left more behind, and then there is
// nothing to wait for.
int mark_for(const read_ahead& in, int lacking)
{
    if (!in.came_short) {
        return in.mark <= lacking ? in.mark : 1;
    }
    if (lacking < worth_a_mark) {
        return 1;
    }
    return lacking < highest_mark ? lacking : highest_mark;
}

// Looks at a socket that no wait has looked at: notes urgent data, and tells when a read would find
// nothing. Such a read may not be made, because urgent data that arrives just before it would be
// passed by it unseen; behind other bytes a read stops at it.
bool nothing_to_read(const read_ahead& in)
{
    const int found = fd_look(in.link->ext_sock, fd_readable_or_exceptional);
    if (found == -1) {
        return false;
    }
    if ((found & fd_exceptional) != 0) {
        in.link->urgent_data = true;
    }
    return (found & fd_readable) == 0 && in.mark == 1; // bytes below a mark would not show
}

void set_mark(read_ahead& in, int mark)
{
    const int before = errno;
    if (setsockopt(in.link->ext_sock, SOL_SOCKET, SO_RCVLOWAT, &mark, sizeof(mark)) == 0) {
        in.mark = mark;
    }
    errno = before;
}

void move_to_front(read_ahead& in)
{
    if (in.begin != 0) {
        memmove(in.buffer, in.buffer + in.begin, in.end - in.begin);
        in.end -= in.begin;
        in.begin = 0;
    }
}

// Reads from the socket, like a recv of `lacking` bytes; right after a wait, more. Returns how many
// of those that were lacking.
int read_socket(read_ahead& in, int lacking)
{
    const bool waited = in.waited;
    in.waited = false;
    if (!waited && in.mark != 1) {
        set_mark(in, 1); // of a message that has been completed since
    }
    if (!waited && nothing_to_read(in)) {
        in.came_short = true;
        errno = EAGAIN;
        return -1;
    }
    const int left = in.size - in.end - lacking - 1; // an empty body lies in the buffer too
    const int ahead = left < read_ahead_size ? left : read_ahead_size;
    const int room = waited && ahead > 0 ? lacking + ahead : lacking;
    const int ret =
        static_cast<int>(recv(in.link->ext_sock, in.buffer + in.end, room, MSG_DONTWAIT));
    in.came_short = ret < room;
    if (ret > 0) {
        in.end += ret;
    }
    return ret < lacking ? ret : lacking;
}

} // namespace

void read_ahead_open(read_ahead& in, device_link* link, char* buffer, int size)
{
    in = {};
    in.link = link;
    in.buffer = buffer;
    in.size = size;
    in.mark = 1;
    in.countable = true;
}

int read_ahead_more(read_ahead& in, int lacking)
{
    move_to_front(in);
    const int ret = read_socket(in, lacking);
    if (ret <= 0 && link_is_shut(in.link)) {
        errno = EBADF;
        return -1;
    }
    return ret;
}

int read_ahead_rest(read_ahead& in, int wanted, int lacking)
{
    const int there = wanted - lacking;
    if (read_ahead_arrived(in) == 0) {
        return there;
    }
    const int before = errno;
    const int more = read_ahead_more(in, lacking);
    errno = before;
    return more > 0 ? there + more : there;
}

void read_ahead_drop(read_ahead& in, int count)
{
    in.begin += count;
    if (in.begin == in.end) {
        in.begin = 0;
        in.end = 0;
    }
}

int read_ahead_expect(read_ahead& in, int lacking)
{
    const int mark = in.countable ? mark_for(in, lacking) : 1;
    if (mark != in.mark) {
        set_mark(in, mark);
    }
    return in.mark;
}

int read_ahead_arrived(read_ahead& in)
{
    const int before = errno;
    int queued = 0;
    in.countable = ioctl(in.link->ext_sock, FIONREAD, &queued) == 0;
    errno = before;
    return in.countable ? queued : 0;
}
