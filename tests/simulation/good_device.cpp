// A device on a simulated machine that does everything right. See good_device.h.
#include "good_device.h"

#include <algorithm>

using namespace support;

namespace sim
{

namespace
{

constexpr size_t header_size = 12;
constexpr size_t frame_size = 300;
constexpr size_t long_frame_size = 6000;
constexpr size_t first_piece = 1000; // of a long frame, behind its header; then as much again
constexpr micros between_pieces = 10 * milliseconds;
constexpr micros long_pause = 2300 * milliseconds; // between the pieces of every fiftieth frame
constexpr uint32_t heartbeat = 0x1021;
constexpr uint32_t start_stream = 0x1001;
constexpr uint32_t stop_stream = 0x1011;
constexpr uint32_t read_setting = 0x1071;
constexpr size_t setting_size = 3140;

std::string characters(const bytes& data)
{
    return {data.begin(), data.end()};
}

// Takes the first whole message off the front; false when there is none.
bool take_message(std::string& from, message* out)
{
    if (from.size() < header_size) {
        return false;
    }
    const bytes data(from.begin(), from.end());
    out->type = word_at(data, 0);
    out->len = static_cast<int32_t>(word_at(data, 4));
    out->wait_port = word_at(data, 8);
    const size_t whole = header_size + static_cast<size_t>(std::max(out->len, 0));
    if (from.size() < whole) {
        return false;
    }
    out->body.assign(data.begin() + header_size, data.begin() + static_cast<long>(whole));
    from.erase(0, whole);
    return true;
}

} // namespace

bytes numbered_frame(uint32_t number)
{
    return text("KTVF") + le32(number) +
           pattern(number % 10 == 3 ? long_frame_size : frame_size, number);
}

bool is_numbered_frame(const bytes& body, uint32_t* number)
{
    if (body.size() < 8 || word_at(body, 0) != word_at(text("KTVF"), 0)) {
        return false;
    }
    *number = word_at(body, 4);
    return body == numbered_frame(*number);
}

good_device::good_device(machine& machine_here, unsigned short port) : on(machine_here)
{
    on.listen(port, this);
}

void good_device::connected(const connection_ref& link)
{
    link->stalled = stalled;
    behind.erase(link.get()); // of one that was there before it
    live.push_back(link);
    made++;
    if (made > 1 && !greeting.empty()) {
        on.at(on.now() + answer_after, [link, first = greeting] { link->send(first); });
    }
}

void good_device::ended(const connection_ref& link)
{
    live.erase(std::remove(live.begin(), live.end(), link), live.end());
    link->close();
}

void good_device::drop_links()
{
    for (const connection_ref& link : live) {
        link->close();
    }
    live.clear();
}

void good_device::reset_links()
{
    for (const connection_ref& link : live) {
        link->reset();
    }
    live.clear();
}

void good_device::send_to_all(const std::string& bytes)
{
    for (const connection_ref& link : live) {
        send(link, bytes);
    }
}

void good_device::send_urgent_to_all()
{
    for (const connection_ref& link : live) {
        link->send_urgent();
    }
}

void good_device::stall(bool whether)
{
    stalled = whether;
    for (const connection_ref& link : live) {
        link->stalled = whether;
    }
}

int good_device::requests(uint32_t type) const
{
    const auto at = seen.find(type);
    return at == seen.end() ? 0 : at->second;
}

void good_device::received(const connection_ref& link)
{
    message request;
    while (take_message(link->request_bytes, &request)) {
        // A client that is out of step is cut off.
        if ((request.type & 0xff0f) != 0x1001 || request.len > 5108) {
            link->close();
            return;
        }
        seen[request.type]++;
        act_on(link, request);
    }
}

void good_device::act_on(const connection_ref& link, const message& request)
{
    bytes reply;
    if (request.type == heartbeat) {
        reply = make_message(request.type + 1, 0, {});
    } else if (silent) {
        return;
    } else if (request.type == read_setting) {
        bytes record = request.body;
        record.resize(setting_size);
        std::fill(record.begin() + 4, record.begin() + 8, 0);
        reply = make_message(request.type + 1, request.wait_port, record);
    } else {
        reply = answer(request, 0);
    }
    on.at(on.now() + answer_after, [this, link, reply] { send(link, characters(reply)); });
    if (request.type == start_stream && !streaming[link.get()]) {
        streaming[link.get()] = true;
        stream(link);
    }
    if (request.type == stop_stream) {
        streaming[link.get()] = false;
    }
}

void good_device::stream(const connection_ref& link)
{
    on.at(on.now() + frame_every, [this, link] {
        if (!link->open() || !streaming[link.get()]) {
            streaming.erase(link.get());
            return;
        }
        frames++;
        send_frame(link, characters(make_message(0x1100, 0, numbered_frame(frames))));
        stream(link);
    });
}

void good_device::send_frame(const connection_ref& link, const std::string& message)
{
    if (message.size() < long_frame_size || behind.count(link.get()) != 0) {
        send(link, message);
        return;
    }
    // A header by itself leaves an empty read behind it, and then a link that is closed is not
    // noticed for six seconds. So the first link has none.
    const size_t first = made == 1 ? header_size + first_piece : header_size;
    const size_t second = header_size + 2 * first_piece;
    behind[link.get()];
    link->send(message.substr(0, first));
    on.at(on.now() + between_pieces,
          [link, piece = message.substr(first, second - first)] { link->send(piece); });
    const micros pause = frames % 50 == 13 ? long_pause : between_pieces;
    on.at(on.now() + between_pieces + pause,
          [this, link, rest = message.substr(second)] { end_of_frame(link, rest); });
}

void good_device::end_of_frame(const connection_ref& link, const std::string& rest)
{
    link->send(rest);
    const std::string waiting = std::move(behind[link.get()]);
    behind.erase(link.get());
    link->send(waiting);
}

// Never into the midst of a frame.
void good_device::send(const connection_ref& link, const std::string& message)
{
    const auto held = behind.find(link.get());
    if (held == behind.end()) {
        link->send(message);
    } else {
        held->second += message;
    }
}

} // namespace sim
