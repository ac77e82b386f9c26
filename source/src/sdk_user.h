// The SDK user: the record of one login, the table of 256 of them, and the state of the library.
//
// A record lives as long as somebody holds it: the table slot, the device manager thread, each
// worker, each event handler thread (taken by whoever starts the thread) and each entry point from
// look-up to return. The last to let go gives the memory back.
//
// sdk_server_mutex guards the table and each record's pointer to its current link. It is never held
// across a log line, a callback or a wait. Words that several threads use are atomics of the
// declared fields' own widths; the others belong to one thread at a time, as noted.
#pragma once

#include <atomic>
#include <cstddef>
#include <pthread.h>

#include "link.h"
#include "queue.h"
#include "zu_net_dev_api.h"
#include "zu_net_dev_disk.h"

constexpr int ZU_SDK_USER_USED = 0x1234abcd; // `used` while the link is up
constexpr ZU_U32 sdk_user_handle_base = 0x43210000;
constexpr int sdk_user_max = 256;
constexpr int msgsender_buf_size = 5120;
constexpr int msgrecver_body_max = 1048576;
constexpr int msgrecver_buf_size = msgrecver_body_max + 12;

// `stream_info`, shared word by word; the layout of ZU_S_STREAM_INFO_EXT.
struct shared_stream_info {
    std::atomic<ZU_U32> u32Channel;
    std::atomic<ZU_U32> u32Stream;
    std::atomic<ZU_U32> u32Mode;
    std::atomic<ZU_U8> u8Type;
};

// How far a login has come, as far as ending it is concerned. One exchange decides who ends it.
enum login_state : int {
    login_in_set_up, // Login still owns all of it
    login_live,      // the device manager has been started
    login_ending,    // a Logout, or Login's failure path, is at work
};

// The declared fields stand in their fixed order with natural C layout (the exported table makes
// them visible); "declared only" ones keep their place and are never used.
struct zu_sdk_user {
    std::atomic<int> used;
    std::atomic<ZU_U32> handle;
    char hostaddr[16]; // declared only
    char username[16];
    char password[16];
    char devname[16];
    unsigned short port;
    std::atomic<int> reconnect_interval; // stored and never consulted
    int key_frame;                       // declared only
    int status;                          // declared only
    std::atomic<int> int_port;
    std::atomic<int> int_sock;
    std::atomic<int> ext_sock;
    std::atomic<int> devmanager_run;
    pthread_t devmanager;            // Login; joined by whoever ends the login
    volatile int devmanager_started; // declared only
    std::atomic<int> msgrecver_run;
    pthread_t msgrecver; // device manager, after its end whoever ends the login
    std::atomic<int> msgrecver_started;
    std::atomic<int> msgsender_run;
    pthread_t msgsender; // like msgrecver
    std::atomic<int> msgsender_started;
    pthread_t queuemanager;   // declared only
    pthread_t queuemanager_a; // declared only
    std::atomic<pthread_t> eventhandler;
    std::atomic<int> event;
    pthread_t recordmanager; // declared only
    pthread_t recordstream;  // declared only
    shared_stream_info stream_info;
    std::atomic<ZU_ON_STREAM_CALLBACK> stream_callback;
    std::atomic<ZU_VOID*> stream_userdata; // stored before the callback, loaded after it
    std::atomic<ZU_ON_EVENT_CALLBACK> event_callback;
    std::atomic<ZU_VOID*> event_userdata;               // likewise
    ZU_ON_RECORD_CALLBACK record_callback;              // declared only
    ZU_VOID* record_userdata;                           // declared only
    ZU_ON_RECRD_STREAM_CALLBACK record_stream_callback; // declared only
    ZU_VOID* record_stream_userdata;                    // declared only
    ZU_S_GetRecordStream record_stream_time;            // declared only
    ZU_ON_VMD_CALLBACK vmd_callback;                    // declared only
    ZU_VOID* vmd_userdata;                              // declared only
    std::atomic<int> exit_flag;
    ZU_S_AudioHeader audio_info;            // receiver
    ZU_S_VideoHeader video_info;            // receiver
    ZU_S_StreamHeader stream_header;        // declared for the receiver, which leaves it alone
    char msgsender_buf[msgsender_buf_size]; // sender
    char msgrecver_buf[msgrecver_buf_size]; // receiver
    char msgrecver_buf_a[102400];           // declared only
    char tmp_buf[1048576];                  // declared only
    std::atomic<int> sinked;
    queue_s queue;          // declared only
    queue_s queue_a;        // declared only
    pthread_t hDemaphore;   // declared only
    pthread_t hDemaphore_a; // declared only
    int connect_flag;       // Login before the device manager starts, then the device manager
    int enqueue_flag;       // declared only
    std::atomic<int> in_all_ok;
    ZU_BOOL key_frame_flag;      // declared only
    int cache_time;              // declared only
    int shutdown_pipe_recver[2]; // Login; closed by whoever ends the login, after the workers
    int shutdown_pipe_sender[2]; // likewise
    char srcFileName[256];       // declared only
    char dstFileName[256];       // declared only

    // Behind the declared fields: what keeps the record and its sockets safe to use.
    std::atomic<int> holders;
    std::atomic<int> state;             // login_state
    std::atomic<bool> callbacks_over;   // no event callback begins any more
    std::atomic<int> callbacks_running; // event callbacks that have begun and not returned
    device_link* worker_link;           // device manager; what the workers find when they start
    bool msgrecver_unjoined; // like msgrecver: the worker has been created and not joined yet
    bool msgsender_unjoined;
    device_link* link; // the current connection, a hold of its own; guarded by sdk_server_mutex
    link_pool links;
};

extern "C" {
extern ZU_NET_DEV_EXPORT zu_sdk_user* sdk_users[sdk_user_max];
}

extern std::atomic<int> zu_sdk_inited;

// The three primitives of the table. A handle counts by its low 16 bits.
//
// alloc_sdkuser takes a free slot, from alternate ends of the table, for a zeroed record without
// pipes, and returns the slot number, or -1 after its line.
int alloc_sdkuser();

// Finds the record of a handle and takes a hold on it; null after a line. Drop it with
// sdk_user_drop, or let a held_user do so.
zu_sdk_user* get_sdkuser(ZU_U32 index);

// Empties the slot and drops the slot's hold. Returns 0, or -1 after a line.
int free_sdkuser(ZU_U32 index);

void sdk_user_hold(zu_sdk_user* user);
void sdk_user_drop(zu_sdk_user* user);

// The hold of an entry point: from look-up to the end of the scope. Null when the look-up failed.
class held_user
{
public:
    explicit held_user(ZU_U32 handle) : user(get_sdkuser(handle))
    {
    }
    ~held_user()
    {
        if (user != nullptr) {
            sdk_user_drop(user);
        }
    }
    held_user(const held_user&) = delete;
    held_user& operator=(const held_user&) = delete;

    zu_sdk_user* get() const
    {
        return user;
    }
    zu_sdk_user* operator->() const
    {
        return user;
    }
    bool missing() const
    {
        return user == nullptr;
    }
    bool link_up() const
    {
        return user != nullptr && user->used == ZU_SDK_USER_USED;
    }

private:
    zu_sdk_user* const user;
};

// The record's current link. Only the device manager, and after its end whoever ends the login,
// sets it; set_link takes over the caller's hold and drops the former link's, take_link gives a
// hold to the caller (null when there is no link).
void sdk_user_set_link(zu_sdk_user* user, device_link* link);
device_link* sdk_user_take_link(zu_sdk_user* user);
