// Everything that zucam prints. Data goes to standard output, all else to standard error, where a
// live line may stand at the bottom while that is a terminal.
//
// Any thread may call: the library's log lines come from its own. Secrets are blanked in all that
// goes to standard error. What goes to standard output is made of the camera's numbers, which stay
// as they are even where they look like a secret, and of names that the user gave: these pass
// through shown().
#pragma once

#include "shared/secrets.h"

#include <mutex>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace tool
{

using json = nlohmann::ordered_json;

class console
{
public:
    struct manner {
        bool json = false;
        bool quiet = false;
        int verbose = 0;
    };

    void set(const manner& how); // before other threads run
    void hide(const std::string& secret);
    secrets& hidden();
    // A name that the user gave, for data: secrets blanked, and "-" in words.
    std::string shown(const std::string& name) const;
    bool wants_json() const;
    int verbose() const;

    // Standard output. Throws failure when it cannot be written, reader_gone when nobody reads.
    void data(const std::string& line);
    void data(const json& object); // in one line

    // Standard error.
    void say(const std::string& line);      // unless -q
    void detail(const std::string& line);   // with -v
    void trace(const std::string& line);    // with -vv
    void complain(const std::string& line); // always

    // The live line: on a terminal, unless -q or --json. Messages go above it. Of its shapes, the
    // widest first, the first that fits is shown; the last is cut where none does.
    bool has_live_line() const;
    void live(std::vector<std::string> shapes);
    void end_live();

private:
    void message(const std::string& line);
    void erase_live();
    void draw_live();

    manner how_;
    secrets hidden_;
    std::mutex mutex_;              // of what follows, and of the order of lines
    std::vector<std::string> live_; // its shapes; empty when there is none
};

} // namespace tool
