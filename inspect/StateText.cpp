#include "inspect/StateText.h"

#include "inspect/Escape.h"
#include "inspect/Table.h"
#include "util/str.h"

#include <string>
#include <string_view>
#include <vector>

namespace inspect {
namespace {

using namespace zfslib::restore;

std::string SourceText(const PropertyValue& property) {
    switch (property.Source()) {
    case PropertySource::None:
        return "-";
    case PropertySource::Default:
        return "default";
    case PropertySource::Local:
        return "local";
    case PropertySource::Inherited:
        return "inherited from " + property.InheritedFrom();
    case PropertySource::Received:
        return "received";
    case PropertySource::Temporary:
        return "temporary";
    }
    return {};
}

void AddProperty(Table& table, const PropertyValue& property) {
    // "-" without a source is how the tools print that there is nothing.
    const bool isNothing =
        property.Value() == "-" &&
        (property.Source() == PropertySource::None || property.Source() == PropertySource::Default);
    // Values may be long: they stand last.
    table.Add(
        {property.Name(), SourceText(property), isNothing ? "-" : ShownValue(property.Value())});
    if (property.Received() && property.Source() != PropertySource::Received)
        table.Add({"", "also received", ShownValue(*property.Received())});
    if (!property.IsExact())
        table.Add({"", "doubtful", property.Doubt()});
}

void AddDoubt(Table& table, const std::string& what, const std::string& doubt) {
    if (!doubt.empty())
        table.Add({what, "not known", doubt});
}

std::string KindText(const Device& device) {
    switch (device.kind) {
    case Device::Kind::Disk:
        return device.isWholeDisk.value_or(false) ? "whole disk" : "disk";
    case Device::Kind::File:
        return "file";
    case Device::Kind::Replacing:
        return "replacing";
    case Device::Kind::Spare:
        return "spare";
    case Device::Kind::Other:
        return "other";
    default:
        return device.word;
    }
}

void AddDevices(Table& table, const std::vector<Device>& devices, std::size_t depth) {
    static constexpr const char* sections[] = {"devices", "special", "dedup",  "logs",
                                               "metas",   "caches",  "spares", "others"};
    for (std::size_t i = 0; i < devices.size(); ++i) {
        const Device& device = devices[i];
        if (depth == 1 && (i == 0 || devices[i - 1].use != device.use))
            table.Add({sections[static_cast<std::size_t>(device.use)]});
        std::string set;
        for (const PropertyValue& property : device.properties)
            set += (set.empty() ? "" : ", ") + property.Name() + "=" + ShownValue(property.Value());
        table.Add({Indented(depth, device.name), KindText(device),
                   device.ashift ? "ashift " + util::str(*device.ashift) : "", device.path,
                   device.state, set});
        AddDevices(table, device.children, depth + 1);
    }
}

void PrintPool(std::ostream& out, const PoolState& pool, const StateReport& report) {
    Table head;
    head.Add({"pool " + std::string(pool.name), std::string(pool.health)});
    head.Print(out, 0);
    Table table;
    table.Add({"guid", "", std::string(pool.guid)});
    if (!pool.altroot.empty())
        table.Add({"altroot", "", std::string(pool.altroot)});
    for (const std::string& doubt : pool.doubts)
        table.Add({"mind", "", doubt});
    for (const PropertyValue* property : report.Shown(pool))
        AddProperty(table, *property);
    table.Print(out, indentStep);
    Table devices;
    AddDevices(devices, pool.devices, 1);
    devices.Print(out, indentStep);
}

void PrintPermissions(std::ostream& out, std::string_view permissions) {
    Table table;
    if (!permissions.empty())
        util::ConsumeLine(permissions); // its heading
    while (!permissions.empty()) {
        std::string_view line = util::ConsumeLine(permissions);
        const bool isIndented = util::str_is_starts_with(line, "\t");
        line.remove_prefix(isIndented ? 1 : 0);
        table.Add({Indented(isIndented ? 1 : 0, std::string(line))});
    }
    table.Print(out, indentStep);
}

void PrintDataset(std::ostream& out, const DatasetState& dataset, const StateReport& report) {
    Table head;
    std::string kind = dataset.type == DatasetState::Type::Volume ? "volume" : "filesystem";
    if (!dataset.origin.empty())
        kind += ", clone of " + std::string(dataset.origin);
    if (!dataset.encryptionRoot.empty())
        kind += dataset.encryptionRoot == dataset.name
                    ? ", encrypted"
                    : ", encrypted with the key of " + std::string(dataset.encryptionRoot);
    if (dataset.isMounted)
        kind += ", mounted";
    head.Add({std::string(dataset.name), kind});
    head.Print(out, 0);
    Table table;
    for (const PropertyValue* property : report.Shown(dataset))
        AddProperty(table, *property);
    for (const Quota& quota : dataset.quotas)
        table.Add({quota.PropertyName(), "local", util::str(quota.limit)});
    AddDoubt(table, "quotas", dataset.quotasDoubt);
    AddDoubt(table, "permissions", dataset.permissionsDoubt);
    table.Print(out, indentStep);
    PrintPermissions(out, dataset.permissions);
}

void PrintSnapshot(std::ostream& out, const SnapshotState& snapshot) {
    Table head;
    head.Add({std::string(snapshot.name), "snapshot"});
    head.Print(out, 0);
    Table table;
    for (const PropertyValue& property : snapshot.userProperties)
        AddProperty(table, property);
    for (const std::string& tag : snapshot.holds)
        table.Add({"hold", "", ShownValue(tag)});
    AddDoubt(table, "holds", snapshot.holdsDoubt);
    table.Print(out, indentStep);
}

} // namespace

std::string ShownValue(std::string_view value) {
    std::string text(value);
    const bool hasOpenEnds = text.empty() || text.front() == ' ' || text.back() == ' ' ||
                             text.front() == '"' || text == "-";
    return hasOpenEnds ? '"' + text + '"' : text;
}

void PrintStateText(std::ostream& out, const StateReport& report) {
    const HostState& state = report.state;
    const ToolsState& tools = state.tools;
    Table head;
    head.Add({"host", state.host});
    head.Add({"system", tools.system + " " + tools.release});
    head.Add({"tools", tools.version.empty() ? "-" : tools.version});
    head.Add({"read", state.readAt});
    head.Print(out, 0);
    for (const PoolState& pool : state.pools) {
        out << '\n';
        PrintPool(out, pool, report);
    }
    out << '\n';
    for (const DatasetState& dataset : state.datasets)
        PrintDataset(out, dataset, report);
    for (const SnapshotState& snapshot : state.snapshots)
        PrintSnapshot(out, snapshot);
}

} // namespace inspect
