// What comes out. See figures.h.
#include "figures.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "machine.h"

namespace bench
{

namespace
{

// Three significant digits, as people read them.
std::string number(double value)
{
    const int before = value == 0 ? 1 : static_cast<int>(std::floor(std::log10(std::fabs(value))));
    const int digits = std::clamp(2 - before, 0, 6);
    char text[40];
    std::snprintf(text, sizeof(text), "%.*f", digits, value);
    return text;
}

std::string goal_text(const row& figure)
{
    switch (figure.wanted.of) {
    case goal::kind::ratio:
        return "<= " + number(figure.wanted.at_most);
    case goal::kind::value:
        return "<= " + number(figure.wanted.at_most) + " " + figure.unit;
    default:
        return "";
    }
}

bool reached(const row& figure)
{
    const double value = figure.wanted.of == goal::kind::ratio ? figure.ratio().median
                                                               : spread_of(figure.library).median;
    return value <= figure.wanted.at_most;
}

void print(const row& figure)
{
    const spread ratio = figure.ratio();
    const std::string range = "(" + number(ratio.least) + " .. " + number(ratio.most) + ")";
    const bool judged = figure.wanted.of != goal::kind::none;
    std::printf("  %-34s %9s %9s %-9s %7s  %-18s %-12s %-4s %s\n", figure.name.c_str(),
                number(spread_of(figure.library).median).c_str(),
                number(spread_of(figure.reference).median).c_str(), figure.unit.c_str(),
                number(ratio.median).c_str(), range.c_str(), goal_text(figure).c_str(),
                !judged           ? ""
                : reached(figure) ? "yes"
                                  : "no",
                figure.note.c_str());
    std::fflush(stdout);
}

nlohmann::json as_json(const row& figure)
{
    const spread ratio = figure.ratio();
    nlohmann::json out = {{"name", figure.name},       {"unit", figure.unit},
                          {"library", figure.library}, {"reference", figure.reference},
                          {"ratio", ratio.median},     {"ratio_least", ratio.least},
                          {"ratio_most", ratio.most}};
    if (figure.wanted.of != goal::kind::none) {
        out["goal"] = {{"of", figure.wanted.of == goal::kind::ratio ? "ratio" : "library"},
                       {"at_most", figure.wanted.at_most},
                       {"reached", reached(figure)}};
    }
    if (!figure.note.empty()) {
        out["note"] = figure.note;
    }
    return out;
}

} // namespace

spread spread_of(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const std::size_t half = values.size() / 2;
    const double median =
        values.size() % 2 == 1 ? values[half] : (values[half - 1] + values[half]) / 2;
    return {median, values.front(), values.back()};
}

void row::add(double of_library, double of_reference)
{
    library.push_back(of_library);
    reference.push_back(of_reference);
}

spread row::ratio() const
{
    std::vector<double> ratios;
    for (std::size_t i = 0; i < library.size(); i++) {
        ratios.push_back(library[i] / reference[i]);
    }
    return spread_of(ratios);
}

void report::begin_group(const std::string& name, const std::string& title)
{
    groups.push_back({name, title, {}});
    std::printf("\n%s: %s\n  %-34s %9s %9s %-9s %7s  %-18s %-12s\n", name.c_str(), title.c_str(),
                "", "library", "reference", "", "ratio", "(least .. most)", "goal");
    std::fflush(stdout);
}

void report::add(const row& figure)
{
    print(figure);
    groups.back().rows.push_back(figure);
}

void report::write_json(const std::string& file) const
{
    nlohmann::json out = {{"machine", machine_in_words()}, {"groups", nlohmann::json::array()}};
    for (const group& each : groups) {
        nlohmann::json rows = nlohmann::json::array();
        for (const row& figure : each.rows) {
            rows.push_back(as_json(figure));
        }
        out["groups"].push_back({{"name", each.name}, {"title", each.title}, {"rows", rows}});
    }
    std::ofstream stream(file);
    stream << out.dump(2) << '\n';
    if (!stream.flush()) {
        throw std::runtime_error(file + " can't be written");
    }
}

} // namespace bench
