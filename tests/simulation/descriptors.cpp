// The descriptors of a simulated machine. See descriptors.h.
#include "descriptors.h"

#include <cerrno>

namespace sim
{

bool descriptor::readable() const
{
    switch (is) {
    case kind::pipe_out:
        return !pipe->bytes.empty();
    case kind::pipe_in:
        return false;
    case kind::udp:
        return !datagrams.empty() || shut_for_reading || pending_error != 0;
    default:
        return state == tcp_state::refused || state == tcp_state::fresh ||
               inbound.size() >= low_mark || end_of_input || pending_error != 0 || shut_for_reading;
    }
}

bool descriptor::writable() const
{
    if (is != kind::tcp) {
        return is != kind::pipe_out;
    }
    return state != tcp_state::connecting && (to == nullptr || !to->stalled || shut_for_writing);
}

bool descriptor::exceptional() const
{
    return urgent;
}

bool connection::open() const
{
    const descriptor_ref end = socket.lock();
    return end != nullptr && !end->end_of_input &&
           (end->state == tcp_state::established || end->state == tcp_state::fin_wait);
}

void connection::send(const std::string& bytes) const
{
    const descriptor_ref end = socket.lock();
    if (open() && !end->shut_for_reading) {
        end->inbound += bytes;
    }
}

void connection::send_urgent() const
{
    const descriptor_ref end = socket.lock();
    if (open()) {
        end->urgent = true;
    }
}

void connection::close() const
{
    const descriptor_ref end = socket.lock();
    if (open()) {
        end->end_of_input = true;
        end->state =
            end->state == tcp_state::established ? tcp_state::close_wait : tcp_state::closed;
    }
}

void connection::reset() const
{
    const descriptor_ref end = socket.lock();
    if (end != nullptr && end->state != tcp_state::closed) {
        end->state = tcp_state::closed;
        end->inbound.clear();
        end->end_of_input = true;
        end->shut_for_writing = true;
        end->pending_error = ECONNRESET;
    }
}

int descriptor_table::open(kind is)
{
    auto fresh = std::make_shared<descriptor>();
    fresh->is = is;
    fresh->number = next++;
    open_ones[fresh->number] = fresh;
    return fresh->number;
}

int descriptor_table::open_pipe(int (&ends)[2])
{
    ends[0] = open(kind::pipe_out);
    ends[1] = open(kind::pipe_in);
    open_ones[ends[0]]->pipe = open_ones[ends[1]]->pipe = std::make_shared<pipe_buffer>();
    return 0;
}

descriptor_ref descriptor_table::find(int number, const char* call)
{
    const auto at = open_ones.find(number);
    if (at != open_ones.end()) {
        return at->second;
    }
    if (number >= 3) {
        complaints.push_back(std::string(call) + " of descriptor " + std::to_string(number) +
                             (number < next ? ", which has been closed" : ", which never was"));
    }
    errno = EBADF;
    return nullptr;
}

bool descriptor_table::close(int number)
{
    const descriptor_ref closed = find(number, "close");
    if (closed == nullptr) {
        return false;
    }
    if (closed->waiting != 0) {
        complaints.push_back("descriptor " + std::to_string(number) +
                             " is closed while a thread waits on it");
    }
    open_ones.erase(number);
    return true;
}

std::string descriptor_table::names() const
{
    std::string text;
    for (const auto& [number, one] : open_ones) {
        const char* is = one->is == kind::tcp ? " tcp" : one->is == kind::udp ? " udp" : " pipe";
        text += (text.empty() ? "" : ", ") + std::to_string(number) + is;
    }
    return text;
}

descriptor_ref descriptor_table::bound_to(unsigned short port) const
{
    for (const auto& [number, one] : open_ones) {
        if (one->is == kind::udp && one->port == port) {
            return one;
        }
    }
    return nullptr;
}

unsigned short descriptor_table::free_port()
{
    do {
        next_port = next_port == 65535 ? 40000 : next_port + 1;
    } while (bound_to(next_port) != nullptr);
    return next_port;
}

} // namespace sim
