#include "inspect/JsonView.h"

#include "inspect/Gather.h"
#include "inspect/HealthView.h"
#include "inspect/Json.h"
#include "inspect/PlanView.h"
#include "inspect/StateJson.h"

#include <string>
#include <utility>
#include <variant>

namespace inspect {
namespace {

using zfslib::Zpool;

Json PropertyJson(const PropertyEntry& property) {
    Json json = {{"name", property.name}, {"value", property.text}};
    if (property.bytes)
        json["bytes"] = *property.bytes;
    json["source"] = NullIfEmpty(property.source);
    json["inheritedFrom"] = NullIfEmpty(property.inheritedFrom);
    json["failed"] = property.failed;
    return json;
}

Json QuotaJson(const PropertyEntry& quota) {
    return {{"name", quota.name}, {"value", quota.text}};
}

/// The record knows no draid; the health of the pool tells it.
bool IsDraid(const std::string& name, const PoolEntry& entry) {
    if (!entry.health)
        return false;
    for (const zfslib::PoolHealth::Section& section : SectionsOf(*entry.health))
        for (const zfslib::PoolHealth::Device& device : section.devices)
            if (device.name == name && device.draid)
                return true;
    return false;
}

Json VirtualDevicesJson(const PoolEntry& entry, std::vector<Zpool::VirtualDevice> Zpool::*section) {
    if (!entry.pool)
        return Json::array();
    return Array(*entry.pool.*section, [&entry](const Zpool::VirtualDevice& device) -> Json {
        return {{"name", device.name},
                {"type", IsDraid(device.name, entry)
                             ? "draid"
                             : Zpool::VirtualDeviceTypeToString(device.type)},
                {"devices", Array(device.devices, [](const auto& member) { return member.name; })}};
    });
}

/// The state of the record is a word of the tools, too, but not one of all.
Json StateJson(const PoolEntry& entry) {
    if (entry.pool)
        return Zpool::StateToString(entry.pool->state);
    return entry.health ? NullIfEmpty(entry.health->stateText) : Json();
}

Json PoolJson(const PoolEntry& entry, bool withProperties) {
    Json json = {{"name", entry.name},
                 {"state", StateJson(entry)},
                 {"error", NullIfEmpty(entry.error)},
                 {"size", NullIfMissing(entry.size)},
                 {"allocated", NullIfMissing(entry.allocated)},
                 {"available", NullIfMissing(entry.available)},
                 {"spaceError", NullIfEmpty(entry.spaceError)},
                 {"rawSize", NullIfMissing(entry.space.size)},
                 {"rawAllocated", NullIfMissing(entry.space.allocated)},
                 {"devices", VirtualDevicesJson(entry, &Zpool::devices)},
                 {"logs", VirtualDevicesJson(entry, &Zpool::logs)},
                 {"caches", VirtualDevicesJson(entry, &Zpool::caches)},
                 {"metas", VirtualDevicesJson(entry, &Zpool::metas)},
                 {"spares", VirtualDevicesJson(entry, &Zpool::spares)},
                 {"health", entry.health ? HealthJson(*entry.health) : Json()}};
    if (withProperties)
        json["properties"] = Array(entry.properties, PropertyJson);
    return json;
}

Json DatasetJson(const zfslib::ZfsDataset& dataset, const DatasetsReport& report) {
    const bool isSnapshot = dataset.type == zfslib::ZfsDataset::snapshot;
    const DatasetProperties properties = report.Properties(dataset);
    Json json = {
        {"name", dataset.name},
        {"type", zfslib::ZfsDataset::TypeToString(dataset.type)},
        {"parent", dataset.name == report.root ? Json() : NullIfEmpty(ParentName(dataset.name))},
        {"used", dataset.used},
        {"available", isSnapshot ? Json() : Json(dataset.avail)},
        {"usedByRefreservation", isSnapshot ? Json() : Json(dataset.usedrefreserv)}};
    if (report.withProperties)
        json["properties"] = Array(properties.native, PropertyJson);
    json["userProperties"] = Array(properties.user, PropertyJson);
    json["quotas"] = Array(properties.quotas, QuotaJson);
    return json;
}

Json LocatedPathJson(const LocatedPath& path) {
    return {{"path", path.path},
            {"dataset", NullIfEmpty(path.dataset)},
            {"pool", NullIfEmpty(path.pool)},
            {"error", NullIfEmpty(path.error)}};
}

/// ASCII only, so that no control character reaches a terminal; what is not UTF-8 is replaced.
std::string Dump(const Json& json) {
    return json.dump(2, ' ', true, Json::error_handler_t::replace);
}

/// A dumped value that stands inside another: no string in it holds a line break.
std::string DumpInside(const Json& json, std::size_t columns) {
    std::string text = Dump(json);
    for (std::size_t end = text.find('\n'); end != std::string::npos;
         end = text.find('\n', end + columns))
        text.insert(end + 1, columns, ' ');
    return text;
}

/// The document of each report but that of datasets.
struct ToJson {
    Json operator()(const PoolsReport& report) const {
        return {{"pools", Array(report.pools, [&report](const PoolEntry& pool) {
                     return PoolJson(pool, report.withProperties);
                 })}};
    }
    Json operator()(const HealthReport& report) const { return HealthReportJson(report); }
    Json operator()(const ToolsReport& report) const { return {{"installed", report.installed}}; }
    Json operator()(const VolumeReport& report) const {
        return {{"volume", report.volume}, {"device", report.device}, {"found", report.found}};
    }
    Json operator()(const LocateReport& report) const {
        return {{"paths", Array(report.paths, LocatedPathJson)}};
    }
    Json operator()(const StateReport& report) const { return StateJson(report); }
    Json operator()(const PlanReport& report) const { return PlanJson(report); }
    Json operator()(const ImportableReport& report) const {
        return {{"importable", Array(report.pools, [](const zfslib::Pool4Import& pool) {
                     return Json{{"name", pool.name}, {"id", pool.id}};
                 })}};
    }
};

struct JsonPrinter {
    std::ostream& out;

    template <typename Other>
    void operator()(const Other& report) const {
        out << Dump(ToJson()(report)) << '\n';
    }

    /// One dataset at a time: the whole document would take many times the memory of the records.
    void operator()(const DatasetsReport& report) const {
        out << "{\n  \"root\": " << Dump(report.root) << ",\n  \"datasets\": [";
        const char* separator = "\n    ";
        for (const DatasetEntry& entry : report.datasets)
            if (entry.dataset != nullptr)
                out << std::exchange(separator, ",\n    ")
                    << DumpInside(DatasetJson(*entry.dataset, report), 4);
        out << (*separator == ',' ? "\n  ]" : "]")
            << ",\n  \"warnings\": " << DumpInside(report.warnings, 2)
            << ",\n  \"warningCauses\": " << DumpInside(report.warningCauses, 2) << "\n}\n";
    }
};

} // namespace

void PrintJson(std::ostream& out, const Report& report) {
    std::visit(JsonPrinter{out}, report);
}

} // namespace inspect
