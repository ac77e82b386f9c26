// While it lives, the calling thread blocks all signals; threads that it starts block them for
// good.
//
// A signal handler that runs on a thread of the C library ends that connection, and one that runs
// on a thread that waits for an answer ends that request. So neither kind of thread takes signals.
#pragma once

#include <csignal>

namespace zu::detail
{

class NoSignals
{
public:
    NoSignals()
    {
        sigset_t all;
        sigfillset(&all);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGPROF}) {
            sigdelset(&all, fault); // faults of the thread itself, and what profilers use
        }
        pthread_sigmask(SIG_BLOCK, &all, &before);
    }
    ~NoSignals()
    {
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
    }
    NoSignals(const NoSignals&) = delete;
    NoSignals& operator=(const NoSignals&) = delete;

private:
    sigset_t before;
};

} // namespace zu::detail
