// The TCP connection to a device: connect with a limit, send all, is it still established.
//
// The three are exported beside the public interface. None keeps state; the device manager calls
// tcp_ext_connect and check_tcp_socket_status, and nothing in the library calls sdk_send_to_tcp.
#pragma once

#include "zu_net_dev_api.h"

extern "C" {

// Connects to `address` (dotted IPv4 text) and `port` (host order) within `blockTimeMs`
// milliseconds, or as long as the system takes when that is -1. Returns the socket, blocking, with
// keep-alive, three-second time-outs and close-on-exec set, or -1. A text that is no address
// becomes 0.0.0.0.
ZU_NET_DEV_EXPORT int tcp_ext_connect(const char* address, unsigned short port, int blockTimeMs);

// Sends `len` bytes. Returns 0, or -1 as soon as one `send` fails or sends nothing; so `len` 0
// fails too. The caller keeps other writers away.
ZU_NET_DEV_EXPORT int sdk_send_to_tcp(int fd, const void* p, int len);

// Returns 0 while the connection is in the established state, otherwise -1 and writes a line that
// no log level silences.
ZU_NET_DEV_EXPORT int check_tcp_socket_status(int sockfd);
}

// Keeps a descriptor from being inherited by a program that the application starts.
void set_close_on_exec(int fd);

// Reads the pending error of a socket into `error`; false when that fails.
bool read_socket_error(int sockfd, int* error);
