// The request pattern of the entry points, and the loopback exchange underneath it.
//
// A request goes as one datagram from a fresh socket to the sender thread's loopback port; the
// receiver thread sends the response back to that socket's own port. So any number of callers may
// have requests under way on one login. Runs on the caller's thread, keeps nothing between calls,
// allocates nothing: the message stands on the caller's stack.
#pragma once

#include "sdk_user.h"
#include "zu_net_dev_msg.h"

// The largest datagram the channel carries. Every request block is this large, whatever the size of
// its message: a reply of any length then fits, and a short one leaves the rest as the request had
// it.
constexpr int request_block_size = msgsender_buf_size;

// One request and, after the exchange, its reply.
union request_block {
    char bytes[request_block_size];
    struct {
        zu_sdk_msg_head head;
        union {
            zu_sdk_msg_startstream startstream;
            zu_sdk_msg_stopstream stopstream;
            zu_sdk_msg_makekeyframe makekeyframe;
            zu_sdk_msg_ptz ptz;
            zu_sdk_msg_preset preset;
            zu_sdk_msg_config config;
            zu_sdk_msg_response response;
        } payload;
    } msg;
};

// A zeroed block with its header written. `payload_size` counts what follows the header.
request_block make_request(int type, int payload_size);

// Sends the block and waits for its response. False after a line of the entry point `who` when the
// exchange failed.
bool exchange_request(const char* who, zu_sdk_user* user, request_block* block);

// The same with the last lines of the entry point: returns the device's response code, or -1 when
// the exchange failed.
int run_request(const char* who, zu_sdk_user* user, request_block* block);

// The exchange alone. Returns the reply's length, also in `*rxlen`, or -1; a failed receive sets
// `*rxlen` to 0 and every other failure leaves it alone. At log levels 1 and 2 the wait ends after
// more than three seconds; at the other levels it has no end. `rxbuf` has room for 5,120 bytes.
int udp_tx_rx(zu_sdk_user* sdk_user, void* txbuf, int txlen, void* rxbuf, int* rxlen);
