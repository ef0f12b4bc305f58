#pragma once

#include "../platform/zfslib_export.h"
#include "../zfstools/Executor.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zfslib {

/// The health of one pool: what `zpool status` prints of it. A plain value. Nothing that the tool
/// printed is lost: what is not understood is kept as text, and never hides the rest.
///
/// ZpoolEnumerator refuses a pool in a state that it does not know, for a backup must not work with
/// half of a host; this is for looking at such a pool.
struct ZFSLIB_EXPORT PoolHealth {
    /// The state of a pool or a device, by the tool's word. An unknown word, or none, is Unknown;
    /// the word itself stands beside it.
    enum class State {
        Unknown = 0,
        Online = 1,
        Degraded = 2,
        Faulted = 3,
        Offline = 4,
        Removed = 5,
        Unavail = 6,
        Suspended = 7,
        Avail = 8, ///< a spare that waits
        Inuse = 9, ///< a spare that stands in for another device
    };

    /// A number as the tool printed it.
    struct Amount {
        std::string text; ///< "173", "4.56K"; "-" for none
        /// Exact when the text is digits alone, else as exact as the text; units are powers of
        /// 1024. Missing for "-" and for what is no number.
        std::optional<std::uint64_t> value;
    };

    /// A point in time as the tool printed it.
    struct Time {
        std::string text; ///< "Sun Nov 22 20:13:22 2026"; empty for none
        /// Since the epoch; missing when nobody knows the time zone of the text (see Clock).
        std::optional<std::int64_t> seconds;
    };

    /// Which time zone the tool prints. Unknown: the host's own, which its output does not name.
    enum class Clock { Unknown, Utc };

    /// What the tool says of a scrub or a resilver. A pool can have two: a sequential resilver
    /// stands beside the scrub.
    struct Scan {
        /// What is looked through; None: the tool says that none was requested.
        enum class Kind { Unknown = 0, None = 1, Scrub = 2, Resilver = 3, ErrorScrub = 4 };
        /// How far it is.
        enum class Progress { Unknown = 0, Running = 1, Paused = 2, Finished = 3, Cancelled = 4 };

        std::string text;                      ///< the whole, in one line
        Kind kind = Kind::Unknown;             ///< told from the text
        Progress progress = Progress::Unknown; ///< told from the text
        std::string device;                    ///< of a sequential resilver: "mirror-0"
        std::optional<double> percentDone;     ///< while it runs or is paused
        std::string timeLeft;                ///< the tool's estimate: "00:00:18", "0h11m"; or empty
        std::string duration;                ///< "00:00:02", "0 days 00:03:10"; or empty
        Time started;                        ///< while it runs or is paused
        Time paused;                         ///< while it is paused
        Time ended;                          ///< when it finished or was cancelled
        std::optional<Amount> repaired;      ///< bytes; of a resilver, what was resilvered
        std::optional<std::uint64_t> errors; ///< of a finished one
    };

    /// What a row of the device table is, told from its name and place.
    enum class DeviceType {
        Disk = 0,
        File = 1, ///< an absolute path that is not below /dev
        Mirror = 2,
        Raidz = 3, ///< without a number: older tools print "raidz" for one parity disk
        Raidz1 = 4,
        Raidz2 = 5,
        Raidz3 = 6,
        Draid = 7,
        Replacing = 8,
        Spare = 9, ///< a group of a device and the spare that stands in for it
        Indirect = 10,
        DistributedSpare = 11, ///< space of a draid that serves as a spare: "draid1-0-0"
        Group = 12,            ///< anything else that has devices below it
    };

    /// The numbers in the name of a draid: "draid1:2d:6c:1s-0".
    struct DraidGeometry {
        unsigned parity = 0;   ///< 1, the digit behind "draid"
        unsigned data = 0;     ///< 2, data disks in a group
        unsigned children = 0; ///< 6, disks in all
        unsigned spares = 0;   ///< 1, distributed ones
    };

    /// A row of the device table, with all that stands below it.
    struct Device {
        std::string name;                   ///< as printed; of a missing device, often a number
        DeviceType type = DeviceType::Disk; ///< told from the name and what is below it
        std::optional<DraidGeometry> draid; ///< of a draid
        State state = State::Unknown;       ///< Unknown too when none is printed
        std::string stateText;              ///< empty when none is printed
        /// @{
        /// Errors since they were cleared; missing where none are printed, as for a spare. Slow:
        /// I/O operations that took too long (zpool status -s).
        std::optional<Amount> read, write, checksum, slow;
        /// @}
        std::string note; ///< what stands behind: "was /dev/sdc", "too many errors"; or empty
        std::vector<Device> devices; ///< below it, in the order printed
    };

    /// A part of the device table that has a title: "logs", "cache", "spares", "special".
    struct Section {
        std::string name;            ///< the title
        std::vector<Device> devices; ///< at its top level, in the order printed
    };

    /// A text that has a title which is not known here.
    struct Text {
        std::string title; ///< without its colon
        std::string text;  ///< its lines joined by blanks
    };

    /// The health of a pool, from an executor's answers: runs
    ///
    ///     zpool status -ps POOL      exact counts and slow I/Os
    ///     zpool status POOL          if that failed: older tools, Solaris' among them, refuse -p
    ///     zpool status -v POOL       if there are data errors: the damaged files
    ///
    /// The first two are run with TZ=UTC0 in their environment, so that times are told as seconds
    /// too, wherever the command runs. If both fail, `zpool status POOL` is run as ZpoolEnumerator
    /// does: recordings hold that, without telling the time zone. A failed -v leaves its message in
    /// `unread`. The name reaches the command lines unquoted. Errors: what the executor throws for
    /// the last of them; a command that was killed is not followed by the next.
    static PoolHealth Read(const std::string& pool, const CommandExecutor& executor);

    /// Reads an output of `zpool status` for one pool, from any system and with any of the options
    /// -p, -s, -v, -P, -L, -g, -i, -t. Never fails.
    static PoolHealth Parse(const std::string& statusOutput, Clock clock = Clock::Unknown);

    /// Unknown for a word that is none of them.
    static State StringToState(const std::string& text);

    std::string name;             ///< of the pool; may hold blanks
    State state = State::Unknown; ///< of the pool; Unknown too when none is printed
    std::string stateText;        ///< empty when none is printed

    /// @{
    /// The text behind that title, its lines joined by blanks; empty without one.
    std::string status, action, see, remove, checkpoint, expand, errors;
    /// @}
    std::vector<Scan> scans;       ///< titles "scan" and, of Solaris 10, "scrub"
    std::vector<Text> otherTexts;  ///< in the order printed
    std::optional<Device> root;    ///< the pool's own row, above what it keeps its data on
    std::vector<Section> sections; ///< in the order printed

    /// As the tool counts them; missing when it lists them instead, or says something else. A
    /// damaged file can count many times.
    std::optional<std::uint64_t> dataErrors;
    /// As printed: paths, "pool/fs:<0x1>", "<metadata>:<0x33>".
    std::vector<std::string> damagedFiles;

    std::vector<std::string> unread; ///< lines that belong to none of the above
};

} // namespace zfslib
