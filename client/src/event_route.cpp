// From numbers to cameras. See event_route.hpp. The table has a lock and is never destroyed, since
// callbacks may come as long as the process lives.
#include "event_route.hpp"

#include <cstdint>
#include <map>
#include <mutex>

namespace zu::detail
{

namespace
{

struct Table {
    std::mutex guard;
    std::uintptr_t last = 0; // never used twice
    std::map<void*, std::weak_ptr<CameraCore>> cameras;
};

Table& table()
{
    static Table& the = *new Table;
    return the;
}

} // namespace

void* add_event_route(const std::shared_ptr<CameraCore>& core)
{
    const std::lock_guard<std::mutex> lock(table().guard);
    void* const number = reinterpret_cast<void*>(++table().last);
    table().cameras.emplace(number, core);
    return number;
}

void remove_event_route(void* number)
{
    const std::lock_guard<std::mutex> lock(table().guard);
    table().cameras.erase(number);
}

std::shared_ptr<CameraCore> find_event_route(void* number)
{
    const std::lock_guard<std::mutex> lock(table().guard);
    const auto found = table().cameras.find(number);
    return found == table().cameras.end() ? nullptr : found->second.lock();
}

} // namespace zu::detail
