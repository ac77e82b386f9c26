// Stands between the library and the cameras: one door for each camera, through which connections
// are relayed to it. Notes in the ledger what passes, drops links at random, and reads what the
// library's side tells. One thread, which run() is; nothing here is shared.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include "ledger.h"
#include "passage.h"
#include "pulse.h"

namespace soak
{

struct relay_options {
    std::uint32_t seed = 1;
    double link_life = 15; // seconds from a link's first byte to its drop, in the mean
    int control = -1;      // where notes come from and counts go to
};

class relay
{
public:
    // Relays to these ports, one for each camera.
    relay(const relay_options& options, const std::vector<std::uint16_t>& camera_ports);
    ~relay();
    relay(const relay&) = delete;
    relay& operator=(const relay&) = delete;

    // The doors, in the cameras' order.
    std::vector<std::uint16_t> ports() const;
    // Until the other side says that it is over, or is gone.
    void run();

private:
    enum class drop_kind { end, reset, within_frame };
    struct link;
    struct watched { // what a descriptor in the poll set belongs to
        enum { control, door, library_end, camera_end } kind;
        std::size_t camera;
        link* of;
        int descriptor;
        std::uint32_t events;
    };
    struct door {
        watched watch;
        std::uint16_t port;
        std::uint16_t camera_port;
    };
    struct link {
        std::size_t number; // in the ledger
        watched library;
        watched camera;
        passage to_library;
        passage to_camera;
        std::int64_t drop_at;
        drop_kind drop;
        bool over = false;
    };

    void open_door(std::size_t camera, std::uint16_t camera_port);
    void watch(watched& what, std::uint32_t events);
    void handle(watched& what, std::uint32_t events);
    void welcome(const door& at, std::size_t camera);
    void schedule_drop(link& of, std::int64_t now);
    void serve(link& of, const watched& end, std::uint32_t events);
    bool pass_to_camera(link& of);
    bool pass_to_library(link& of);
    void note_message(link& of, const message& what);
    void flush(link& of);
    void drop_due_links();
    void drop(link& of);
    void library_has_ended(link& of);
    void close_link(link& of, bool with_reset);
    void clear_away();
    void read_notes();
    void obey(const note& told);
    void give_counts();

    const relay_options options_;
    std::mt19937 random_;
    ledger ledger_;
    pulse pulse_;
    int poll_;
    watched control_;
    std::vector<std::unique_ptr<door>> doors_;
    std::map<link*, std::unique_ptr<link>> links_;
    std::vector<link*> over_;
    bool drops_ = false;
    bool ended_ = false;
};

} // namespace soak
