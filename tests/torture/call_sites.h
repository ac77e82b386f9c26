// The places where the library calls the system, and what a failure of each must lead to.
//
// A site is named by the library's file, the caller's name if it is the library's too, the function
// and the system's function: "tcp_link: tcp_ext_connect, set_link_options, setsockopt". A function
// that makes the same call at several places has several sites of one name. The table
// call_sites.txt has one row for each name, error and consequence; a row that is never met is as
// much a mistake as a consequence without a row.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "machine.h"

namespace torture
{

// The errors that a call is made to fail with, by name; empty for calls that can't fail, or only by
// a mistake of the caller's.
const std::vector<int>& errors_of(const std::string& function);

// Whether a system ever goes on failing in this way; a wait for a child is not interrupted for
// ever.
bool may_go_on(const std::string& function, int error);

std::string error_name(int error);

// Gives every call site its name. The debug information of this program says which function an
// address belongs to.
class site_names
{
public:
    // `calls`: the system's function by the place of the call.
    explicit site_names(const std::map<sim::place, std::string>& calls);
    const std::string& operator[](const sim::place& from) const;
    size_t count() const
    {
        return names.size();
    }

private:
    std::map<sim::place, std::string> names;
};

// What a failed call has led to, as a row of the table: site, error, result of the entry point that
// was under way on the failing thread ("-" on a thread of the library) and the line that followed
// before that thread's next call of note ("-" for none): its type, and its message with "#" for
// each number.
std::string table_row(const std::string& site, int error, const std::string& result,
                      const std::string& line);

class expectations
{
public:
    explicit expectations(const std::string& path); // ends the program with a line when unreadable

    // What `met` lacks or has too much; one line each.
    std::vector<std::string> differences(const std::set<std::string>& met, bool all_met) const;

private:
    std::set<std::string> rows;
};

} // namespace torture
