// A request and its answer, which is found by its type among whatever else comes, stream data
// for instance. Everything is little-endian and written word by word. When no answer comes, the
// code is one that no device gives, so that a test fails on it. One thread.
#include "camera_requests.h"

namespace tools
{

namespace
{

void put_word(bytes& out, std::uint32_t value)
{
    for (unsigned shift = 0; shift < 32; shift += 8) {
        out.push_back(static_cast<std::uint8_t>(value >> shift));
    }
}

bytes message(std::uint32_t type, const bytes& payload)
{
    bytes out;
    put_word(out, type);
    put_word(out, static_cast<std::uint32_t>(payload.size()));
    put_word(out, 12345);
    out.insert(out.end(), payload.begin(), payload.end());
    return out;
}

bytes setting_payload(std::uint32_t command, const bytes& record)
{
    bytes out;
    put_word(out, command);
    put_word(out, 0);
    out.insert(out.end(), record.begin(), record.end());
    return out;
}

std::uint32_t code_of(const received& answer)
{
    return answer ? answer.word(12) : 0xffffffff;
}

std::uint32_t ask(camera_client& client, std::uint32_t type, const bytes& payload)
{
    client.send(message(type, payload));
    return code_of(client.next_of_type(type + 1));
}

bytes two_words(std::uint32_t first, std::uint32_t second)
{
    bytes out;
    put_word(out, first);
    put_word(out, second);
    return out;
}

} // namespace

bytes record_of(const words& first)
{
    bytes out;
    for (const std::uint32_t word : first) {
        put_word(out, word);
    }
    out.resize(setting_size);
    return out;
}

std::uint32_t word_of(const bytes& record, std::size_t index)
{
    std::uint32_t value = 0;
    for (std::size_t i = 4; i-- > 0;) {
        value = value << 8U | record.at(4 * index + i);
    }
    return value;
}

setting read_setting(camera_client& client, std::uint32_t command, const words& selector)
{
    client.send(message(0x1071, setting_payload(command, record_of(selector))));
    const received answer = client.next_of_type(0x1072);
    if (!answer || answer.whole.size() != 12 + 8 + setting_size || answer.word(12) != command) {
        return {};
    }
    const bytes payload = answer.payload();
    return {answer.word(16), bytes(payload.begin() + 8, payload.end())};
}

std::uint32_t write_setting(camera_client& client, std::uint32_t command, const bytes& record)
{
    return ask(client, 0x1061, setting_payload(command, record));
}

std::uint32_t move(camera_client& client, std::uint32_t action, std::uint32_t speed)
{
    return ask(client, 0x1031, two_words(action, speed));
}

std::uint32_t use_preset(camera_client& client, std::uint32_t action, std::uint32_t number)
{
    return ask(client, 0x1041, two_words(action, number));
}

} // namespace tools
