// One record with a link to a device on a simulated machine, for a worker that runs alone: the
// fuzzer's thread is the worker's.
//
// Whatever the worker has met, it must end, leave nothing behind, and have called back with nothing
// but what lies in its buffer.
#pragma once

#include "input.h"
#include "machine.h"
#include "sdk_user.h"

namespace fuzz
{

class worker_bench : private sim::device
{
public:
    worker_bench();
    ~worker_bench() override;
    worker_bench(const worker_bench&) = delete;
    worker_bench& operator=(const worker_bench&) = delete;

    // Runs the worker on this thread, with what has been laid out for it by `then`.
    void run(void* (*worker)(void*));

    sim::machine here;
    zu_sdk_user* user;
    sim::connection_ref link; // the device's end
    sim::micros laid_out = 0; // how far the plan for the run reaches

    // Lays out what happens next, so much after what was laid out before. What the worker has not
    // lived to see does not happen.
    void then(sim::micros after, std::function<void()> what);

    void wake_by_pipe(const int (&pipe)[2]);

private:
    void connected(const sim::connection_ref& fresh) override;
    void received(const sim::connection_ref& on) override;
    bool over = false; // the worker has ended; the record is being taken apart
};

// Fails the run.
void demand(bool holds, const char* what);

} // namespace fuzz
