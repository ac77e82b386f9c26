// A program under test: started with its arguments, read line by line, ended
// by a signal, judged by its exit status. Every wait has a generous deadline.
// A program that a test leaves behind is killed with the object, so nothing
// outlives a failed test. Used by one thread.
#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

namespace tools
{

class program
{
public:
    program(const std::string& path, const std::vector<std::string>& arguments);
    ~program(); // kills what still runs
    program(const program&) = delete;
    program& operator=(const program&) = delete;

    // The next line of standard output without its end; empty when there is none.
    std::string next_line();
    std::string next_error_line(); // the same of standard error
    void send_signal(int number) const;
    pid_t pid() const; // until its end
    // Waits for the end. The exit status; 1000 and the signal's number when one ended it.
    int exit_status();
    // What was written in all, after the end.
    std::string output();
    std::string errors();

private:
    void read_rest();

    pid_t pid_ = -1;
    int out_ = -1;
    int err_ = -1;
    std::string line_buffer_;
    std::string error_buffer_;
    std::string output_;
    std::string errors_;
};

// The language of the programs that are started: shells and perl complain of one that is not
// installed, on standard error.
void speak_plainly();

// The port in "camera N listening on 127.0.0.1:PORT"; 0 when the line is another one.
std::uint16_t port_in(const std::string& line, int camera = 0);

} // namespace tools
