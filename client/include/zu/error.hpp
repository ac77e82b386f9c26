// What can go wrong, as std::error_code, and a value or such a code.
#pragma once

#include <string>
#include <system_error>
#include <utility>
#include <variant>

namespace zu
{

// Failures of this side. What the device itself answers is in device_category().
enum class Errc {
    bad_argument = 1, // nothing was tried
    library_in_use,   // a zu::Library exists already, or the C library was initialised elsewhere
    cannot_connect,   // nobody there, refused, or not up within the library's three seconds
    link_down,        // the link is down right now; nothing was sent
    timed_out,        // the deadline has passed; unless it was 0, the device may still do what was
                      // asked
    no_answer,        // the C library gave up waiting; also when the link was lost meanwhile
    busy, // nothing was sent, nor will be: others took until the deadline, or no thread was to be
          // had
    would_wait_for_self, // a request from inside a frame handler, whose answer that thread would
                         // read
    closed,              // the camera object has ended, or was moved from
};

const std::error_category& error_category() noexcept;

// Codes of the device: 1, 2, 3 and so on, as it sends them. A device that answers -1 cannot be told
// from a lost answer; that is Errc::no_answer.
const std::error_category& device_category() noexcept;

std::error_code make_error_code(Errc failure) noexcept;

// Whether the device has answered, and has refused; code.value() is its own code then.
inline bool refused(const std::error_code& code) noexcept
{
    return code && code.category() == device_category();
}

// A value, or why there is none. A code that is no error makes no Result.
template <class Value>
class [[nodiscard]] Result
{
public:
    Result(Value value) : held(std::in_place_index<0>, std::move(value))
    {
    }
    Result(std::error_code why) : held(std::in_place_index<1>, why)
    {
    }
    Result(Errc why) : Result(make_error_code(why))
    {
    }

    explicit operator bool() const noexcept
    {
        return held.index() == 0;
    }
    // Empty when there is a value.
    std::error_code error() const noexcept
    {
        return *this ? std::error_code() : std::get<1>(held);
    }
    // Without a value: throws std::system_error with the code.
    Value& value() &
    {
        if (!*this) {
            throw std::system_error(error());
        }
        return std::get<0>(held);
    }
    const Value& value() const&
    {
        return const_cast<Result&>(*this).value();
    }
    Value&& value() &&
    {
        return std::move(value());
    }
    // Only when there is a value.
    Value& operator*() &
    {
        return *std::get_if<0>(&held);
    }
    const Value& operator*() const&
    {
        return *std::get_if<0>(&held);
    }
    Value* operator->()
    {
        return std::get_if<0>(&held);
    }
    const Value* operator->() const
    {
        return std::get_if<0>(&held);
    }

private:
    std::variant<Value, std::error_code> held;
};

} // namespace zu

template <>
struct std::is_error_code_enum<zu::Errc> : std::true_type {
};
