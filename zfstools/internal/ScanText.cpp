#include "zfstools/internal/ScanText.h"

#include "util/str.h"
#include "zfstools/internal/PrintedNumbers.h"

#include <algorithm>
#include <string_view>

namespace zfslib {
namespace {

using Scan = PoolHealth::Scan;

constexpr auto npos = std::string_view::npos;

/// What stands behind the first `before`; empty when it is not there.
std::string_view Behind(std::string_view text, std::string_view before) {
    const std::size_t found = text.find(before);
    return found == npos ? std::string_view() : text.substr(found + before.size());
}

/// What stands between the first `before` and the next `after`; empty when one is missing.
std::string_view Between(std::string_view text, std::string_view before, std::string_view after) {
    const std::string_view rest = Behind(text, before);
    const std::size_t end = rest.find(after);
    return end == npos ? std::string_view() : rest.substr(0, end);
}

/// What stands before the first `after`, back to the `divider` before it.
std::string_view Before(std::string_view text, std::string_view after, std::string_view divider) {
    const std::size_t end = text.find(after);
    if (end == npos)
        return {};
    text = text.substr(0, end);
    const std::size_t begin = text.rfind(divider);
    return begin == npos ? text : text.substr(begin + divider.size());
}

/// "(mirror-0)" behind the first word: a sequential resilver names its virtual device.
std::string ConsumeDevice(std::string_view& rest) {
    const std::size_t begin = rest.find_first_not_of(' ');
    const std::size_t end = rest.find(')');
    if (begin == npos || rest[begin] != '(' || end == npos)
        return {};
    std::string device(rest.substr(begin + 1, end - begin - 1));
    rest.remove_prefix(end + 1);
    return device;
}

Scan::Progress ProgressFromWord(std::string_view word) {
    if (word == "in") // "in progress since", "in progress for"
        return Scan::Progress::Running;
    if (word == "paused")
        return Scan::Progress::Paused;
    if (word == "canceled" || word == "stopped")
        return Scan::Progress::Cancelled;
    if (word == "repaired" || word == "completed")
        return Scan::Progress::Finished;
    return Scan::Progress::Unknown;
}

/// Reads the words at the front that say what it is and how far. The tools' texts:
///
///     scrub repaired 0B in 00:00:04 with 0 errors on DATE
///     resilvered (mirror-0) 7.74M in 00:00:12 with 0 errors on DATE
///     scrubbed 12 error blocks in 00:00:12 on DATE
///     scrub in progress since DATE, resilver (mirror-0) in progress since DATE
///     scrub paused since DATE scrub started on DATE, error scrub ...
///     scrub canceled on DATE
///     scrub completed after 0h5m with 0 errors on DATE                        (Solaris 10)
///     scrub in progress for 0h1m, 11.50% done, 0h11m to go                    (Solaris 10)
void ReadKind(std::string_view rest, Scan& scan) {
    const std::string_view word = util::ConsumeWord(rest);
    scan.device = ConsumeDevice(rest);
    if (word == "resilvered") {
        scan.kind = Scan::Kind::Resilver;
        scan.progress = Scan::Progress::Finished;
        scan.repaired = ParseAmount(util::ConsumeWord(rest));
    } else if (word == "scrubbed") {
        scan.kind = Scan::Kind::ErrorScrub;
        scan.progress = Scan::Progress::Finished;
    } else if (word == "scrub" || word == "resilver" || word == "error") {
        scan.kind = word == "scrub"      ? Scan::Kind::Scrub
                    : word == "resilver" ? Scan::Kind::Resilver
                                         : Scan::Kind::ErrorScrub;
        if (word == "error")
            util::ConsumeWord(rest); // "scrub"
        const std::string_view verb = util::ConsumeWord(rest);
        scan.progress = ProgressFromWord(verb);
        if (verb == "repaired")
            scan.repaired = ParseAmount(util::ConsumeWord(rest));
    } else if (word == "none") {
        scan.kind = Scan::Kind::None;
    }
}

void ReadRunning(std::string_view text, Scan& scan) {
    std::string_view percent = Before(text, "% done", " ");
    scan.percentDone = util::ConsumeDouble(percent);
    scan.timeLeft = Before(text, " to go", ", ");
    scan.duration = Between(text, " in progress for ", ",");
    for (const std::string_view what : {" repaired,", " resilvered,"})
        if (const std::string_view amount = Before(text, what, " "); !amount.empty())
            scan.repaired = ParseAmount(amount);
}

void ReadEnded(std::string_view text, Scan& scan) {
    for (const auto& [before, after] :
         {std::pair{" in ", " with "}, {" in ", " on "}, {" after ", " with "}})
        if (scan.duration.empty())
            scan.duration = Between(text, before, after);
    scan.errors = ParseInteger(Between(text, " with ", " errors"));
}

} // namespace

Scan ParseScan(const std::string& text, PoolHealth::Clock clock) {
    Scan scan;
    scan.text = text;
    ReadKind(text, scan);
    const auto timeBehind = [&](std::string_view before) {
        return ParseTime(Behind(text, before), clock).value_or(PoolHealth::Time());
    };
    switch (scan.progress) {
    case Scan::Progress::Running:
        scan.started = timeBehind(" since ");
        ReadRunning(text, scan);
        break;
    case Scan::Progress::Paused:
        scan.paused = timeBehind(" since ");
        scan.started = timeBehind(" started on ");
        ReadRunning(text, scan);
        break;
    case Scan::Progress::Finished:
    case Scan::Progress::Cancelled:
        scan.ended = timeBehind(" on ");
        ReadEnded(text, scan);
        break;
    case Scan::Progress::Unknown:
        break;
    }
    return scan;
}

} // namespace zfslib
