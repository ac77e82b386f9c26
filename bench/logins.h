// Logins by the library, as the groups use them.
#pragma once

#include <deque>
#include <memory>

#include "sink.h"

namespace bench
{

// Init for as long as it lives, at log level 1.
class library
{
public:
    library();
    ~library();
    library(const library&) = delete;
    library& operator=(const library&) = delete;
};

class login
{
public:
    explicit login(unsigned short port);
    ~login();
    login(const login&) = delete;
    login& operator=(const login&) = delete;

    // The sink must outlive the login.
    void deliver_to(sink& blocks) const;
    void start_stream() const;
    ZU_U32 handle() const
    {
        return own_handle;
    }

private:
    ZU_U32 own_handle = 0;
};

// Many at once, each with a sink.
class login_crowd
{
public:
    login_crowd(unsigned short port, int how_many, bool streaming);
    ~login_crowd();
    login_crowd(const login_crowd&) = delete;
    login_crowd& operator=(const login_crowd&) = delete;

    long taken() const; // of all

private:
    std::deque<sink> sinks;
    std::deque<std::unique_ptr<login>> logins;
};

} // namespace bench
