// The inside of a camera: accepts, answers, and owns links and streams.
//
// The accepting thread makes links and clears away ended ones. Link threads come in through
// link_owner. The mutex guards the links, the faults in force and the marks by which set_faults and
// drop_links wait for the accepting thread; it is never held while something is called that could
// call back. Order of locks: control's mutex, then a stream's, then a link's outbox; this mutex by
// itself.
#ifndef ZUCAM_CAMERA_CORE_H
#define ZUCAM_CAMERA_CORE_H

#include "virtual_camera/camera.h"

#include "control.h"
#include "link.h"
#include "listener.h"
#include "stream_hub.h"
#include "waker.h"

#include <array>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

namespace zucam
{

class camera_core : public link_owner
{
public:
    explicit camera_core(const camera_options& options);
    ~camera_core() override;

    std::uint16_t port() const;
    camera_counters counters() const;
    void drop_links();
    void set_faults(const faults& value);
    void stop();

    std::shared_ptr<const active_faults> current_faults() override;
    void received(link& from, const wire::request& what) override;
    void malformed(link& from, const wire::header& what) override;
    void handle(link& from, const wire::request& what) override;
    void ended(link& from) override;

    const journal& received_so_far() const;

private:
    camera_core(const camera_options& options, const stream_configs& start);
    std::shared_ptr<const active_faults> faults_in_force() const;
    void run();
    bool wait_for_work() const;
    void accept_all();
    void welcome(int socket);
    std::uint64_t count_connection();
    std::unique_ptr<link> make_link(int socket, std::uint64_t number);
    void add_link(std::unique_ptr<link> made);
    void begin_link(std::unique_ptr<link> made);
    void obey_refusal();
    void mark_obeyed(std::uint64_t generation);
    void clear_ended_links();
    void answer(link& from, const wire::request& what);
    void start_stream(link& from, const wire::request& what);
    void stop_stream(link& from, const wire::request& what);
    void make_key_frame(link& from, const wire::request& what);
    void note(journal_event event, std::uint64_t link_number);
    void note_end(std::uint64_t link_number);

    const camera_options options_;
    const waker waker_;
    journal journal_;
    listener listener_;
    link_totals totals_;
    std::array<std::unique_ptr<stream_hub>, stream_count> hubs_;
    control control_;       // changes the hubs
    std::mutex stop_mutex_; // one stop after the other

    mutable std::mutex mutex_;
    std::condition_variable obeyed_;
    bool stopping_ = false;
    std::shared_ptr<const active_faults> faults_;
    std::uint64_t obeyed_generation_ = 0;
    std::map<std::uint64_t, std::unique_ptr<link>> links_;
    std::uint64_t accepted_ = 0;
    std::uint64_t alive_ = 0; // links whose thread is not joined yet

    std::thread thread_;
};

} // namespace zucam

#endif
