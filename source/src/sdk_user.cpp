// The table of SDK users and the state of the library. See sdk_user.h.
//
// Runs on any thread. Lines are written after the mutex has been released, so that a log callback
// may call the library; memory is given back outside it too.
#include "sdk_user.h"

#include <csignal>
#include <sys/mman.h>

#include "log.h"

extern "C" {
zu_sdk_user* sdk_users[sdk_user_max];
}

std::atomic<int> zu_sdk_inited;

namespace
{

pthread_mutex_t sdk_server_mutex;
int mutex_init_flag; // Init and DeInit; keeps either from doing its work twice
int search_downward; // which way the next slot is searched; guarded by the mutex

// The layout that the exported table makes visible.
static_assert(sizeof(shared_stream_info) == sizeof(ZU_S_STREAM_INFO_EXT), "");
static_assert(sizeof(std::atomic<int>) == sizeof(int), "");
static_assert(sizeof(std::atomic<pthread_t>) == sizeof(pthread_t), "");
static_assert(sizeof(std::atomic<void*>) == sizeof(void*), "");
static_assert(offsetof(zu_sdk_user, used) == 0, "");
static_assert(offsetof(zu_sdk_user, handle) == 4, "");
static_assert(offsetof(zu_sdk_user, username) == 24, "");
static_assert(offsetof(zu_sdk_user, devname) == 56, "");
static_assert(offsetof(zu_sdk_user, port) == 72, "");
static_assert(offsetof(zu_sdk_user, int_sock) == 92, "");
static_assert(offsetof(zu_sdk_user, ext_sock) == 96, "");
static_assert(offsetof(zu_sdk_user, devmanager) == 104, "");
static_assert(offsetof(zu_sdk_user, msgrecver_started) == 128, "");
static_assert(offsetof(zu_sdk_user, msgsender_started) == 144, "");
static_assert(offsetof(zu_sdk_user, stream_info) == 200, "");
static_assert(offsetof(zu_sdk_user, stream_callback) == 216, "");
static_assert((offsetof(zu_sdk_user, msgrecver_buf) + 12) % 4 == 0, "a body is 4-byte aligned");
static_assert(offsetof(zu_sdk_user, holders) ==
                  offsetof(zu_sdk_user, dstFileName) + sizeof(zu_sdk_user::dstFileName),
              "what is not declared stands behind what is");

// Locks the table for the length of a scope. No line may be written inside it.
class table_lock
{
public:
    table_lock()
    {
        pthread_mutex_lock(&sdk_server_mutex);
    }
    ~table_lock()
    {
        pthread_mutex_unlock(&sdk_server_mutex);
    }
    table_lock(const table_lock&) = delete;
    table_lock& operator=(const table_lock&) = delete;
};

// The slot that the next login takes, or -1 when all are held. Mutex held.
int find_free_slot()
{
    for (int i = 0; i < sdk_user_max; i++) {
        const int slot = search_downward != 0 ? sdk_user_max - 1 - i : i;
        if (sdk_users[slot] == nullptr) {
            return slot;
        }
    }
    return -1;
}

// A zeroed record without pipes, held by its slot; null when memory is short.
//
// A mapping of its own, not a heap block: most of its 2 MB is never touched and so never resident,
// and it goes back to the system with the login, whatever the heap keeps.
zu_sdk_user* make_record()
{
    void* memory = mmap(nullptr, sizeof(zu_sdk_user), PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        return nullptr;
    }
    auto* user = static_cast<zu_sdk_user*>(memory);
    for (int i = 0; i < 2; i++) {
        user->shutdown_pipe_recver[i] = -1;
        user->shutdown_pipe_sender[i] = -1;
    }
    user->holders = 1;
    return user;
}

int slot_of(ZU_U32 index)
{
    return static_cast<int>(index & 0xffff);
}

// The line of a look-up that found no record.
void log_missing(const char* who, int slot)
{
    if (slot >= sdk_user_max) {
        LOG_ERROR(who, " index invalid! index: %d\n", slot);
    } else {
        LOG_ERROR(who, "sdkuser invalid! index: %d\n", slot);
    }
}

} // namespace

ZU_S32 ZU_NET_DEV_Init()
{
    LOG_TRACE(__func__, "enter ZU_NET_DEV_Init\n");
    if (zu_sdk_inited == 1) {
        LOG_ERROR(__func__, "zu_sdk_inited == 1\n");
        return ZU_FAILURE;
    }
    zu_sdk_inited = 1;
    signal(SIGPIPE, SIG_IGN); // a dropped link shall fail a write, not end the process
    if (mutex_init_flag == 0) {
        if (pthread_mutex_init(&sdk_server_mutex, nullptr) != 0) {
            // The library stays marked as initialised until DeInit, on purpose.
            LOG_ERROR(__func__, "pthread_mutex_init() failed\n");
            return ZU_FAILURE;
        }
        mutex_init_flag = 1;
    }
    LOG_TRACE(__func__, "leave ZU_NET_DEV_Init\n");
    return ZU_SUCCESS;
}

ZU_S32 ZU_NET_DEV_DeInit()
{
    LOG_TRACE(__func__, "enter ZU_NET_DEV_DeInit\n");
    zu_sdk_inited = 0;
    if (mutex_init_flag == 1) {
        pthread_mutex_destroy(&sdk_server_mutex);
        mutex_init_flag = 0;
    }
    LOG_TRACE(__func__, "leave ZU_NET_DEV_DeInit\n");
    return ZU_SUCCESS;
}

int alloc_sdkuser()
{
    int slot;
    zu_sdk_user* user = nullptr;
    {
        const table_lock locked;
        slot = find_free_slot();
        if (slot != -1) {
            search_downward = search_downward != 0 ? 0 : 1; // even if memory is short
            user = make_record();
            sdk_users[slot] = user;
        }
    }
    if (slot == -1) {
        LOG_ERROR(__func__, "sdk user number full!\n");
        return -1;
    }
    if (user == nullptr) {
        LOG_ERROR(__func__, "alloc sdk user fail!\n");
        return -1;
    }
    LOG_TRACE(__func__, "alloc sdk user:%d\n", slot);
    return slot;
}

zu_sdk_user* get_sdkuser(ZU_U32 index)
{
    const int slot = slot_of(index);
    zu_sdk_user* user = nullptr;
    if (slot < sdk_user_max) {
        const table_lock locked;
        user = sdk_users[slot];
        if (user != nullptr) {
            sdk_user_hold(user);
        }
    }
    if (user == nullptr) {
        log_missing(__func__, slot);
    }
    return user;
}

int free_sdkuser(ZU_U32 index)
{
    const int slot = slot_of(index);
    zu_sdk_user* user = nullptr;
    if (slot < sdk_user_max) {
        const table_lock locked;
        user = sdk_users[slot];
        sdk_users[slot] = nullptr;
    }
    if (user == nullptr) {
        log_missing(__func__, slot);
        return -1;
    }
    sdk_user_drop(user);
    return 0;
}

void sdk_user_hold(zu_sdk_user* user)
{
    user->holders++;
}

void sdk_user_drop(zu_sdk_user* user)
{
    if (--user->holders == 0) {
        munmap(user, sizeof(*user));
    }
}

void sdk_user_set_link(zu_sdk_user* user, device_link* link)
{
    device_link* former;
    {
        const table_lock locked;
        former = user->link;
        user->link = link;
    }
    if (former != nullptr) {
        link_drop(former);
    }
}

device_link* sdk_user_take_link(zu_sdk_user* user)
{
    const table_lock locked;
    if (user->link != nullptr) {
        link_hold(user->link);
    }
    return user->link;
}
