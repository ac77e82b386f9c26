// The call of select. See calls.h.
#include "calls.h"

#include <sys/select.h>

using namespace sim;

namespace
{

bool has_bit(const fd_set* set, int number)
{
    const auto* words = reinterpret_cast<const unsigned long*>(set);
    return set != nullptr && (words[number / 64] >> (number % 64) & 1) != 0;
}

void set_bit(fd_set* set, int number)
{
    reinterpret_cast<unsigned long*>(set)[number / 64] |= 1UL << (number % 64);
}

void clear(fd_set* set, int count)
{
    if (set != nullptr) {
        memset(static_cast<void*>(set), 0, static_cast<size_t>((count + 63) / 64) * 8);
    }
}

struct watched {
    descriptor_ref one;
    bool in;
    bool out;
    bool except;

    bool ready() const
    {
        return (in && one->readable()) || (out && one->writable()) ||
               (except && one->exceptional());
    }
};

using watch_list = std::vector<watched>;

bool any_ready(const watch_list& list)
{
    for (const watched& w : list) {
        if (w.ready()) {
            return true;
        }
    }
    return false;
}

// False when one of the descriptors is not open.
bool collect(const entered& c, int count, const fd_set* in, const fd_set* out, const fd_set* except,
             watch_list& list)
{
    for (int number = 0; number < count; number++) {
        const watched w = {nullptr, has_bit(in, number), has_bit(out, number),
                           has_bit(except, number)};
        if (w.in || w.out || w.except) {
            list.push_back(w);
            list.back().one = c.find(number);
            if (list.back().one == nullptr) {
                return false;
            }
        }
    }
    return true;
}

void wait_for_any(const entered& c, const watch_list& list, micros until)
{
    for (const watched& w : list) {
        w.one->waiting++;
    }
    c.on.threads.wait(
        "select", [&] { return any_ready(list); }, until);
    for (const watched& w : list) {
        w.one->waiting--;
    }
}

// Sets the bits of what is there; says how many.
int report(const watch_list& list, fd_set* in, fd_set* out, fd_set* except)
{
    int bits = 0;
    for (const watched& w : list) {
        const auto tell = [&](bool there, fd_set* set) {
            if (there) {
                set_bit(set, w.one->number);
                bits++;
            }
        };
        tell(w.in && w.one->readable(), in);
        tell(w.out && w.one->writable(), out);
        tell(w.except && w.one->exceptional(), except);
    }
    return bits;
}

} // namespace

extern "C" {

int sim_select(int count, fd_set* in, fd_set* out, fd_set* except, timeval* timeout)
{
    const entered c("select", FROM);
    watch_list list;
    if (c.fails() || !collect(c, count, in, out, except, list)) {
        return -1;
    }
    const micros limit = timeout->tv_sec * seconds + timeout->tv_usec;
    const micros until = c.on.now() + limit;
    wait_for_any(c, list, until);
    const micros left = until > c.on.now() ? until - c.on.now() : 0;
    *timeout = {left / seconds, left % seconds};
    clear(in, count);
    clear(out, count);
    clear(except, count);
    return report(list, in, out, except);
}
}
