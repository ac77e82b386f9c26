// The figures of a run, and how they are printed. See report.h.
//
// Growth: of memory alone. Each roll call by itself proves that there is not one thread or
// descriptor more than the logins account for; there may be fewer while a link is down. Resident
// memory may grow by a hundredth and one MiB: stacks and the heap's arenas are touched in places
// that nobody has touched before. Sanitizers keep freed memory back, so under them it is not
// judged.
#include "report.h"

#include <cstdio>

#include "process_probe.h"

namespace soak
{

namespace
{

constexpr std::size_t memory_allowance = 1024; // KiB, above a hundredth

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool memory_is_judged = false;
#else
constexpr bool memory_is_judged = true;
#endif

std::string pair(std::int64_t one, std::int64_t other)
{
    return std::to_string(one) + " / " + std::to_string(other);
}

double as_ms(std::int64_t time)
{
    return static_cast<double>(time) / 1000;
}

} // namespace

figures read_figures(const std::string& when, const tally& counted, const counts& of_cameras)
{
    return {when,
            counted.frames,
            of_cameras.frames_sent,
            of_cameras.frames_lost,
            counted.requests_answered,
            counted.requests_made,
            of_cameras.links_made - counted.logins_tried,
            counted.logins,
            support::open_descriptors().size(),
            support::thread_count(),
            support::resident_kib()};
}

void print_head()
{
    std::printf("%7s  %23s  %9s  %23s  %9s  %6s  %11s  %7s  %9s\n", "", "frames", "lost with",
                "requests", "recon-", "", "", "", "memory");
    std::printf("%7s  %23s  %9s  %23s  %9s  %6s  %11s  %7s  %9s\n", "", "received / sent", "a link",
                "answered / made", "nections", "logins", "descriptors", "threads", "KiB");
}

void print(const figures& what)
{
    std::printf("%7s  %23s  %9lld  %23s  %9lld  %6lld  %11zu  %7d  %9zu\n", what.when.c_str(),
                pair(what.frames_received, what.frames_sent).c_str(),
                static_cast<long long>(what.frames_lost),
                pair(what.requests_answered, what.requests_made).c_str(),
                static_cast<long long>(what.reconnections), static_cast<long long>(what.logins),
                what.descriptors, what.threads, what.memory);
}

std::string growth(const figures& from, const figures& to)
{
    if (!memory_is_judged || to.memory <= from.memory + from.memory / 100 + memory_allowance) {
        return "";
    }
    return "resident memory grew from " + std::to_string(from.memory) + " KiB at 50 % to " +
           std::to_string(to.memory) + " KiB at 100 %";
}

void print_explanations(const counts& of_cameras, std::int64_t latest_wake)
{
    std::printf("explained by the end of a link: %lld frames, at most %lld with one link; %lld "
                "requests and %lld Logins without a link; %lld links were dropped\n",
                static_cast<long long>(of_cameras.frames_lost),
                static_cast<long long>(of_cameras.longest_tail),
                static_cast<long long>(of_cameras.requests_without_link),
                static_cast<long long>(of_cameras.logins_without_link),
                static_cast<long long>(of_cameras.links_dropped));
    const bool late = of_cameras.latest_frame >= stall_limit ||
                      of_cameras.latest_answer >= stall_limit ||
                      of_cameras.latest_wake >= stall_limit || latest_wake >= stall_limit ||
                      of_cameras.frames_made < of_cameras.frames_due / 100 * 99;
    std::printf("the machine %s: the cameras made %lld of %lld frames in time, one %.0f ms late, "
                "and answered up to %.0f ms late; woken late by up to %.0f ms (cameras) and %.0f "
                "ms (library)\n",
                late ? "could NOT keep up" : "kept up",
                static_cast<long long>(of_cameras.frames_made),
                static_cast<long long>(of_cameras.frames_due), as_ms(of_cameras.latest_frame),
                as_ms(of_cameras.latest_answer), as_ms(of_cameras.latest_wake), as_ms(latest_wake));
    if (of_cameras.excused > 0 || of_cameras.left_out > 0) {
        std::printf("not blamed on the library, since the machine stood still for a second or "
                    "more: %lld requests, Logins and links, with %lld frames; left out by the "
                    "cameras: %lld frames\n",
                    static_cast<long long>(of_cameras.excused),
                    static_cast<long long>(of_cameras.frames_excused),
                    static_cast<long long>(of_cameras.left_out));
    }
    if (!memory_is_judged) {
        std::printf("memory is not judged under a sanitizer\n");
    }
}

} // namespace soak
