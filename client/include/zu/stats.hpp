// What a camera object has counted since it was made.
#pragma once

#include <cstdint>

namespace zu
{

// Plain data, which can be written down and handed on as it is. A later version only adds fields at
// the end; `version` and `size` tell a reader which fields there are.
struct Stats {
    std::uint32_t version = 1;
    std::uint32_t size = sizeof(Stats);

    // Received, before any queue.
    std::uint64_t frames = 0; // of all kinds
    std::uint64_t bytes = 0;  // of all kinds, without the four characters that open a block
    std::uint64_t video_frames = 0;
    std::uint64_t key_frames = 0;
    std::uint64_t audio_frames = 0;
    std::uint64_t gaps = 0; // times that no frame came for `stalled_after`

    // Taken from the queue, and dropped there by cause.
    std::uint64_t taken = 0;
    std::uint64_t dropped_queue_full = 0;   // did not fit
    std::uint64_t dropped_awaiting_key = 0; // followed one that did not fit, or a reconnection
    std::uint64_t dropped_superseded = 0;   // gave way to a newer one
    std::uint64_t dropped_at_end = 0; // still queued, or waiting for room, when the queue ended

    // The link.
    std::uint64_t reconnections = 0;
    std::uint64_t heartbeats = 0; // answered

    // Requests, the layer's own included.
    std::uint64_t requests = 0;             // made
    std::uint64_t requests_done = 0;        // answered with 0
    std::uint64_t requests_refused = 0;     // answered with another code
    std::uint64_t requests_failed = 0;      // without an answer, for whatever reason
    std::uint64_t requests_timed_out = 0;   // of these: the caller's deadline passed first
    std::uint64_t key_frames_asked_for = 0; // by the layer itself

    // Round trips of answered requests, in microseconds.
    std::uint64_t round_trip_last_us = 0;
    std::uint64_t round_trip_min_us = 0;
    std::uint64_t round_trip_max_us = 0;
    std::uint64_t round_trip_sum_us = 0; // by requests_done + requests_refused: the mean
};

} // namespace zu
