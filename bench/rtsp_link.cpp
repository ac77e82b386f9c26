// One connection of an RTSP server. See rtsp_link.h.
#include "rtsp_link.h"

#include <algorithm>
#include <sys/socket.h>

namespace bench
{

namespace
{

const std::string description = "v=0\r\n"
                                "o=- 1 1 IN IP4 127.0.0.1\r\n"
                                "s=camera\r\n"
                                "c=IN IP4 127.0.0.1\r\n"
                                "t=0 0\r\n"
                                "a=control:*\r\n"
                                "m=video 0 RTP/AVP 96\r\n"
                                "a=rtpmap:96 H264/90000\r\n"
                                "a=fmtp:96 packetization-mode=1;profile-level-id=42c01f\r\n"
                                "a=control:track\r\n";

std::string header_of(const std::string& request, const std::string& name)
{
    const std::size_t at = request.find("\r\n" + name + ": ");
    if (at == std::string::npos) {
        return "";
    }
    const std::size_t from = at + name.size() + 4;
    return request.substr(from, request.find("\r\n", from) - from);
}

} // namespace

rtsp_link::rtsp_link(int its_fd, unsigned short port,
                     std::function<void(const std::string&, bool)> its_answer)
    : fd(its_fd), url("rtsp://127.0.0.1:" + std::to_string(port) + "/camera"),
      answer(std::move(its_answer))
{
}

void rtsp_link::serve()
{
    std::string request;
    while (take_request(&request)) {
        answer(response(request), request.rfind("PLAY ", 0) == 0);
    }
}

bool rtsp_link::read_more()
{
    char some[4096];
    const ssize_t got = recv(fd, some, sizeof(some), 0);
    unread.append(some, static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    return got > 0;
}

// The next request; what the client reports about its reception is passed over. Requests of the
// clients here have no body.
bool rtsp_link::take_request(std::string* request)
{
    for (;;) {
        std::size_t size = 0;
        if (!unread.empty() && unread[0] == '$') {
            size = unread.size() < 4 ? std::string::npos
                                     : 4 + static_cast<unsigned char>(unread[2]) * 256U +
                                           static_cast<unsigned char>(unread[3]);
            if (size <= unread.size()) {
                unread.erase(0, size);
                continue;
            }
        } else if ((size = unread.find("\r\n\r\n")) != std::string::npos) {
            *request = unread.substr(0, size + 4);
            unread.erase(0, size + 4);
            return true;
        }
        if (!read_more()) {
            return false;
        }
    }
}

std::string rtsp_link::response(const std::string& request) const
{
    const std::string method = request.substr(0, request.find(' '));
    std::string out = "RTSP/1.0 200 OK\r\nCSeq: " + header_of(request, "CSeq") + "\r\n";
    if (method == "OPTIONS") {
        return out + "Public: OPTIONS, DESCRIBE, SETUP, PLAY, TEARDOWN, GET_PARAMETER\r\n\r\n";
    }
    if (method == "DESCRIBE") {
        return out + "Content-Base: " + url +
               "/\r\nContent-Type: application/sdp\r\nContent-Length: " +
               std::to_string(description.size()) + "\r\n\r\n" + description;
    }
    out += "Session: 1;timeout=600\r\n";
    if (method == "SETUP") {
        out += "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n";
    } else if (method == "PLAY") {
        out += "RTP-Info: url=" + url + "/track;seq=0;rtptime=0\r\n";
    }
    return out + "\r\n";
}

} // namespace bench
