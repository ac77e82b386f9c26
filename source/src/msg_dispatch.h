// What becomes of a complete message: a response is relayed to the loopback port that waits for it,
// a heartbeat answer becomes an event, stream data goes to the stream callback, anything else is
// dropped. Runs on the receiver thread, whose lines it writes; calls the stream callback there.
#pragma once

#include "sdk_user.h"
#include "zu_net_dev_msg.h"

// A message in the receiver's buffer, and what is carried from one message to the next.
struct inbox {
    zu_sdk_user* user;
    device_link* link;
    char* message;    // on a word boundary, somewhere in the buffer
    int last_recv;    // result of the last body read, 1 when there was no body
    ZU_U32 data_type; // of the last stream message; carried over to unknown flags

    zu_sdk_msg_head* head() const
    {
        return reinterpret_cast<zu_sdk_msg_head*>(message);
    }
    char* body() const
    {
        return message + sizeof(zu_sdk_msg_head);
    }
};

// Acts on the message, unless its link has ended meanwhile. False when a relay has failed, which
// ends the receiver.
bool dispatch(inbox& in);
