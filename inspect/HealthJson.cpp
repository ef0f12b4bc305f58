#include "inspect/HealthView.h"

#include <array>

namespace inspect {
namespace {

using zfslib::PoolHealth;
using Device = PoolHealth::Device;
using Scan = PoolHealth::Scan;

template <typename Value>
Json NullUnless(const std::optional<Value>& value) {
    return value ? Json(*value) : Json();
}

Json AmountJson(const std::optional<PoolHealth::Amount>& amount) {
    return amount ? NullUnless(amount->value) : Json();
}

Json DraidJson(const std::optional<PoolHealth::DraidGeometry>& draid) {
    if (!draid)
        return {};
    return {{"parity", draid->parity},
            {"data", draid->data},
            {"children", draid->children},
            {"spares", draid->spares}};
}

Json DeviceJson(const Device& device) {
    return {{"name", device.name},
            {"type", DeviceTypeText(device.type)},
            {"draid", DraidJson(device.draid)},
            {"state", NullIfEmpty(device.stateText)},
            {"readErrors", AmountJson(device.read)},
            {"writeErrors", AmountJson(device.write)},
            {"checksumErrors", AmountJson(device.checksum)},
            {"slowIos", AmountJson(device.slow)},
            {"errorsText", NullIfEmpty(ErrorsText(device))},
            {"note", NullIfEmpty(device.note)},
            {"devices", Array(device.devices, DeviceJson)}};
}

Json TimeJson(const PoolHealth::Time& time) {
    if (time.text.empty())
        return {};
    return {{"text", time.text}, {"seconds", NullUnless(time.seconds)}};
}

Json ScanJson(const Scan& scan) {
    static constexpr std::array<const char*, 5> kinds = {"unknown", "none", "scrub", "resilver",
                                                         "errorScrub"};
    static constexpr std::array<const char*, 5> states = {"unknown", "running", "paused",
                                                          "finished", "cancelled"};
    return {{"kind", kinds.at(static_cast<std::size_t>(scan.kind))},
            {"state", states.at(static_cast<std::size_t>(scan.progress))},
            {"device", NullIfEmpty(scan.device)},
            {"percentDone", NullUnless(scan.percentDone)},
            {"timeLeft", NullIfEmpty(scan.timeLeft)},
            {"duration", NullIfEmpty(scan.duration)},
            {"started", TimeJson(scan.started)},
            {"paused", TimeJson(scan.paused)},
            {"ended", TimeJson(scan.ended)},
            {"repaired", AmountJson(scan.repaired)},
            {"errors", NullUnless(scan.errors)},
            {"text", scan.text}};
}

Json ReasonJson(const HealthReason& reason) {
    static constexpr std::array<const char*, 7> kinds = {
        "poolState",  "deviceState", "deviceErrors", "dataErrors",
        "scanErrors", "capacity",    "scrubAge"};
    return {{"kind", kinds.at(static_cast<std::size_t>(reason.kind))},
            {"text", reason.text},
            {"device", NullIfEmpty(reason.device)},
            {"section", NullIfEmpty(reason.section)}};
}

Json EntryJson(const HealthEntry& entry) {
    const zfslib::PoolSpace& space = entry.space;
    Json json = {{"name", entry.name},
                 {"healthy", entry.reasons.empty() && entry.error.empty()},
                 {"error", NullIfEmpty(entry.error)},
                 {"reasons", Array(entry.reasons, ReasonJson)},
                 {"size", NullUnless(space.size)},
                 {"allocated", NullUnless(space.allocated)},
                 {"free", NullUnless(space.free)},
                 {"capacityPercent", NullUnless(space.capacity)},
                 {"fragmentationPercent", NullUnless(space.fragmentation)},
                 {"dedupratio", NullUnless(space.dedupratio)},
                 {"listHealth", NullIfEmpty(space.health)},
                 {"secondsSinceScrub", NullUnless(entry.scrubAge)}};
    json["health"] = entry.health ? HealthJson(*entry.health) : Json();
    return json;
}

} // namespace

std::string DeviceTypeText(PoolHealth::DeviceType type) {
    static constexpr std::array<const char*, 13> texts = {
        "disk",  "file",      "mirror", "raidz",    "raidz1",           "raidz2", "raidz3",
        "draid", "replacing", "spare",  "indirect", "distributedSpare", "group"};
    return texts.at(static_cast<std::size_t>(type));
}

Json HealthJson(const PoolHealth& health) {
    return {{"state", NullIfEmpty(health.stateText)},
            {"status", NullIfEmpty(health.status)},
            {"action", NullIfEmpty(health.action)},
            {"see", NullIfEmpty(health.see)},
            {"scans", Array(health.scans, ScanJson)},
            {"remove", NullIfEmpty(health.remove)},
            {"checkpoint", NullIfEmpty(health.checkpoint)},
            {"expand", NullIfEmpty(health.expand)},
            {"errors", NullIfEmpty(health.errors)},
            {"dataErrors", NullUnless(health.dataErrors)},
            {"damagedFiles", health.damagedFiles},
            {"root", health.root ? DeviceJson(*health.root) : Json()},
            {"sections", Array(health.sections,
                               [](const PoolHealth::Section& section) {
                                   return Json{{"name", section.name},
                                               {"devices", Array(section.devices, DeviceJson)}};
                               })},
            {"otherTexts", Array(health.otherTexts,
                                 [](const PoolHealth::Text& text) {
                                     return Json{{"title", text.title}, {"text", text.text}};
                                 })},
            {"unread", health.unread}};
}

Json HealthReportJson(const HealthReport& report) {
    return {{"healthy", report.ExitStatus() == 0}, {"pools", Array(report.pools, EntryJson)}};
}

} // namespace inspect
