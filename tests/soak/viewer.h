// One login at one camera: the callback that checks every frame, requests that are counted and
// judged, logging out and in again.
//
// Requests come from many threads at once and hold the login's lock shared; logging out and in
// holds it alone, since a handle that was logged out may name another login. The stream callback
// runs on the receiver thread of the login and takes no lock.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <random>
#include <shared_mutex>
#include <string>

#include "camera_side.h"
#include "notes.h"
#include "zu_net_dev_api.h"

namespace soak
{

// What all logins of a run share. Any thread.
struct tally {
    std::atomic<std::int64_t> frames{0};
    std::atomic<std::int64_t> requests_made{0};
    std::atomic<std::int64_t> requests_answered{0};
    std::atomic<std::int64_t> logins{0}; // that have succeeded
    std::atomic<std::int64_t> logins_tried{0};
    std::atomic<std::int64_t> barrier{1}; // the next unknown command
};

// The first thing that is wrong on the library's side. Any thread.
class verdict
{
public:
    void complain(const std::string& what);
    bool has_complaint() const;
    std::string complaint() const;

private:
    mutable std::mutex mutex_;
    std::string what_;
    std::atomic<bool> wrong_{false};
};

struct surroundings {
    camera_side& cameras;
    tally& counted;
    verdict& judged;
    std::uint32_t seed;
};

class viewer
{
public:
    viewer(surroundings& around, std::size_t camera);

    // Logs in, until it succeeds, and starts the stream.
    void begin();
    // Logs out and in again; before that it may stop the stream, so that nothing is under way.
    void log_out_and_in(bool stop_first);
    // Stops the stream, waits until all of it has come, and logs out.
    void end();

    // One request, or a few that belong together, of any kind that leaves the stream running.
    void ask_something(std::mt19937& random);
    // Stops the stream and starts it again.
    void interrupt();

    std::int64_t frames() const;
    // The next frame is thrown away, as if the library had lost it.
    void lose_one();
    bool has_lost_it() const;
    // Tells of what is missing at the very end.
    void close_account() const;

private:
    using call = std::function<ZU_S32()>;

    static ZU_S32 on_block(ZU_U32 handle, ZU_U32 type, ZU_U8* block, ZU_U32 length, void* self);
    static ZU_S32 on_event(ZU_U32 handle, ZU_U32 event, void* self);
    void take(ZU_U32 handle, const ZU_U8* block, ZU_U32 length);
    void take_frame(std::int64_t number);

    void log_in();
    bool log_in_once();
    void log_out();
    void settle();
    void attach();
    bool ask(request_name name, const call& make, bool may_be_refused = false);
    bool start();
    bool stop();
    void wait_behind_barrier();
    void begin_stream();
    void ask_for_key_frame(std::mt19937& random);
    void ask_for_move(std::mt19937& random);
    void ask_for_preset(std::mt19937& random);
    void ask_about_video(std::mt19937& random);
    void ask_about_sound(std::mt19937& random);
    void ask_about_quantiser(std::mt19937& random);
    void ask_for_presets();

    surroundings& around_;
    const std::size_t camera_;
    const std::uint32_t frames_seed_;
    std::shared_mutex using_;
    ZU_U32 handle_ = 0;
    std::atomic<std::int64_t> last_{no_frame};
    std::atomic<std::int64_t> frames_{0};
    std::atomic<bool> lose_{false};
};

} // namespace soak
