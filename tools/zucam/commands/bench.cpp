// zucam bench: how much a device sustains. First the video alone, then the same video with requests
// as fast as they are answered. The request reads a setting and changes nothing.
#include "commands/commands.h"
#include "shared/connection.h"
#include "shared/crew.h"
#include "shared/exit_codes.h"
#include "shared/frame_reader.h"
#include "shared/records.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <exception>
#include <fmt/format.h>
#include <mutex>
#include <nlohmann/json.hpp>

namespace tool
{

namespace
{

constexpr milliseconds usual_length{10000};
constexpr milliseconds one_turn{50};

struct bench_options {
    std::string camera;
    stream_choice stream;
    limits limit;
    unsigned parallel = 1;
};

double in_seconds(zu::Clock::duration time)
{
    return std::chrono::duration<double>(time).count();
}

// What the video did between two moments.
struct flow {
    double frames = 0; // a second
    double mbit = 0;   // a second
};

class flow_meter
{
public:
    explicit flow_meter(const zu::Camera& camera)
        : camera_(camera), began_(zu::Clock::now()), before_(camera.stats())
    {
    }

    flow so_far() const
    {
        const zu::Stats now = camera_.stats();
        const double seconds = std::max(in_seconds(zu::Clock::now() - began_), 1e-9);
        return {static_cast<double>(now.video_frames - before_.video_frames) / seconds,
                static_cast<double>(now.bytes - before_.bytes) * 8 / 1e6 / seconds};
    }

private:
    const zu::Camera& camera_;
    const zu::Clock::time_point began_;
    const zu::Stats before_;
};

// ---- requests ----

// Made by several threads at once; one lock guards what they found out.
class request_run
{
public:
    request_run(connection& to, const bench_options& options, milliseconds length)
        : to_(to), stream_(options.stream.number), count_(options.limit.count),
          end_(zu::Clock::now() + length)
    {
    }

    void run(unsigned parallel, const stop_signals& signals)
    {
        const auto began = zu::Clock::now();
        ask_in_parallel(parallel, signals);
        if (thrown_) {
            std::rethrow_exception(thrown_);
        }
        took_ = last_answer_ - began;
        std::sort(times_.begin(), times_.end());
    }

    std::error_code failed() const
    {
        return failed_;
    }
    std::size_t answered() const
    {
        return times_.size();
    }
    double per_second() const
    {
        return static_cast<double>(times_.size()) / std::max(in_seconds(took_), 1e-9);
    }
    double mean_ms() const
    {
        double sum = 0;
        for (const double each : times_) {
            sum += each;
        }
        return times_.empty() ? 0 : sum / static_cast<double>(times_.size());
    }
    // So many of a hundred answers took no longer than this.
    double percentile_ms(double part) const
    {
        if (times_.empty()) {
            return 0;
        }
        const auto last = static_cast<double>(times_.size() - 1);
        return times_[static_cast<std::size_t>(std::lround(last * part / 100.0))];
    }

private:
    void ask_in_parallel(unsigned parallel, const stop_signals& signals)
    {
        crew workers(stop_);
        for (unsigned i = 0; i < parallel; ++i) {
            workers.add([this] { ask_again_and_again(); });
        }
        while (ended_ < parallel && !signals.asked_to_end()) {
            signals.wait(one_turn);
        }
    }

    bool goes_on()
    {
        const bool more = !count_ || begun_++ < *count_;
        return more && !stop_ && (count_ || zu::Clock::now() < end_);
    }

    void ask_again_and_again()
    {
        try {
            while (goes_on()) {
                ask();
            }
        } catch (...) { // no memory
            const std::lock_guard<std::mutex> lock(mutex_);
            thrown_ = std::current_exception();
            stop_ = true;
        }
        ++ended_;
    }

    // A refusal is an answer too.
    void ask()
    {
        const record_kind& kind = *record_named("idr-qp");
        record_bytes record = empty_record(kind, stream_);
        const auto asked = zu::Clock::now();
        const std::error_code error = to_.camera().read(kind.command, record.data(), record.size());
        const auto answered = zu::Clock::now();
        const std::lock_guard<std::mutex> lock(mutex_);
        if (error && !zu::refused(error)) {
            failed_ = error;
            stop_ = true;
        } else {
            times_.push_back(in_seconds(answered - asked) * 1000);
            last_answer_ = std::max(last_answer_, answered);
        }
    }

    connection& to_;
    const std::uint32_t stream_;
    const std::optional<std::uint64_t> count_;
    const zu::Clock::time_point end_;
    std::atomic<std::uint64_t> begun_{0};
    std::atomic<unsigned> ended_{0}; // threads that have come to their end
    std::atomic<bool> stop_{false};
    std::mutex mutex_;
    std::vector<double> times_; // milliseconds
    std::error_code failed_;
    std::exception_ptr thrown_;
    zu::Clock::time_point last_answer_ = zu::Clock::now();
    zu::Clock::duration took_{0};
};

// ---- the whole ----

void wait_a_turn(const toolbox& tools)
{
    tools.signals.wait(one_turn);
    if (tools.signals.asked_to_end()) {
        throw interrupted();
    }
}

// The stream begins when it begins; that is not measured.
void wait_for_video(toolbox& tools, connection& to)
{
    const auto latest = zu::Clock::now() + patience_with_video(tools);
    while (to.camera().stats().video_frames == 0) {
        if (zu::Clock::now() > latest) {
            throw failure(exit_code::stalled, "no video came from " + to.place().label);
        }
        wait_a_turn(tools);
    }
}

// Until a frame has come, however short that is.
flow measure_video(toolbox& tools, connection& to, milliseconds length)
{
    wait_for_video(tools, to);
    const auto end = zu::Clock::now() + length;
    const auto latest = end + patience_with_video(tools);
    const flow_meter meter(to.camera());
    tools.out.live({"measuring the video alone"});
    flow video;
    for (auto now = zu::Clock::now(); now < end || (video.frames <= 0 && now < latest);
         now = zu::Clock::now()) {
        wait_a_turn(tools);
        video = meter.so_far();
    }
    if (video.frames <= 0) {
        throw failure(exit_code::stalled, "no video came from " + to.place().label);
    }
    return video;
}

void print(toolbox& tools, const flow& alone, const flow& beside, const request_run& requests)
{
    if (tools.out.wants_json()) {
        tools.out.data(json{{"frames_per_second", alone.frames},
                            {"mbit_per_second", alone.mbit},
                            {"requests", requests.answered()},
                            {"requests_per_second", requests.per_second()},
                            {"round_trip_ms",
                             {{"min", requests.percentile_ms(0)},
                              {"mean", requests.mean_ms()},
                              {"p50", requests.percentile_ms(50)},
                              {"p95", requests.percentile_ms(95)},
                              {"p99", requests.percentile_ms(99)},
                              {"max", requests.percentile_ms(100)}}},
                            {"frames_per_second_beside_requests", beside.frames}});
        return;
    }
    tools.out.data(
        fmt::format("video:      {:.1f} frames/s, {:.2f} Mbit/s", alone.frames, alone.mbit));
    tools.out.data(fmt::format("requests:   {:.0f} a second, {} in all, beside {:.1f} frames/s",
                               requests.per_second(), requests.answered(), beside.frames));
    tools.out.data(fmt::format("round trip: mean {:.2f} ms, half within {:.2f}, 95 of 100 within "
                               "{:.2f}, 99 within {:.2f}, longest {:.2f}",
                               requests.mean_ms(), requests.percentile_ms(50),
                               requests.percentile_ms(95), requests.percentile_ms(99),
                               requests.percentile_ms(100)));
}

void bench(toolbox& tools, const bench_options& options)
{
    zu::CameraOptions handlers;
    handlers.on_frame = [](const zu::FrameView&) {}; // counting is all that is wanted
    handlers.requests_at_once = options.parallel;
    connection to(tools, find_camera(tools, options.camera), std::move(handlers));
    const milliseconds half = std::max(options.limit.seconds.value_or(usual_length) / 2, one_turn);
    to.start_stream(options.stream);
    tools.signals.finish_orderly();
    const flow alone = measure_video(tools, to, half);
    request_run requests(to, options, half);
    const flow_meter meter(to.camera());
    tools.out.live({"measuring requests beside the video"});
    requests.run(options.parallel, tools.signals);
    tools.out.end_live();
    const flow beside = meter.so_far();
    to.check(requests.failed(), "a request");
    if (tools.signals.asked_to_end()) {
        throw interrupted();
    }
    print(tools, alone, beside, requests);
}

} // namespace

void add_bench(command_line& line)
{
    const auto options = std::make_shared<bench_options>();
    command sub = line.add("bench", "Measures the frames and the requests that a device sustains.",
                           "  zucam bench door\n"
                           "  zucam bench door --seconds 60 --parallel 4\n"
                           "  zucam bench door --count 1000 --json\n");
    sub.positional("CAMERA", options->camera, "HOST[:PORT] or a name of the list");
    sub.seconds("--seconds", options->limit.seconds,
                "half for the video alone, half for requests beside it [10]");
    sub.option("--count", "N", "so many requests, however long they take",
               [options](const std::string& given) {
                   options->limit.count = static_cast<std::uint64_t>(
                       parse_number("--count", given, {1, 100000000, "a number of requests"}));
               });
    sub.number("--parallel", options->parallel, {1, 64, "a number of requests"},
               "requests under way at once [1]");
    sub.takes(options->stream);
    sub.does([options](toolbox& tools) { bench(tools, *options); });
}

} // namespace tool
