#include "inspect/JsonView.h"

#include "inspect/Gather.h"
#include "inspect/Json.h"
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

Json VirtualDeviceJson(const Zpool::VirtualDevice& device) {
    return {{"name", device.name},
            {"type", Zpool::VirtualDeviceTypeToString(device.type)},
            {"devices", Array(device.devices, [](const auto& member) { return member.name; })}};
}

Json PoolJson(const PoolEntry& entry, bool withProperties) {
    const Zpool& pool = entry.pool;
    Json json = {{"name", pool.name},
                 {"state", Zpool::StateToString(pool.state)},
                 {"size", NullIfMissing(entry.size)},
                 {"allocated", NullIfMissing(entry.allocated)},
                 {"available", NullIfMissing(entry.available)},
                 {"spaceError", NullIfEmpty(entry.spaceError)},
                 {"rawSize", pool.size},
                 {"rawAllocated", pool.allocated},
                 {"devices", Array(pool.devices, VirtualDeviceJson)},
                 {"logs", Array(pool.logs, VirtualDeviceJson)},
                 {"caches", Array(pool.caches, VirtualDeviceJson)},
                 {"metas", Array(pool.metas, VirtualDeviceJson)},
                 {"spares", Array(pool.spares, VirtualDeviceJson)}};
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
    Json operator()(const ToolsReport& report) const { return {{"installed", report.installed}}; }
    Json operator()(const VolumeReport& report) const {
        return {{"volume", report.volume}, {"device", report.device}, {"found", report.found}};
    }
    Json operator()(const LocateReport& report) const {
        return {{"paths", Array(report.paths, LocatedPathJson)}};
    }
    Json operator()(const StateReport& report) const { return StateJson(report); }
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
