// The camera's port: kept for it all its life, listened on or not.
//
// A second socket holds the port without ever listening, so that the system gives it to nobody who
// asks for any port while the camera refuses connections. Used by the thread that accepts; made and
// ended by the camera before and after that thread runs.
#ifndef ZUCAM_LISTENER_H
#define ZUCAM_LISTENER_H

#include <cstdint>
#include <string>

namespace zucam
{

class listener
{
public:
    // Throws std::runtime_error with one clear line.
    listener(const std::string& address, std::uint16_t port);
    ~listener();
    listener(const listener&) = delete;
    listener& operator=(const listener&) = delete;

    std::uint16_t port() const;
    // Throws when the system has no socket for it, or another camera took the port meanwhile.
    void open();
    void shut();
    bool is_open() const;
    int descriptor() const; // -1 while shut
    // A connected socket (close-on-exec, without delay), or -1 when nobody waits.
    int accept_one() const;

private:
    int bind_socket(std::uint16_t port) const;

    std::string address_;
    std::uint16_t port_ = 0;
    int holder_ = -1;
    int listening_ = -1;
};

} // namespace zucam

#endif
