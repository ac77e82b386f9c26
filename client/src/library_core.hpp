// What zu::Library and the cameras hold in common: the C library, initialised.
#pragma once

#include <memory>

#include "zu/library.hpp"

namespace zu::detail
{

class LibraryCore
{
public:
    explicit LibraryCore(LogHandler log_handler);
    ~LibraryCore(); // DeInit, if Init has succeeded
    LibraryCore(const LibraryCore&) = delete;
    LibraryCore& operator=(const LibraryCore&) = delete;

    // That of the zu::Library there is; null when there is none.
    static std::shared_ptr<LibraryCore> current();

private:
    friend class zu::Library;

    const LogHandler log; // the log route points here
    bool initialised = false;
};

} // namespace zu::detail
