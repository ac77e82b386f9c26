// The peer libcurl: the messages as the body of one HTTP response, cut as it comes. Pieces of
// messages that libcurl's reads have parted are put together.
#include <curl/curl.h>

#include <cstring>
#include <stdexcept>
#include <string>

#include "cutter.h"
#include "peer_meter.h"

namespace bench
{

namespace
{

constexpr long read_size = large_read;

struct body {
    peer_meter& meter;
    std::string parted; // a message that has begun

    // Cuts whole messages off; returns how much of the data they took.
    std::size_t cut(const char* data, std::size_t size)
    {
        std::size_t at = 0;
        head first;
        while (size - at >= sizeof(first)) {
            std::memcpy(&first, data + at, sizeof(first));
            const std::size_t whole = sizeof(first) + static_cast<std::size_t>(first.len);
            if (size - at < whole) {
                break;
            }
            meter.unit(whole);
            at += whole;
        }
        return at;
    }

    void take(const char* data, std::size_t size)
    {
        if (parted.empty()) {
            const std::size_t used = cut(data, size);
            parted.assign(data + used, size - used);
            return;
        }
        parted.append(data, size);
        parted.erase(0, cut(parted.data(), parted.size()));
    }
};

std::size_t on_data(char* data, std::size_t, std::size_t size, void* own)
{
    static_cast<body*>(own)->take(data, size);
    return size;
}

} // namespace

double take_by_curl(unsigned short port, long units)
{
    peer_meter meter(units);
    body own = {meter, {}};
    CURL* transfer = curl_easy_init();
    const std::string url = "http://127.0.0.1:" + std::to_string(port) + "/";
    curl_easy_setopt(transfer, CURLOPT_URL, url.c_str());
    curl_easy_setopt(transfer, CURLOPT_NOPROXY, "*");
    curl_easy_setopt(transfer, CURLOPT_BUFFERSIZE, read_size);
    curl_easy_setopt(transfer, CURLOPT_WRITEFUNCTION, on_data);
    curl_easy_setopt(transfer, CURLOPT_WRITEDATA, &own);
    const CURLcode result = curl_easy_perform(transfer);
    curl_easy_cleanup(transfer);
    if (result != CURLE_OK || !meter.done()) {
        throw std::runtime_error(std::string("libcurl: ") + curl_easy_strerror(result));
    }
    return meter.seconds_a_gigabyte();
}

} // namespace bench
