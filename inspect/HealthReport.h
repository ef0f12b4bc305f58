#pragma once

#include "zfstools/PoolHealth.h"
#include "zfstools/PoolSpace.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// What `zfsinspect health` finds out, and what it makes of that.
namespace inspect {

/// When a pool counts as unhealthy though the tools do not say so.
struct HealthLimits {
    std::uint64_t capacityPercent = 90;        ///< this much, or more, is allocated
    std::optional<std::uint64_t> scrubAgeDays; ///< no scrub has finished for longer
};

/// One reason why a pool is not healthy.
struct HealthReason {
    enum class Kind {
        PoolState,
        DeviceState,
        DeviceErrors,
        DataErrors,
        ScanErrors,
        Capacity,
        ScrubAge
    };

    Kind kind = Kind::PoolState;
    std::string text;    ///< "mirror-0 is DEGRADED"
    std::string device;  ///< of a device: its name
    std::string section; ///< of a device that stands in one: "logs"
};

struct HealthEntry {
    std::string name;
    zfslib::PoolSpace space;
    std::optional<zfslib::PoolHealth> health; ///< missing when it could not be read
    std::string error;                        ///< what could not be found out, and why
    std::vector<HealthReason> reasons;
    std::optional<std::int64_t> scrubAge; ///< seconds since the last finished scrub
};

struct HealthReport {
    bool withAllDevices = false;
    std::int64_t now = 0; ///< seconds since the epoch
    std::vector<HealthEntry> pools;

    /// 0: every pool is healthy; 3: one is not; 1: that could not be found out.
    [[nodiscard]] int ExitStatus() const;
};

/// Whether there is nothing to say against the state of the device itself: it is ONLINE, or a spare
/// that waits (AVAIL) or does its work (INUSE).
[[nodiscard]] bool IsStateWell(const zfslib::PoolHealth::Device& device);

/// Whether errors are counted for the device itself.
[[nodiscard]] bool HasErrors(const zfslib::PoolHealth::Device& device);

/// The counts that are not zero, "read 3, checksum 84"; empty when all are.
[[nodiscard]] std::string ErrorsText(const zfslib::PoolHealth::Device& device);

/// The devices with a title each: the pool's own, without one, then its sections.
[[nodiscard]] std::vector<zfslib::PoolHealth::Section> SectionsOf(const zfslib::PoolHealth& health);

/// Why a pool is not healthy, each reason by itself; none when it is. `error` is set when the time
/// of a scrub would matter and is not known.
[[nodiscard]] std::vector<HealthReason> Judge(const zfslib::PoolHealth& health,
                                              const zfslib::PoolSpace& space,
                                              const HealthLimits& limits, std::int64_t now,
                                              std::string& error);

} // namespace inspect
