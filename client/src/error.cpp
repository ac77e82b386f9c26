// The two categories of error codes. See error.hpp.
//
// They are made when first asked for and never destroyed, without a call that could fail, so that
// codes can be looked at while the process ends.
#include "zu/error.hpp"

namespace zu
{

namespace
{

const char* text_of(Errc failure)
{
    switch (failure) {
    case Errc::bad_argument:
        return "bad argument";
    case Errc::library_in_use:
        return "the library is in use already";
    case Errc::cannot_connect:
        return "cannot connect";
    case Errc::link_down:
        return "the link is down";
    case Errc::timed_out:
        return "the deadline has passed";
    case Errc::no_answer:
        return "no answer";
    case Errc::busy:
        return "too many requests are under way";
    case Errc::would_wait_for_self:
        return "a request from inside the frame handler, which would wait for itself";
    case Errc::closed:
        return "closed";
    }
    return "unknown failure";
}

class OwnCategory : public std::error_category
{
public:
    const char* name() const noexcept override
    {
        return "zu";
    }
    std::string message(int value) const override
    {
        return text_of(static_cast<Errc>(value));
    }
};

class DeviceCategory : public std::error_category
{
public:
    const char* name() const noexcept override
    {
        return "zu.device";
    }
    std::string message(int value) const override
    {
        return "refused by the device (code " + std::to_string(value) + ")";
    }
};

// A category whose destructor never runs.
template <class Category>
union Forever {
    Category category;

    Forever() : category()
    {
    }
    ~Forever() // nothing
    {
    }
};

} // namespace

const std::error_category& error_category() noexcept
{
    static const Forever<OwnCategory> its;
    return its.category;
}

const std::error_category& device_category() noexcept
{
    static const Forever<DeviceCategory> its;
    return its.category;
}

std::error_code make_error_code(Errc failure) noexcept
{
    return {static_cast<int>(failure), error_category()};
}

} // namespace zu
