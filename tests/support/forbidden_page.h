// A page for pointers that may not be followed.
#pragma once

#include <sys/mman.h>

#include <gtest/gtest.h>

namespace support
{

// Memory that ends the process when it is read or written.
class forbidden_page
{
public:
    forbidden_page() : page(mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))
    {
        EXPECT_NE(page, MAP_FAILED);
    }
    ~forbidden_page()
    {
        munmap(page, size);
    }
    forbidden_page(const forbidden_page&) = delete;
    forbidden_page& operator=(const forbidden_page&) = delete;

    void* data() const
    {
        return page;
    }

private:
    static constexpr size_t size = 4096;
    void* const page;
};

} // namespace support
