// One connection of an RTSP server, as far as a client needs it to start: whatever it asks for is
// granted, interleaved on the connection.
#pragma once

#include <functional>
#include <string>

namespace bench
{

class rtsp_link
{
public:
    // `answer` gets each response; with `plays` the packets are to follow it.
    rtsp_link(int fd, unsigned short port,
              std::function<void(const std::string&, bool plays)> answer);

    void serve(); // until the client hangs up

private:
    bool read_more();
    bool take_request(std::string* request);
    std::string response(const std::string& request) const;

    const int fd;
    const std::string url;
    const std::function<void(const std::string&, bool)> answer;
    std::string unread;
};

} // namespace bench
