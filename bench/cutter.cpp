// Large reads cut where they lie. See cutter.h.
#include "cutter.h"

#include <algorithm>
#include <cstring>
#include <sys/socket.h>

namespace bench
{

cutter::cutter(int its_fd, std::size_t longest_message, on_message its_callback, void* its_user)
    : fd(its_fd), callback(its_callback), user(its_user),
      size(std::max(longest_message, large_read)), room(new unsigned char[size])
{
}

bool cutter::read_once()
{
    const ssize_t got = recv(fd, room.get() + end, size - end, 0);
    reads_made++;
    if (got <= 0) {
        return false;
    }
    end += static_cast<std::size_t>(got);
    cut();
    close_up();
    return true;
}

std::size_t cutter::lacking() const
{
    const std::size_t have = end - begin;
    if (have < sizeof(head)) {
        return sizeof(head) - have;
    }
    head first;
    std::memcpy(&first, room.get() + begin, sizeof(first));
    return sizeof(first) + static_cast<std::size_t>(first.len) - have;
}

void cutter::cut()
{
    head first;
    while (end - begin >= sizeof(first)) {
        std::memcpy(&first, room.get() + begin, sizeof(first));
        const std::size_t whole = sizeof(first) + static_cast<std::size_t>(first.len);
        if (end - begin < whole) {
            return;
        }
        callback(user, first, room.get() + begin + sizeof(first));
        begin += whole;
    }
}

// The begun message goes to the front, so that there is room for the rest of it.
void cutter::close_up()
{
    if (begin > 0) {
        std::memmove(room.get(), room.get() + begin, end - begin);
        end -= begin;
        begin = 0;
    }
}

} // namespace bench
