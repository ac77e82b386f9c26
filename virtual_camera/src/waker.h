// An event descriptor that wakes a thread out of poll. wake() may be called
// from any thread and any number of times, clear() by the thread that
// polls; a wake between clear() and the next poll is not lost. The object
// must outlive every thread that may wake it.
#ifndef ZUCAM_WAKER_H
#define ZUCAM_WAKER_H

#include <stdexcept>
#include <sys/eventfd.h>
#include <unistd.h>

namespace zucam
{

class waker
{
public:
    waker() : fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
    {
        if (fd_ < 0) {
            throw std::runtime_error("no descriptor left; allow more of them (ulimit -n)");
        }
    }

    ~waker()
    {
        (void)close(fd_);
    }

    waker(const waker&) = delete;
    waker& operator=(const waker&) = delete;

    int descriptor() const
    {
        return fd_;
    }

    void wake() const
    {
        (void)eventfd_write(fd_, 1);
    }

    void clear() const
    {
        eventfd_t ignored = 0;
        (void)eventfd_read(fd_, &ignored);
    }

private:
    const int fd_;
};

} // namespace zucam

#endif
