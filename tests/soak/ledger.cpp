// What was sent on which link, and the judgement of what was not received. See ledger.h.
#include "ledger.h"

#include <algorithm>
#include <cstdio>

namespace soak
{

namespace
{

constexpr std::size_t no_link = SIZE_MAX;
constexpr std::int64_t frame_time = 40000; // 25 a second
// A stall is noticed only when it is over, so it counts for what ended shortly before, too.
constexpr std::int64_t stall_reach = 6000000;

std::string camera_name(std::size_t camera)
{
    return "camera " + std::to_string(camera);
}

std::string frames(std::int64_t first, std::int64_t last)
{
    return first == last ? "frame " + std::to_string(first)
                         : "frames " + std::to_string(first) + " to " + std::to_string(last);
}

std::string seconds(std::int64_t time)
{
    char text[32];
    (void)std::snprintf(text, sizeof text, "%.1f s", static_cast<double>(time) / 1e6);
    return text;
}

} // namespace

ledger::ledger(std::size_t cameras) : cameras_(cameras)
{
}

counts ledger::so_far() const
{
    counts out = counts_;
    out.frames_due = watched_ / frame_time;
    return out;
}

void ledger::complain(const std::string& what)
{
    if (counts_.complaint[0] == '\0') {
        (void)std::snprintf(counts_.complaint.data(), counts_.complaint.size(), "%s", what.c_str());
    }
}

// ---- what the relay notes ----------------------------------------------------------------------

std::size_t ledger::link_made(std::size_t camera, std::int64_t now)
{
    link_record made = {};
    made.camera = camera;
    made.made = now;
    made.up = made.ended = made.last_sent_at = -1;
    made.last_frame = no_frame;
    links_.push_back(made);
    cameras_[camera].links.push_back(links_.size() - 1);
    counts_.links_made++;
    return links_.size() - 1;
}

void ledger::link_up(std::size_t link, std::int64_t now)
{
    if (links_[link].up < 0) {
        links_[link].up = now;
    }
}

void ledger::link_dropped(std::size_t link, std::int64_t now)
{
    links_[link].ended = now;
    counts_.links_dropped++;
}

void ledger::link_ended_by_library(std::size_t link, std::int64_t now)
{
    if (links_[link].is_late(now)) {
        stalled(now - stall_limit, now);
    }
    links_[link].ended = now;
    links_[link].by_library = true;
}

void ledger::stream_begins(std::size_t link)
{
    links_[link].last_sent_at = -1;
}

void ledger::stream_ends(std::size_t link)
{
    links_[link].last_sent_at = -1;
}

void ledger::request_passed(std::size_t link, std::int64_t now)
{
    links_[link].unanswered.push_back(now);
}

void ledger::answer_passed(std::size_t link, std::int64_t now)
{
    std::deque<std::int64_t>& waiting = links_[link].unanswered;
    if (waiting.empty()) {
        return complain(camera_name(links_[link].camera) + " itself answered nothing");
    }
    const std::int64_t late = now - waiting.front();
    counts_.latest_answer = std::max(counts_.latest_answer, late);
    if (late >= stall_limit) {
        stalled(waiting.front(), now);
    }
    waiting.pop_front();
}

bool ledger::link_record::is_late(std::int64_t now) const
{
    return ended < 0 && ((last_sent_at >= 0 && now - last_sent_at >= stall_limit) ||
                         (!unanswered.empty() && now - unanswered.front() >= stall_limit));
}

void ledger::frame_sent(std::size_t link, std::int64_t number, std::int64_t now)
{
    link_record& on = links_[link];
    std::vector<run>& runs = cameras_[on.camera].runs;
    if (!runs.empty() && number <= runs.back().last) {
        return complain(camera_name(on.camera) + " itself sent " + frames(number, number) +
                        " out of order");
    }
    if (!runs.empty() && runs.back().link == link && runs.back().last + 1 == number) {
        runs.back().last = number;
    } else {
        counts_.left_out += on.last_sent_at >= 0 ? number - on.last_frame - 1 : 0;
        runs.push_back({link, number, number});
    }
    if (on.last_sent_at >= 0) {
        const std::int64_t since = now - on.last_sent_at;
        counts_.frames_made++;
        watched_ += since;
        counts_.latest_frame = std::max(counts_.latest_frame, since - frame_time);
        if (since - frame_time >= stall_limit) {
            stalled(on.last_sent_at, now);
        }
    }
    on.last_frame = number;
    on.last_sent_at = now;
    counts_.frames_sent++;
}

void ledger::barrier_answered(std::size_t link, std::int64_t command, std::int64_t now)
{
    const link_record& on = links_[link];
    cameras_[on.camera].answers[command] = {link, on.last_frame, now};
}

void ledger::stalled(std::int64_t from, std::int64_t to)
{
    stalls_.push_back({0, from, to});
}

// ---- what the library's side tells -------------------------------------------------------------

void ledger::judge(const note& told)
{
    const auto camera = static_cast<std::size_t>(told.camera);
    switch (told.kind) {
    case note_kind::gap:
        return judge_gap(camera, told.a, told.b);
    case note_kind::barrier:
        return judge_barrier(camera, told.a, told.b);
    case note_kind::barrier_missed:
        return judge_missed_barrier(camera, told);
    case note_kind::request_failed:
        return judge_request(told);
    case note_kind::login_failed:
        return judge_login(told);
    case note_kind::logged_out:
        return judge_logout(told);
    case note_kind::stalled:
        return stalled(told.a, told.b);
    case note_kind::close_books:
        return close_books();
    default:
        break;
    }
}

// The link that a number was sent on; the number need not have been sent.
std::size_t ledger::link_of(std::size_t camera, std::int64_t number) const
{
    for (auto at = cameras_[camera].runs.rbegin(); at != cameras_[camera].runs.rend(); ++at) {
        if (at->first <= number && number <= at->last) {
            return at->link;
        }
    }
    return no_link;
}

// The frames between the two were not received. Between `last` and `next` may also lie numbers that
// were never sent: the camera left them out, or made them for a link that was gone.
void ledger::judge_gap(std::size_t camera, std::int64_t last, std::int64_t next)
{
    const bool at_end = next == no_frame;
    const std::size_t next_link = at_end ? no_link : link_of(camera, next);
    if (!at_end && next_link == no_link) {
        return complain(camera_name(camera) + ": " + frames(next, next) +
                        " was received and never sent");
    }
    const std::vector<run>& runs = cameras_[camera].runs;
    for (auto at = runs.rbegin(); at != runs.rend() && at->last > last; ++at) {
        const std::int64_t to = at_end ? at->last : std::min(at->last, next - 1);
        const std::int64_t from = std::max(at->first, last + 1);
        if (from <= to) {
            judge_missing(camera, {at->link, from, to}, next_link);
        }
    }
}

void ledger::judge_missing(std::size_t camera, const run& missing, std::size_t next_link)
{
    const std::int64_t count = missing.last - missing.first + 1;
    const std::string what = camera_name(camera) + ": " + frames(missing.first, missing.last);
    if (missing.link == next_link) {
        return complain(what + (count == 1 ? " was lost on a link" : " were lost on a link") +
                        " that went on");
    }
    if (links_[missing.link].ended < 0) {
        return complain(what + (count == 1 ? " was lost on a link" : " were lost on a link") +
                        " that nobody dropped");
    }
    const link_record& link = links_[missing.link];
    if (link.by_library && machine_stood_still(link.ended, link.ended)) {
        counts_.frames_excused += count;
    }
    counts_.frames_lost += count;
    counts_.longest_tail = std::max(counts_.longest_tail, count);
}

void ledger::judge_barrier(std::size_t camera, std::int64_t command, std::int64_t last)
{
    auto& answers = cameras_[camera].answers;
    const auto found = answers.find(command);
    if (found == answers.end()) {
        return complain(camera_name(camera) + ": a request returned an answer never sent to it");
    }
    const std::int64_t sent_before = found->second.last_frame;
    if (last < sent_before) {
        complain(camera_name(camera) + ": " + frames(last + 1, sent_before) +
                 " had not been received when an answer sent after it had");
    }
    answers.erase(found);
}

void ledger::judge_missed_barrier(std::size_t camera, const note& told)
{
    const auto found = cameras_[camera].answers.find(told.a);
    if (found == cameras_[camera].answers.end()) {
        return;
    }
    const answer& sent = found->second;
    if (told.c - sent.sent_at >= stall_limit && told.b > sent.last_frame &&
        link_of(camera, told.b) == sent.link) {
        complain_or_excuse(sent.sent_at, told.c,
                           camera_name(camera) + ": an answer was lost on a link that went on, " +
                               frames(told.b, told.b) + " came behind it");
    }
}

void ledger::judge_request(const note& told)
{
    for (const std::size_t each : cameras_[static_cast<std::size_t>(told.camera)].links) {
        const link_record& link = links_[each];
        const bool leaving = link.explained && link.ended < 0;
        if (link.up >= 0 && link.up <= told.a && !leaving &&
            (link.ended < 0 || link.ended > told.b)) {
            return complain_or_excuse(told.a, told.b,
                                      camera_name(link.camera) + ": a request (" +
                                          request_names[told.c] + ") failed after " +
                                          seconds(told.b - told.a) +
                                          " while its link was up all along");
        }
    }
    counts_.requests_without_link++;
}

// A Login fails for a reason when its link is dropped meanwhile: it waits for three seconds alone.
void ledger::judge_login(const note& told)
{
    for (const std::size_t each : cameras_[static_cast<std::size_t>(told.camera)].links) {
        const link_record& link = links_[each];
        if (link.ended >= told.a && link.ended <= told.b && !link.by_library) {
            counts_.logins_without_link++;
            return;
        }
    }
    complain_or_excuse(told.a, told.b,
                       "camera " + std::to_string(told.camera) + ": a Login failed after " +
                           seconds(told.b - told.a) + ", and nobody dropped its link");
}

void ledger::judge_logout(const note& told)
{
    for (const std::size_t each : cameras_[static_cast<std::size_t>(told.camera)].links) {
        link_record& link = links_[each];
        const bool ended_before = link.ended >= 0 && link.ended < told.a;
        if (link.made <= told.b && !ended_before) {
            link.explained = true; // its end may be on the way to the relay yet
        }
    }
}

// Called with all logins up and no Logout under way.
void ledger::close_books()
{
    for (link_record& link : links_) {
        if (link.by_library && link.up >= 0 && !link.explained) {
            link.explained = true;
            complain_or_excuse(link.ended, link.ended,
                               camera_name(link.camera) +
                                   ": the library ended a link that nobody dropped");
        }
    }
}

bool ledger::machine_stood_still(std::int64_t from, std::int64_t to) const
{
    return std::any_of(stalls_.begin(), stalls_.end(),
                       [from, to](const run& stall) {
                           return stall.first <= to && stall.last + stall_reach >= from;
                       }) ||
           std::any_of(links_.begin(), links_.end(),
                       [to](const link_record& link) { return link.is_late(to); });
}

void ledger::complain_or_excuse(std::int64_t from, std::int64_t to, const std::string& what)
{
    if (machine_stood_still(from, to)) {
        counts_.excused++;
    } else {
        complain(what);
    }
}

} // namespace soak
