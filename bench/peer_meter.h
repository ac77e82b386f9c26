// What a client by another library is measured with: the CPU of its process between the first unit
// (message, access unit) that it has been handed and the last, for a gigabyte of them.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <string>

#include "usage.h"

namespace bench
{

class peer_meter
{
public:
    explicit peer_meter(long units_wanted) : wanted(units_wanted)
    {
    }

    // A unit has come; on whichever thread, one at a time.
    void unit(std::size_t size)
    {
        bytes += units == 0 ? 0 : size; // the first has come before the measurement begins
        units++;
        if (units == 1) {
            before = usage::now();
        } else if (units == wanted) {
            const std::lock_guard<std::mutex> lock(guard);
            used = usage::now().since(before);
            over = true;
            arrived.notify_one();
        }
    }
    bool done() const
    {
        return units >= wanted;
    }
    double seconds_a_gigabyte()
    {
        std::unique_lock<std::mutex> lock(guard);
        if (!arrived.wait_for(lock, patience, [this] { return over; })) {
            throw std::runtime_error("units are missing");
        }
        return used.cpu / (static_cast<double>(bytes) / 1e9);
    }

private:
    static constexpr std::chrono::minutes patience{2};

    const long wanted;
    long units = 0;
    std::size_t bytes = 0;
    usage before;
    usage used;
    bool over = false;
    std::mutex guard;
    std::condition_variable arrived;
};

// The peers. Each takes so many units and returns the CPU seconds for a gigabyte of them.
double take_by_libavformat(unsigned short port, long units);
double take_by_gstreamer(unsigned short port, long units);
double take_by_zeromq(unsigned short port, long units);
double take_by_curl(unsigned short port, long units);

// Many cameras at once, until the process is ended: counts access units.
void watch_by_libavformat(unsigned short port, int cameras, std::atomic<long>& units);
void watch_by_gstreamer(unsigned short port, int cameras, std::atomic<long>& units);

// A device that sends the messages of a traffic by ZeroMQ, without end; returns its port.
unsigned short start_zeromq_device(const std::string& traffic_name);

} // namespace bench
