// The two sockets of one connection, and who may still use them.
//
// A descriptor number goes back to the system only when no thread of ours can use it any more. The
// TCP socket and the loopback socket of one connection therefore belong to a device_link, which the
// record, both workers and a Logout under way hold. Shutting a socket down sets its mark first (one
// atomic exchange decides who acts) and wakes whoever is blocked on it; the number itself is closed
// by the last holder. A marked link has ended: its workers call no callback and relay nothing.
//
// Links live in a small pool inside the record, so a connection allocates nothing. Which of them is
// the current one is the record's business (sdk_user.h).
#pragma once

#include <atomic>

struct device_link {
    std::atomic<bool> in_use; // stored last by whoever gives the link back
    std::atomic<int> holders;
    std::atomic<bool> ext_shut; // the marks
    std::atomic<bool> int_shut;
    // Noticed by the receiver on ext_sock, which it reads; ends the sender, which would be woken by
    // all that arrives there if it waited for this itself.
    std::atomic<bool> urgent_data;
    // It was there before anything else that ends the sender, so it has the sender's last word, as
    // if the sender had been woken by it.
    std::atomic<bool> urgent_first;
    int ext_sock;              // written before the link is shared
    std::atomic<int> int_sock; // -1 until the device manager has built it
};

// At most three links of a login are in use at once: the current one, one that workers of a failed
// start still hold, and one that a Logout is just shutting down.
struct link_pool {
    device_link links[3];
};

// Takes a free link for a fresh TCP socket. The caller is its first holder. Device manager only.
device_link* link_open(link_pool& pool, int ext_sock);

void link_hold(device_link* link);

// Gives one hold back; the last closes both sockets.
void link_drop(device_link* link);

// Marks one socket and shuts it down, once whoever calls; nothing when the link has no such socket.
void link_shut_ext(device_link* link);
void link_shut_int(device_link* link);

// Sees to it that urgent data which has come has the sender's last word. Before the sender is told
// to end in another way; shutting a socket begins with it.
void link_let_urgent_data_be_first(device_link* link);

// Whether either socket has been marked.
bool link_is_shut(const device_link* link);

// Whether urgent data has come. What the receiver has read past can be seen in its note alone; what
// it has not come to yet, because a callback takes its time, on the socket alone.
bool link_has_urgent_data(const device_link* link);

// Makes the loopback socket of a link: UDP on 127.0.0.1, on a port that the system chooses, stored
// in host byte order. Returns 0, or -1 after its line; `*psock` may then name a closed descriptor.
int build_int_sock(std::atomic<int>* psock, std::atomic<int>* pport);
