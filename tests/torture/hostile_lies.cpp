// The lies, by kind. See hostile_lies.h.
#include "hostile_lies.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <future>

#include "worker_stand.h"

using namespace support;

namespace hostile
{

namespace
{

constexpr size_t header_size = 12;
constexpr std::array<uint32_t, 7> answers = {0x1002, 0x1012, 0x1032, 0x1042,
                                             0x1052, 0x1062, 0x1072};
constexpr std::array<const char*, 6> flags = {"KTVF", "KTAF", "EXVC", "FSYS", "VUYV", "ABCD"};

bool is_answer(uint32_t type)
{
    return std::find(answers.begin(), answers.end(), type) != answers.end();
}

bytes part(const bytes& whole, size_t from, size_t to)
{
    return {whole.begin() + static_cast<long>(from), whole.begin() + static_cast<long>(to)};
}

// The next message of the login's sender that is no heartbeat.
std::optional<message> next_request(lying_device& d)
{
    for (;;) {
        auto m = d.link.read_message();
        if (!m || m->type != 0x1021) {
            return m;
        }
    }
}

// Sends them by the thousand, so that a flood takes no time to prepare.
template <class Make>
void send_many(lying_device& d, int count, Make make)
{
    bytes some;
    for (int i = 1; i <= count; i++) {
        some = std::move(some) + make();
        if (i % 1000 == 0 || i == count) {
            d.send(some);
            some.clear();
        }
    }
}

// A message that is never delivered, whatever its length promises; its body comes in pieces of one
// making, again so that it takes no time to prepare.
void send_undelivered(lying_device& d, uint32_t type, int32_t len, uint32_t wait_port)
{
    static const bytes piece = pattern(65536);
    d.send(make_message(type, len, wait_port, {}));
    size_t left = len > drained ? 0 : static_cast<size_t>(std::max(len, 0));
    while (left > 0) {
        const size_t size = std::min(left, piece.size());
        d.send(part(piece, 0, size));
        left -= size;
    }
}

// What a movement request returns: its own action, as far as the answer has not covered it.
int32_t returned_by(int32_t action, const bytes& answer_body)
{
    bytes word = le32(static_cast<uint32_t>(action));
    std::copy_n(answer_body.begin(), std::min(answer_body.size(), word.size()), word.begin());
    return static_cast<int32_t>(word_at(word, 0));
}

} // namespace

// ---- the stream stays in step ------------------------------------------------------------------

void split_header(lying_device& d, size_t first_part, milliseconds apart)
{
    const bytes frame = d.promise("KTVF", 100);
    d.send(part(frame, 0, first_part));
    pause(apart);
    d.send(part(frame, first_part, frame.size()));
}

void body_apart(lying_device& d, size_t size, size_t piece, milliseconds apart)
{
    const bytes frame = d.promise("KTVF", size);
    d.send(part(frame, 0, header_size));
    for (size_t at = header_size; at < frame.size(); at += piece) {
        pause(apart);
        d.send(part(frame, at, std::min(at + piece, frame.size())));
    }
}

void byte_by_byte(lying_device& d, size_t size, milliseconds apart)
{
    for (const unsigned char byte : d.promise("EXVC", size)) {
        d.send({byte});
        pause(apart);
    }
}

bool stays_in_step(uint32_t type, int32_t len)
{
    if (is_answer(type) && len <= room) {
        return len >= -static_cast<int32_t>(header_size) && len <= datagram_room;
    }
    return len <= drained;
}

void message_of_length(lying_device& d, uint32_t type, int32_t len)
{
    const bool delivered = len <= room;
    if (type == heartbeat_answer && delivered) {
        d.send_heartbeats(1, len, pattern(static_cast<size_t>(std::max(len, 0)), d.draw.word()));
    } else if (type == stream_message && delivered && len >= 0) {
        d.send(d.promise(pattern(static_cast<size_t>(len), d.draw.word())));
    } else {
        send_undelivered(d, type, len, nobodys_port);
    }
}

void flood_of_unknown_types(lying_device& d, int count)
{
    send_many(d, count, [&d] {
        const bytes body = pattern(static_cast<size_t>(d.draw.between(0, 40)), d.draw.word());
        const uint32_t type = 0x2000 + d.draw.word() % 0x7fff0000;
        return make_message(type, d.draw.word(), body);
    });
}

void answers_to_nobody(lying_device& d, int count)
{
    send_many(d, count, [&d] {
        return make_message(d.draw.any_of(answers), nobodys_port, le32(d.draw.word()));
    });
    loopback_socket mine;
    const bytes last = make_message(answer_to_ptz, mine.wait_port(), le32(d.draw.word()));
    d.send(last);
    d.expect(mine.receive() == last, "an answer does not go where its wait_port points");
}

void answer_of_length(lying_device& d, int32_t len)
{
    constexpr ZU_S32 action = 0x01020304;
    auto call = std::async(std::launch::async, [handle = d.handle()] {
        return ZU_NET_DEV_PTZ_Ctrl_Standard(handle, action, 5);
    });
    const auto request = next_request(d);
    d.expect(request.has_value(), "no request comes");
    if (!request) {
        return;
    }
    const bool relayed = len <= datagram_room;
    bytes body;
    if (relayed) {
        body = pattern(static_cast<size_t>(std::max(len, 0)), d.draw.word());
        d.send(make_message(request->type + 1, len, request->wait_port, body));
    } else {
        send_undelivered(d, request->type + 1, len, request->wait_port);
    }
    const ZU_S32 code = call.get();
    d.expect(code == (relayed ? returned_by(action, body) : -1),
             "a request answered with length " + std::to_string(len) + " returns " +
                 std::to_string(code));
}

void frames_without_start(lying_device& d, int count)
{
    for (int i = 0; i < count; i++) {
        d.send(d.promise(d.draw.any_of(flags), static_cast<size_t>(d.draw.between(0, 5000))));
    }
}

void flood_of_heartbeats(lying_device& d, int count)
{
    d.send_heartbeats(count);
}

void answers_to_the_own_sender(lying_device& d, int count)
{
    const uint32_t own = htons(d.int_port());
    for (int i = 0; i < count; i++) {
        const bytes body =
            pattern(static_cast<size_t>(d.draw.between(0, sender_room - 12)), d.draw.word());
        const bytes steered = make_message(d.draw.any_of(answers), own, body);
        d.send(steered);
        const auto back = next_request(d);
        d.expect(back && back->raw() == steered, "the own sender sends something else");
    }
}

// ---- the connection is lost --------------------------------------------------------------------

void end(lying_device& d, ending how)
{
    how == ending::abrupt ? d.link.reset() : d.link.close();
}

// The words that would be lengths are mostly too long to be borne; if one is short enough to wait
// for, the abrupt end comes while the receiver waits.
void garbage(lying_device& d, size_t size)
{
    d.send(pattern(size, d.draw.word()));
    end(d, ending::abrupt);
}

void urgent_byte(lying_device& d)
{
    d.link.send_urgent('!');
}

void empty_request_to_the_own_sender(lying_device& d)
{
    d.send(
        make_message(answer_to_ptz, -static_cast<int32_t>(header_size), htons(d.int_port()), {}));
}

namespace
{

constexpr size_t frame_length = header_size + 4 + 6;

} // namespace

size_t conversation_length()
{
    return frame_length + header_size + (header_size + 4) + frame_length;
}

void cut_conversation(lying_device& d, size_t at, ending how)
{
    bytes all = d.promise("KTVF", frame_length - header_size - 4);
    all = all + make_message(heartbeat_answer, 0, {});
    all = all + make_message(answer_to_ptz, nobodys_port, le32(0));
    if (at == conversation_length()) {
        all = all + d.promise("KTAF", frame_length - header_size - 4);
    } else {
        all = all + stream_data("KTAF", pattern(frame_length - header_size - 4));
    }
    d.send(part(all, 0, at));
    end(d, how);
}

// ---- at random ---------------------------------------------------------------------------------

namespace
{

int32_t any_length(lying_device& d, uint32_t type, bool in_step)
{
    static const std::vector<int32_t> points = {
        INT_MIN,  INT_MIN + 1, -drained, -65536,      -13,          -12,    -11,      -1,
        0,        1,           3,        4,           11,           12,     27,       28,
        5107,     5108,        5109,     65494,       65495,        65496,  room - 1, room,
        room + 1, 2 * room,    drained,  drained + 1, INT_MAX - 12, INT_MAX};
    for (;;) {
        const int32_t len = d.draw.any_of(points);
        if (stays_in_step(type, len) == in_step) {
            return len;
        }
    }
}

uint32_t any_type(lying_device& d)
{
    static const std::array<uint32_t, 4> types = {answer_to_ptz, heartbeat_answer, stream_message,
                                                  0x7777};
    return d.draw.any_of(types);
}

milliseconds any_pause(lying_device& d)
{
    return milliseconds(d.draw.between(0, 20));
}

ending any_ending(lying_device& d)
{
    return d.draw.one_in(2) ? ending::orderly : ending::abrupt;
}

} // namespace

const std::vector<lie>& quick_lies()
{
    using device = lying_device;
    static const std::vector<lie> all = {
        {"half headers", aftermath::in_step,
         [](device& d) {
             for (int i = d.draw.between(1, 5); i > 0; i--) {
                 split_header(d, static_cast<size_t>(d.draw.between(1, 11)), any_pause(d));
             }
         }},
        {"bodies apart from headers", aftermath::in_step,
         [](device& d) {
             body_apart(d, 1000, static_cast<size_t>(d.draw.between(100, 1000)), any_pause(d));
         }},
        {"byte by byte", aftermath::in_step,
         [](device& d) {
             byte_by_byte(d, static_cast<size_t>(d.draw.between(0, 100)), milliseconds(0));
         }},
        {"lengths that can be borne", aftermath::in_step,
         [](device& d) {
             for (int i = d.draw.between(1, 8); i > 0; i--) {
                 const uint32_t type = any_type(d);
                 message_of_length(d, type, any_length(d, type, true));
             }
         }},
        {"unknown types", aftermath::in_step,
         [](device& d) { flood_of_unknown_types(d, d.draw.between(1000, 20000)); }},
        {"answers to nobody", aftermath::in_step,
         [](device& d) { answers_to_nobody(d, d.draw.between(100, 5000)); }},
        {"answers of any length", aftermath::in_step,
         [](device& d) {
             static const std::array<int32_t, 12> lengths = {-12, -11,  -1,   0,    1,    3,
                                                             4,   5000, 5108, 5109, 9000, 65495};
             for (int i = d.draw.between(1, 8); i > 0; i--) {
                 answer_of_length(d, d.draw.any_of(lengths));
             }
         }},
        {"frames without start", aftermath::in_step,
         [](device& d) { frames_without_start(d, d.draw.between(1, 300)); }},
        {"heartbeat answers", aftermath::in_step,
         [](device& d) { flood_of_heartbeats(d, d.draw.between(1, 1000)); }},
        {"answers to the own sender", aftermath::in_step,
         [](device& d) { answers_to_the_own_sender(d, d.draw.between(1, 20)); }},
        {"garbage", aftermath::lost,
         [](device& d) { garbage(d, static_cast<size_t>(d.draw.between(12, 200000))); }},
        {"a length that can't be borne", aftermath::lost,
         [](device& d) {
             const uint32_t type = any_type(d);
             message_of_length(d, type, any_length(d, type, false));
         }},
        {"an answer to port 0", aftermath::lost,
         [](device& d) { d.send(make_message(answer_to_ptz, 0, le32(0))); }},
        {"an urgent byte", aftermath::lost, urgent_byte},
        {"an empty request to the own sender", aftermath::lost, empty_request_to_the_own_sender},
        {"a conversation cut", aftermath::lost_but_spinning,
         [](device& d) {
             const auto at = d.draw.between(0, static_cast<int>(conversation_length()));
             cut_conversation(d, static_cast<size_t>(at), any_ending(d));
         }},
    };
    return all;
}

} // namespace hostile
