#pragma once

#include "../platform/zfslib_export.h"
#include "../restore/Plan.h"

#include <string>
#include <string_view>

namespace zfslib::restore {

/// The plan as a script for `sh` that needs the tools and nothing else: POSIX, also for bash, ksh93
/// and busybox. `about` stands in its head as a comment: which host, saved when.
///
/// A step is a line, below a comment with its number and what it changes. The script stops at the
/// first one that fails, says which on standard error, and can go on from it; it reads the whole of
/// itself before it runs any, and fails when it was cut short. Its operands are "prepare" for what
/// comes before the data, "finish" for what comes after, nothing for both, and "from N" behind
/// these. Its exit status is 0, 1 after a step that failed, 2 for other operands. The disks of new
/// pools are variables at its top. A newline in a word is "$nl"; all other bytes stand as they are,
/// between single quotes.
///
/// Errors: std::runtime_error when a word has a NUL in it, which no command can be given.
[[nodiscard]] ZFSLIB_EXPORT std::string PlanScript(const Plan& plan, std::string_view about);

/// A step in one line of ASCII for people: "tank/data, quota: 0 -> 1234567890; was set". Other
/// bytes stand as "\x9b", and long values are cut.
[[nodiscard]] ZFSLIB_EXPORT std::string DescribeStep(const Step& step);

} // namespace zfslib::restore
