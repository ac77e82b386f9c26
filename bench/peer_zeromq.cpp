// The peer ZeroMQ: messages of the same sizes by PUSH and PULL over TCP. The device is here too.
#include <zmq.h>

#include <cstring>
#include <stdexcept>
#include <thread>
#include <vector>

#include "peer_meter.h"
#include "traffic.h"
#include "wire.h"

namespace bench
{

namespace
{

void must(bool good, const char* what)
{
    if (!good) {
        throw std::runtime_error(std::string("ZeroMQ: ") + what + ": " + zmq_strerror(zmq_errno()));
    }
}

std::vector<std::string> messages_of(const traffic& what)
{
    std::vector<std::string> out;
    const std::string& all = what.cycle();
    for (std::size_t at = 0; at < all.size();) {
        head first;
        std::memcpy(&first, all.data() + at, sizeof(first));
        const std::size_t whole = sizeof(first) + static_cast<std::size_t>(first.len);
        out.push_back(all.substr(at, whole));
        at += whole;
    }
    return out;
}

} // namespace

double take_by_zeromq(unsigned short port, long units)
{
    void* context = zmq_ctx_new();
    void* socket = zmq_socket(context, ZMQ_PULL);
    const std::string from = "tcp://127.0.0.1:" + std::to_string(port);
    must(zmq_connect(socket, from.c_str()) == 0, "connect");
    peer_meter meter(units);
    zmq_msg_t message;
    zmq_msg_init(&message);
    while (!meter.done()) {
        must(zmq_msg_recv(&message, socket, 0) >= 0, "recv");
        meter.unit(zmq_msg_size(&message));
    }
    zmq_msg_close(&message);
    zmq_close(socket);
    zmq_ctx_term(context);
    return meter.seconds_a_gigabyte();
}

unsigned short start_zeromq_device(const std::string& traffic_name)
{
    void* socket = zmq_socket(zmq_ctx_new(), ZMQ_PUSH);
    must(zmq_bind(socket, "tcp://127.0.0.1:*") == 0, "bind");
    char where[100];
    std::size_t length = sizeof(where);
    must(zmq_getsockopt(socket, ZMQ_LAST_ENDPOINT, where, &length) == 0, "getsockopt");
    std::thread([socket, messages = messages_of(traffic(traffic_name))] {
        for (;;) {
            for (const std::string& each : messages) {
                must(zmq_send(socket, each.data(), each.size(), 0) >= 0, "send");
            }
        }
    }).detach();
    const std::string endpoint = where;
    return static_cast<unsigned short>(std::stoi(endpoint.substr(endpoint.rfind(':') + 1)));
}

} // namespace bench
