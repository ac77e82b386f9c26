// What comes out: a row for each figure, the library's and the reference's value of every round,
// and their ratio. Printed as soon as a row is there; kept for the JSON file.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace bench
{

struct spread {
    double median = 0;
    double least = 0;
    double most = 0;
};
spread spread_of(std::vector<double> values);

// What a figure should come to: the ratio at most this, or the library's own value.
struct goal {
    enum class kind { none, ratio, value } of = kind::none;
    double at_most = 0;
};
inline goal ratio_at_most(double limit)
{
    return {goal::kind::ratio, limit};
}
inline goal value_at_most(double limit)
{
    return {goal::kind::value, limit};
}

struct row {
    std::string name;
    std::string unit;
    goal wanted;
    std::vector<double> library = {}; // one of each a round
    std::vector<double> reference = {};
    std::string note = {};

    void add(double of_library, double of_reference);
    spread ratio() const;
};

class report
{
public:
    // What the rows that follow measure, and against what.
    void begin_group(const std::string& name, const std::string& title);
    void add(const row& figure);
    // What the machine was, and all figures. Throws when the file can't be written.
    void write_json(const std::string& file) const;

private:
    struct group {
        std::string name;
        std::string title;
        std::vector<row> rows;
    };
    std::vector<group> groups;
};

} // namespace bench
