// The cameras as a child process. See camera_side.h.
#include "camera_side.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include "relay.h"
#include "virtual_camera/camera.h"

namespace soak
{

namespace
{

std::vector<std::unique_ptr<zucam::camera>> make_cameras(const camera_side_options& options)
{
    std::vector<std::unique_ptr<zucam::camera>> made;
    for (std::size_t i = 0; i < options.cameras; i++) {
        zucam::camera_options each;
        each.numbered_size = frame_size;
        each.index = static_cast<unsigned>(i);
        each.seed = frames_seed(options.seed, i);
        made.push_back(std::make_unique<zucam::camera>(each));
    }
    return made;
}

void send_ports(int control, const std::vector<std::uint16_t>& ports)
{
    const std::size_t size = ports.size() * sizeof ports[0];
    if (send(control, ports.data(), size, MSG_NOSIGNAL) != static_cast<ssize_t>(size)) {
        throw std::runtime_error("nobody takes the ports");
    }
}

void serve(const camera_side_options& options, int control)
{
    const auto cameras = make_cameras(options);
    std::vector<std::uint16_t> camera_ports;
    for (const auto& each : cameras) {
        camera_ports.push_back(each->port());
    }
    relay between({options.seed, options.link_life, control}, camera_ports);
    send_ports(control, between.ports());
    between.run();
}

// The whole life of the child. It dies with its parent, whatever ends that.
int run_child(const camera_side_options& options, int control)
{
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
    (void)std::signal(SIGPIPE, SIG_IGN);
    try {
        serve(options, control);
    } catch (const std::exception& error) {
        (void)std::fprintf(stderr, "soak: the cameras: %s\n", error.what());
        return 1;
    }
    return 0;
}

} // namespace

camera_side::camera_side(const camera_side_options& options) : ports_(options.cameras)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
        throw std::runtime_error(std::string("no socket pair: ") + std::strerror(errno));
    }
    process_ = fork();
    if (process_ == 0) {
        (void)close(ends[0]);
        std::exit(run_child(options, ends[1]));
    }
    (void)close(ends[1]);
    control_ = ends[0];
    const auto size = static_cast<ssize_t>(ports_.size() * sizeof ports_[0]);
    if (process_ < 0 || recv(control_, ports_.data(), static_cast<std::size_t>(size), 0) != size) {
        throw std::runtime_error("the cameras can't be started");
    }
}

camera_side::~camera_side()
{
    (void)end();
    (void)close(control_);
}

bool camera_side::end()
{
    int status = 0;
    if (process_ > 0) {
        tell({note_kind::end, 0, 0, 0, 0});
        (void)waitpid(std::exchange(process_, -1), &status, 0);
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::uint16_t camera_side::port(std::size_t camera) const
{
    return ports_[camera];
}

void camera_side::tell(const note& what) const
{
    (void)send(control_, &what, sizeof what, MSG_NOSIGNAL); // ask() tells when nobody listens
}

counts camera_side::ask() const
{
    counts out = {};
    tell({note_kind::give_counts, 0, 0, 0, 0});
    if (recv(control_, &out, sizeof out, 0) != sizeof out) {
        out = {};
        (void)std::snprintf(out.complaint.data(), out.complaint.size(),
                            "the process of the cameras has ended");
    }
    return out;
}

} // namespace soak
