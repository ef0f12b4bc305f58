#include "inspect/JsonView.h"

#include "inspect/Gather.h"
#include "inspect/Json.h"

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

struct ToJson {
    Json operator()(const PoolsReport& report) const {
        return {{"pools", Array(report.pools, [&report](const PoolEntry& pool) {
                     return PoolJson(pool, report.withProperties);
                 })}};
    }
    Json operator()(const ToolsReport& report) const { return {{"installed", report.installed}}; }
    Json operator()(const DatasetsReport& report) const {
        Json datasets = Json::array();
        for (const DatasetEntry& entry : report.datasets)
            if (!entry.isPlaceholder)
                datasets.push_back(DatasetJson(entry.dataset, report));
        return {{"root", report.root}, {"datasets", datasets}, {"warnings", report.warnings}};
    }
    Json operator()(const VolumeReport& report) const {
        return {{"volume", report.volume}, {"device", report.device}, {"found", report.found}};
    }
    Json operator()(const LocateReport& report) const {
        return {{"paths", Array(report.paths, LocatedPathJson)}};
    }
    Json operator()(const ImportableReport& report) const {
        return {{"importable", Array(report.pools, [](const zfslib::Pool4Import& pool) {
                     return Json{{"name", pool.name}, {"id", pool.id}};
                 })}};
    }
};

} // namespace

void PrintJson(std::ostream& out, const Report& report) {
    const Json document = std::visit(ToJson(), report);
    // ASCII only, so that no control character reaches a terminal; what is not UTF-8 is replaced.
    out << document.dump(2, ' ', true, Json::error_handler_t::replace) << '\n';
}

} // namespace inspect
