// One blast of stream messages, taken by the library or by another client of this process.
#pragma once

#include "sink.h"
#include "usage.h"

namespace bench
{

// The CPU of the process from the start, which `take` asks for, until so many messages have come.
template <class Take>
double cpu_of_blast(sink& blocks, long messages, Take take)
{
    const usage before = usage::now();
    blocks.expect(messages);
    take();
    blocks.wait();
    return usage::now().since(before).cpu;
}

} // namespace bench
