// The witness: a login to a good device, which must not notice what is done to others in the
// process.
//
// Its device sends numbered frames without a pause and answers every request with a number of its
// own; two threads, one that sends frames and one that makes requests. Every frame must come, once,
// in order and unmixed; no request may get an answer that is not its own, or none before its limit
// has passed; the link must never be lost; and after it all there are more frames and more answers.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace hostile
{

class witness
{
public:
    witness(); // logs in
    ~witness();
    witness(const witness&) = delete;
    witness& operator=(const witness&) = delete;

    void begin(); // frames and requests come from here on
    // Ends both, waits for the last frame and logs out; what was wrong, in words.
    std::vector<std::string> end();

    long frames() const;
    long requests() const;
    unsigned handle() const;

private:
    struct life;
    const std::unique_ptr<life> own;
};

} // namespace hostile
