// This program again, in a process of its own: what it uses is not counted as the client's.
#pragma once

#include <string>
#include <vector>

#include "sockets.h"

namespace bench
{

class child
{
public:
    // Runs `program` from this program's folder. It is to end when its standard input does.
    child(const std::string& program, const std::vector<std::string>& arguments);
    ~child();
    child(const child&) = delete;
    child& operator=(const child&) = delete;

    std::string read_line();

private:
    descriptor input;
    descriptor output;
    int pid = -1;
};

// A device: a child that prints the port on which it listens.
class device_process
{
public:
    explicit device_process(const std::vector<std::string>& role); // of bench/roles.h
    device_process(const std::string& program, const std::vector<std::string>& arguments);

    unsigned short port() const
    {
        return listening_port;
    }

private:
    child process;
    unsigned short listening_port;
};

} // namespace bench
