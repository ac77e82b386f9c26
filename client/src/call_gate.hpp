// The gate in front of every call of the C library that names a handle.
//
// After Logout a handle may name another login, so no call may begin once Logout has begun, and
// none may stand between its decision and its beginning. Each call holds a pass; closing the gate
// refuses further ones and waits for those that are out. Any thread; guard covers both words.
#pragma once

#include <condition_variable>
#include <mutex>

namespace zu::detail
{

class CallGate
{
public:
    class Pass
    {
    public:
        explicit Pass(CallGate& its) : gate(its), given(its.enter())
        {
        }
        ~Pass()
        {
            if (given) {
                gate.leave();
            }
        }
        Pass(const Pass&) = delete;
        Pass& operator=(const Pass&) = delete;

        explicit operator bool() const
        {
            return given;
        }

    private:
        CallGate& gate;
        const bool given;
    };

    void open()
    {
        const std::lock_guard<std::mutex> lock(guard);
        is_open = true;
    }
    void close()
    {
        std::unique_lock<std::mutex> lock(guard);
        is_open = false;
        empty.wait(lock, [this] { return inside == 0; });
    }

private:
    bool enter()
    {
        const std::lock_guard<std::mutex> lock(guard);
        inside += is_open ? 1 : 0;
        return is_open;
    }
    void leave()
    {
        const std::lock_guard<std::mutex> lock(guard);
        if (--inside == 0) {
            empty.notify_all();
        }
    }

    std::mutex guard;
    std::condition_variable empty;
    bool is_open = false;
    int inside = 0;
};

} // namespace zu::detail
