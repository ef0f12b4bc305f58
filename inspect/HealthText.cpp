#include "inspect/Escape.h"
#include "inspect/HealthView.h"
#include "util/str.h"

#include <algorithm>
#include <array>
#include <utility>

namespace inspect {
namespace {

using zfslib::PoolHealth;
using Device = PoolHealth::Device;
using DeviceType = PoolHealth::DeviceType;
using Scan = PoolHealth::Scan;

constexpr std::size_t lineWidth = 79;
constexpr std::size_t titleWidth = 10;

/// Whether a device is worth a look where not all are shown. What the tool has a note for is, such
/// as a disk that is being resilvered, though it is well.
bool IsNoteworthy(const Device& device) {
    return !IsStateWell(device) || HasErrors(device) || !device.note.empty() ||
           std::any_of(device.devices.begin(), device.devices.end(), IsNoteworthy);
}

void AddDevice(Table& table, const Device& device, DeviceChoice choice, std::size_t depth) {
    table.Add({Indented(depth, device.name), DeviceTypeText(device.type), device.stateText,
               ErrorsText(device), device.note});
    // Of a replacement, what replaces is as telling as what is replaced.
    const bool isReplacement =
        device.type == DeviceType::Replacing || device.type == DeviceType::Spare;
    for (const Device& member : device.devices)
        if (choice == DeviceChoice::All || isReplacement || IsNoteworthy(member))
            AddDevice(table, member, choice, depth + 1);
}

std::string Ago(std::int64_t seconds) {
    static constexpr std::array<std::pair<std::int64_t, const char*>, 3> units = {
        {{86400, "day"}, {3600, "hour"}, {60, "minute"}}};
    for (const auto& [length, name] : units)
        if (const std::int64_t count = seconds / length; count > 0)
            return std::to_string(count) + " " + name + (count == 1 ? " ago" : "s ago");
    return "just now";
}

/// How long ago, or the tool's own text where nobody knows.
std::string When(const PoolHealth::Time& time, std::int64_t now) {
    return time.seconds ? Ago(std::max<std::int64_t>(0, now - *time.seconds)) : time.text;
}

std::string PercentText(const Scan& scan) {
    if (!scan.percentDone)
        return {};
    std::string text = util::DoubleToString(*scan.percentDone);
    return " " + text.substr(0, text.find('.') + 3) + "% done";
}

std::string ScanText(const Scan& scan, std::int64_t now) {
    static constexpr std::array<const char*, 5> kinds = {"", "", "scrub", "resilver",
                                                         "error scrub"};
    std::string text = kinds.at(static_cast<std::size_t>(scan.kind));
    if (!scan.device.empty())
        text += " of " + scan.device;
    switch (scan.progress) {
    case Scan::Progress::Running:
        return text + PercentText(scan) +
               (scan.timeLeft.empty() ? "" : ", " + scan.timeLeft + " to go");
    case Scan::Progress::Paused:
        return text + " paused " + When(scan.paused, now) + "," + PercentText(scan);
    case Scan::Progress::Finished:
        text += " finished " + When(scan.ended, now);
        return scan.errors ? text + ", " + std::to_string(*scan.errors) + " errors" : text;
    case Scan::Progress::Cancelled:
        return text + " cancelled " + When(scan.ended, now);
    case Scan::Progress::Unknown:
        break;
    }
    return scan.text;
}

std::string ScansText(const PoolHealth& health, std::int64_t now) {
    std::string text;
    for (const Scan& scan : health.scans)
        if (scan.kind != Scan::Kind::None)
            text += (text.empty() ? "" : "; ") + ScanText(scan, now);
    return text.empty() ? "never scrubbed" : text;
}

/// A pool in one line: name, state, capacity, scrub, errors.
Table::Cells Heading(const HealthEntry& entry, std::int64_t now) {
    const std::string state = entry.health ? entry.health->stateText : entry.space.health;
    Table::Cells cells = {entry.name, state.empty() ? "unknown" : state,
                          entry.space.capacity ? std::to_string(*entry.space.capacity) + "% full"
                                               : "-"};
    if (!entry.health)
        return cells;
    const auto has = [&](HealthReason::Kind kind) {
        return std::any_of(entry.reasons.begin(), entry.reasons.end(),
                           [kind](const HealthReason& reason) { return reason.kind == kind; });
    };
    cells.push_back(ScansText(*entry.health, now));
    cells.emplace_back(has(HealthReason::Kind::DataErrors)     ? "data errors"
                       : has(HealthReason::Kind::DeviceErrors) ? "device errors"
                                                               : "no errors");
    return cells;
}

/// The reasons that neither the tool's words nor the devices say.
void PrintOwnReasons(std::ostream& out, const HealthEntry& entry) {
    for (const HealthReason& reason : entry.reasons)
        if (reason.kind == HealthReason::Kind::Capacity ||
            reason.kind == HealthReason::Kind::ScrubAge)
            PrintField(out, "limit", reason.text);
}

void PrintDevices(std::ostream& out, const PoolHealth& health, DeviceChoice choice) {
    Table table;
    AddDevices(table, health, choice, "devices");
    table.Print(out, indentStep);
}

void PrintDamagedFiles(std::ostream& out, const PoolHealth& health) {
    if (health.damagedFiles.empty())
        return;
    Table files;
    files.Add({"damaged"});
    for (const std::string& file : health.damagedFiles)
        files.Add({Indented(1, file)});
    files.Print(out, indentStep);
}

/// What goes on in the pool, in the tool's words: a scan that is over stands in the heading.
void PrintProgress(std::ostream& out, const PoolHealth& health) {
    for (const Scan& scan : health.scans)
        if (scan.progress == Scan::Progress::Running || scan.progress == Scan::Progress::Paused ||
            scan.errors.value_or(0) > 0)
            PrintField(out, "scan", scan.text);
    PrintField(out, "remove", health.remove);
    PrintField(out, "expand", health.expand);
    PrintField(out, "checkpoint", health.checkpoint);
}

void PrintDetails(std::ostream& out, const HealthEntry& entry, bool withAllDevices) {
    PrintField(out, "error", Fold(entry.error));
    if (!entry.health)
        return;
    const PoolHealth& health = *entry.health;
    const bool isHealthy = entry.reasons.empty();
    if (!isHealthy) {
        PrintAdvice(out, health);
        PrintOwnReasons(out, entry);
    }
    if (withAllDevices || !isHealthy)
        PrintDevices(out, health, withAllDevices ? DeviceChoice::All : DeviceChoice::Sick);
    if (!isHealthy) {
        PrintDamagedFiles(out, health);
        PrintProgress(out, health);
    }
    for (const std::string& line : health.unread)
        PrintField(out, "unread", line);
}

} // namespace

void AddDevices(Table& table, const PoolHealth& health, DeviceChoice choice,
                const std::string& ownTitle) {
    for (const PoolHealth::Section& section : SectionsOf(health)) {
        bool isTitled = false;
        for (const Device& device : section.devices) {
            if (choice == DeviceChoice::Sick && !IsNoteworthy(device))
                continue;
            if (!std::exchange(isTitled, true))
                table.Add({section.name.empty() ? ownTitle : section.name});
            AddDevice(table, device, choice, 1);
        }
    }
}

void PrintAdvice(std::ostream& out, const PoolHealth& health) {
    PrintField(out, "status", health.status);
    if (health.dataErrors != std::uint64_t{0})
        PrintField(out, "errors", health.errors);
    PrintField(out, "action", health.action);
    PrintField(out, "see", health.see);
}

void PrintField(std::ostream& out, const std::string& title, const std::string& text) {
    if (text.empty())
        return;
    const std::string indentation(indentStep + titleWidth, ' ');
    std::string line = std::string(indentStep, ' ') + title;
    line.resize(std::max(line.size() + 1, indentation.size()), ' ');
    bool isFirstWord = true;
    for (const std::string& word : util::split(text)) {
        const std::string escaped = Escape(word);
        if (!isFirstWord && Columns(line) + 1 + Columns(escaped) > lineWidth) {
            out << line << '\n';
            line = indentation;
            isFirstWord = true;
        }
        line += (std::exchange(isFirstWord, false) ? "" : " ") + escaped;
    }
    out << line << '\n';
}

void PrintHealthText(std::ostream& out, const HealthReport& report) {
    if (report.pools.empty())
        out << "no pools\n";
    Table headings;
    for (const HealthEntry& entry : report.pools)
        headings.Add(Heading(entry, report.now));
    for (std::size_t i = 0; i < report.pools.size(); ++i) {
        out << headings.Line(i) << '\n';
        PrintDetails(out, report.pools[i], report.withAllDevices);
    }
}

} // namespace inspect
