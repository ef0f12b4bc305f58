#include "inspect/HealthGather.h"

#include "inspect/Operands.h"
#include "logging/logging.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <utility>

namespace inspect {
namespace {

using zfslib::CommandExecutor;
using zfslib::PoolHealth;
using zfslib::PoolSpace;

std::int64_t Now() {
    using namespace std::chrono;
    return duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
}

void FindScrubAge(HealthEntry& entry, std::int64_t now) {
    using Scan = PoolHealth::Scan;
    for (const Scan& scan : entry.health->scans)
        if (scan.kind == Scan::Kind::Scrub && scan.progress == Scan::Progress::Finished &&
            scan.ended.seconds)
            entry.scrubAge = std::max<std::int64_t>(0, now - *scan.ended.seconds);
}

/// What is not among the columns that older recordings hold, as the tool computes it.
void FillSpace(PoolSpace& space) {
    if (!space.size || !space.allocated || *space.size < *space.allocated)
        return;
    if (!space.free)
        space.free = *space.size - *space.allocated;
    if (!space.capacity && *space.size > 0)
        space.capacity = static_cast<std::uint64_t>(static_cast<double>(*space.allocated) * 100 /
                                                    static_cast<double>(*space.size));
}

HealthEntry GatherPool(PoolSpace&& space, const HealthLimits& limits, std::int64_t now,
                       const CommandExecutor& executor) {
    HealthEntry entry;
    entry.name = space.name;
    entry.space = std::move(space);
    FillSpace(entry.space);
    entry.error = RefusedPool(entry.name); // a name with a blank cannot stand in the command line
    if (entry.error.empty()) {
        try {
            entry.health = PoolHealth::Read(entry.name, executor);
        } catch (const std::exception& error) {
            entry.error = logging::Describe(error);
        }
    }
    if (entry.health) {
        FindScrubAge(entry, now);
        entry.reasons = Judge(*entry.health, entry.space, limits, now, entry.error);
    } else if (!entry.space.health.empty() && entry.space.health != "ONLINE") {
        entry.reasons.push_back(
            {HealthReason::Kind::PoolState, "the pool is " + entry.space.health, {}, {}});
    }
    return entry;
}

} // namespace

HealthReport GatherHealth(const Options& options, const CommandExecutor& executor) {
    HealthReport report;
    report.withAllDevices = options.allDevices;
    report.now = Now();
    const std::vector<std::string>& wanted = options.operands;
    std::vector<std::string> missing = wanted;
    for (PoolSpace& space : PoolSpace::Enumerate(executor)) {
        if (!wanted.empty() && std::find(wanted.begin(), wanted.end(), space.name) == wanted.end())
            continue;
        missing.erase(std::remove(missing.begin(), missing.end(), space.name), missing.end());
        report.pools.push_back(GatherPool(std::move(space), options.limits, report.now, executor));
    }
    for (const std::string& name : missing) {
        HealthEntry& entry = report.pools.emplace_back();
        entry.name = name;
        entry.error = "no such pool";
    }
    return report;
}

} // namespace inspect
