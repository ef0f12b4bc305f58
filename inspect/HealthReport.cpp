#include "inspect/HealthReport.h"

#include "util/str.h"

#include <algorithm>
#include <utility>

namespace inspect {
namespace {

using zfslib::PoolHealth;
using zfslib::PoolSpace;
using Kind = HealthReason::Kind;
using Scan = PoolHealth::Scan;

constexpr std::pair<const char*, std::optional<PoolHealth::Amount> PoolHealth::Device::*>
    errorCounts[] = {{"read", &PoolHealth::Device::read},
                     {"write", &PoolHealth::Device::write},
                     {"checksum", &PoolHealth::Device::checksum}};

bool IsZero(const std::optional<PoolHealth::Amount>& amount) {
    return !amount || amount->value.value_or(0) == 0;
}

void JudgeDevice(const PoolHealth::Device& device, const std::string& section,
                 std::vector<HealthReason>& reasons) {
    if (!IsStateWell(device))
        reasons.push_back(
            {Kind::DeviceState,
             device.name +
                 (device.stateText.empty() ? " shows no state" : " is " + device.stateText) +
                 (device.note.empty() ? "" : ": " + device.note),
             device.name, section});
    if (HasErrors(device))
        reasons.push_back({Kind::DeviceErrors, device.name + " has errors: " + ErrorsText(device),
                           device.name, section});
    for (const PoolHealth::Device& member : device.devices)
        JudgeDevice(member, section, reasons);
}

/// What the tool says of the last scan, or of the scrub when a sequential resilver stands beside
/// it; nullptr when there never was one.
const Scan* LastScan(const PoolHealth& health) {
    const Scan* last = nullptr;
    for (const Scan& scan : health.scans)
        if (scan.kind != Scan::Kind::None && (last == nullptr || scan.kind == Scan::Kind::Scrub))
            last = &scan;
    return last;
}

/// The tools show the last scan alone, so while a scrub runs, and after a resilver, nobody knows of
/// the scrub before it. But no scrub has finished since the last scan began or, if it has ended,
/// since then.
void JudgeScrubAge(const PoolHealth& health, std::uint64_t days, std::int64_t now,
                   std::vector<HealthReason>& reasons, std::string& error) {
    const Scan* const scan = LastScan(health);
    if (scan == nullptr) {
        reasons.push_back({Kind::ScrubAge, "the pool was never scrubbed", {}, {}});
        return;
    }
    const PoolHealth::Time& time = scan->ended.text.empty() ? scan->started : scan->ended;
    if (!time.text.empty() && !time.seconds) {
        error = "nobody knows the time zone of the last scrub, " + time.text;
        return;
    }
    constexpr std::int64_t secondsPerDay = std::int64_t{24} * 60 * 60;
    if (time.seconds && (now - *time.seconds) / secondsPerDay >= static_cast<std::int64_t>(days))
        reasons.push_back(
            {Kind::ScrubAge, util::str_format("no scrub has finished in %1 days", days), {}, {}});
}

} // namespace

int HealthReport::ExitStatus() const {
    constexpr int unhealthy = 3;
    const auto any = [this](auto&& holds) {
        return std::any_of(pools.begin(), pools.end(), holds);
    };
    if (any([](const HealthEntry& pool) { return !pool.reasons.empty(); }))
        return unhealthy;
    return any([](const HealthEntry& pool) { return !pool.error.empty(); }) ? 1 : 0;
}

bool IsStateWell(const PoolHealth::Device& device) {
    using State = PoolHealth::State;
    return device.state == State::Online || device.state == State::Avail ||
           device.state == State::Inuse;
}

bool HasErrors(const PoolHealth::Device& device) {
    return std::any_of(std::begin(errorCounts), std::end(errorCounts),
                       [&](const auto& count) { return !IsZero(device.*count.second); });
}

std::string ErrorsText(const PoolHealth::Device& device) {
    std::string text;
    for (const auto& [name, member] : errorCounts)
        if (!IsZero(device.*member))
            text += (text.empty() ? "" : ", ") + std::string(name) + " " + (device.*member)->text;
    return text;
}

std::vector<PoolHealth::Section> SectionsOf(const PoolHealth& health) {
    std::vector<PoolHealth::Section> sections;
    if (health.root)
        sections.push_back({{}, health.root->devices});
    sections.insert(sections.end(), health.sections.begin(), health.sections.end());
    return sections;
}

std::vector<HealthReason> Judge(const PoolHealth& health, const PoolSpace& space,
                                const HealthLimits& limits, std::int64_t now, std::string& error) {
    std::vector<HealthReason> reasons;
    if (health.stateText.empty())
        error = "'zpool status' shows no state";
    else if (health.state != PoolHealth::State::Online)
        reasons.push_back({Kind::PoolState, "the pool is " + health.stateText, {}, {}});
    if (health.root && HasErrors(*health.root))
        reasons.push_back(
            {Kind::DeviceErrors, "the pool has errors: " + ErrorsText(*health.root), {}, {}});
    for (const PoolHealth::Section& section : SectionsOf(health))
        for (const PoolHealth::Device& device : section.devices)
            JudgeDevice(device, section.name, reasons);
    // Whatever else the tool says here, the list itself among it, it says of errors.
    if (!health.errors.empty() && health.dataErrors != std::uint64_t{0})
        reasons.push_back({Kind::DataErrors, health.errors, {}, {}});
    for (const Scan& scan : health.scans)
        if (scan.errors.value_or(0) > 0)
            reasons.push_back({Kind::ScanErrors, scan.text, {}, {}});
    if (space.capacity && *space.capacity >= limits.capacityPercent)
        reasons.push_back(
            {Kind::Capacity,
             util::str_format("%1 percent of the space are allocated, the limit is %2",
                              *space.capacity, limits.capacityPercent),
             {},
             {}});
    if (limits.scrubAgeDays)
        JudgeScrubAge(health, *limits.scrubAgeDays, now, reasons, error);
    return reasons;
}

} // namespace inspect
