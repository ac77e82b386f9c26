// zu::Camera, as the program sees it. See camera.hpp.
//
// Every member function takes a share of the core first, so that a call that is under way when the
// object is destroyed finds a core that has ended, and not none.
#include "zu/camera.hpp"

#include "camera_core.hpp"

namespace zu
{

class Camera::Impl
{
public:
    Impl() = default;
    ~Impl()
    {
        end();
    }
    void end()
    {
        if (core) {
            core->end(); // handlers may ask it until this returns
            core.reset();
        }
    }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    std::shared_ptr<detail::CameraCore> core; // from the login to the end
};

namespace
{

// What a member function answers: of a camera that was moved from nothing, zeros, or `otherwise`.
template <class Answer, class Ask>
Answer ask(const std::shared_ptr<detail::CameraCore>& core, Answer otherwise, Ask what)
{
    return core ? what(*core) : otherwise;
}

} // namespace

Camera::Camera(const CameraAddress& address, CameraOptions options)
    : Camera(log_in(address, std::move(options)).value())
{
}

Camera::Camera(std::unique_ptr<Impl> made) noexcept : impl(std::move(made))
{
}

Result<Camera> Camera::log_in(const CameraAddress& address, CameraOptions options)
{
    auto made = std::make_unique<Impl>(); // first: from the login on nothing may fail
    auto core = detail::CameraCore::log_in(address, std::move(options));
    if (!core) {
        return core.error();
    }
    made->core = std::move(*core);
    return Camera(std::move(made));
}

// Not left to the pointer, so that it still leads to the core for handlers that run meanwhile.
Camera::~Camera()
{
    if (impl) {
        impl->end();
    }
}

Camera::Camera(Camera&& other) noexcept = default;

Camera& Camera::operator=(Camera&& other) noexcept
{
    if (this != &other) {
        if (impl) {
            impl->end();
        }
        impl = std::move(other.impl);
    }
    return *this;
}

std::shared_ptr<detail::CameraCore> Camera::core() const
{
    return impl ? impl->core : nullptr;
}

// ---- facts -------------------------------------------------------------------------------------

Link Camera::link() const
{
    return ask(core(), Link(), [](auto& it) { return it.link(); });
}

Peer Camera::peer() const
{
    return ask(core(), Peer(), [](auto& it) { return it.peer(); });
}

Media Camera::media() const
{
    return ask(core(), Media(), [](auto& it) { return it.media(); });
}

std::optional<StreamDescription> Camera::description() const
{
    return ask(core(), std::optional<StreamDescription>(),
               [](auto& it) { return it.description(); });
}

Codec Camera::codec() const
{
    return ask(core(), Codec::unknown, [](auto& it) { return it.codec(); });
}

Stats Camera::stats() const
{
    return ask(core(), Stats(), [](auto& it) { return it.stats(); });
}

// ---- frames and requests -----------------------------------------------------------------------

std::optional<Frame> Camera::next_frame(milliseconds wait)
{
    return ask(core(), std::optional<Frame>(), [&](auto& it) { return it.next_frame(wait); });
}

std::error_code Camera::start_stream(const StreamRequest& request,
                                     std::optional<milliseconds> deadline)
{
    return ask(core(), make_error_code(Errc::closed),
               [&](auto& it) { return it.start_stream(request, deadline); });
}

std::error_code Camera::stop_stream(std::optional<milliseconds> deadline)
{
    return ask(core(), make_error_code(Errc::closed),
               [&](auto& it) { return it.stop_stream(deadline); });
}

std::error_code Camera::ask_for_key_frame(std::optional<milliseconds> deadline)
{
    return ask(core(), make_error_code(Errc::closed),
               [&](auto& it) { return it.ask_for_key_frame(deadline); });
}

std::error_code Camera::read(std::uint32_t command, void* data, std::size_t size,
                             std::optional<milliseconds> deadline)
{
    return ask(core(), make_error_code(Errc::closed),
               [&](auto& it) { return it.read(command, data, size, deadline); });
}

std::error_code Camera::write(std::uint32_t command, const void* data, std::size_t size,
                              std::optional<milliseconds> deadline)
{
    return ask(core(), make_error_code(Errc::closed),
               [&](auto& it) { return it.write(command, data, size, deadline); });
}

std::error_code Camera::move(std::uint32_t command, std::uint32_t speed, milliseconds at_most,
                             std::optional<milliseconds> deadline)
{
    return ask(core(), make_error_code(Errc::closed),
               [&](auto& it) { return it.move(command, speed, at_most, deadline); });
}

std::error_code Camera::stop_moving(std::optional<milliseconds> deadline)
{
    return ask(core(), make_error_code(Errc::closed),
               [&](auto& it) { return it.stop_moving(deadline); });
}

std::error_code Camera::standard(std::uint32_t command, std::uint32_t speed,
                                 std::optional<milliseconds> deadline)
{
    return ask(core(), make_error_code(Errc::closed),
               [&](auto& it) { return it.standard(command, speed, deadline); });
}

std::error_code Camera::preset(std::uint32_t command, std::uint32_t number,
                               std::optional<milliseconds> deadline)
{
    return ask(core(), make_error_code(Errc::closed),
               [&](auto& it) { return it.preset(command, number, deadline); });
}

} // namespace zu
