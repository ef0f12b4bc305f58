#include "inspect/StateJson.h"

#include "inspect/Escape.h"

#include <cstddef>
#include <string>

namespace inspect {
namespace {

using namespace zfslib::restore;

std::string Base64(std::string_view bytes) {
    constexpr std::string_view digits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const auto byte = [&](std::size_t at) {
            return at < bytes.size() ? static_cast<unsigned char>(bytes[at]) : 0U;
        };
        const unsigned group = byte(i) << 16U | byte(i + 1) << 8U | byte(i + 2);
        for (std::size_t digit = 0; digit < 4; ++digit)
            text += i + digit > bytes.size() ? '=' : digits[group >> (18U - 6U * digit) & 63U];
    }
    return text;
}

Json PropertyJson(const PropertyValue& property) {
    static constexpr const char* sources[] = {"-",         "default",  "local",
                                              "inherited", "received", "temporary"};
    Json json = {{"name", property.Name()}, {"value", BytesJson(property.Value())}};
    json["received"] = property.Received() ? BytesJson(*property.Received()) : Json();
    json["source"] = sources[static_cast<std::size_t>(property.Source())];
    json["inheritedFrom"] = NullIfEmpty(property.InheritedFrom());
    json["doubt"] = NullIfEmpty(property.Doubt());
    return json;
}

Json ShownJson(const std::vector<const PropertyValue*>& properties) {
    return Array(properties, [](const PropertyValue* property) { return PropertyJson(*property); });
}

Json DeviceJson(const Device& device) {
    static constexpr const char* kinds[] = {"disk",  "file",      "mirror", "raidz",
                                            "draid", "replacing", "spare",  "other"};
    static constexpr const char* uses[] = {"normal", "special", "dedup", "log",
                                           "meta",   "cache",   "spare", "other"};
    return {{"name", BytesJson(device.name)},
            {"kind", kinds[static_cast<std::size_t>(device.kind)]},
            {"use", uses[static_cast<std::size_t>(device.use)]},
            {"word", NullIfEmpty(device.word)},
            {"state", NullIfEmpty(device.state)},
            {"path", device.path.empty() ? Json() : BytesJson(device.path)},
            {"wholeDisk", device.isWholeDisk ? Json(*device.isWholeDisk) : Json()},
            {"guid", NullIfEmpty(device.guid)},
            {"deviceId", NullIfEmpty(device.deviceId)},
            {"physicalPath", NullIfEmpty(device.physicalPath)},
            {"ashift", device.ashift ? Json(*device.ashift) : Json()},
            {"properties", Array(device.properties, PropertyJson)},
            {"devices", Array(device.children, DeviceJson)}};
}

Json ViewJson(std::string_view text) {
    return text.empty() ? Json() : BytesJson(text);
}

Json PoolJson(const PoolState& pool, const StateReport& report) {
    return {{"name", pool.name},
            {"guid", ViewJson(pool.guid)},
            {"altroot", ViewJson(pool.altroot)},
            {"health", ViewJson(pool.health)},
            {"doubts", pool.doubts},
            {"properties", ShownJson(report.Shown(pool))},
            {"devices", Array(pool.devices, DeviceJson)}};
}

Json DatasetJson(const DatasetState& dataset, const StateReport& report) {
    return {
        {"name", dataset.name},
        {"type", dataset.type == DatasetState::Type::Volume ? "volume" : "filesystem"},
        {"guid", ViewJson(dataset.guid)},
        {"origin", ViewJson(dataset.origin)},
        {"encryptionRoot", ViewJson(dataset.encryptionRoot)},
        {"mounted", dataset.isMounted},
        {"properties", ShownJson(report.Shown(dataset))},
        {"quotas", Array(dataset.quotas,
                         [](const Quota& quota) {
                             return Json{{"name", quota.PropertyName()}, {"limit", quota.limit}};
                         })},
        {"quotasDoubt", NullIfEmpty(dataset.quotasDoubt)},
        {"permissions", ViewJson(dataset.permissions)},
        {"permissionsDoubt", NullIfEmpty(dataset.permissionsDoubt)}};
}

Json SnapshotJson(const SnapshotState& snapshot) {
    return {{"name", snapshot.name},
            {"userProperties", Array(snapshot.userProperties, PropertyJson)},
            {"holds", Array(snapshot.holds, BytesJson)},
            {"holdsDoubt", NullIfEmpty(snapshot.holdsDoubt)}};
}

} // namespace

Json BytesJson(std::string_view bytes) {
    return IsUtf8(bytes) ? Json(bytes) : Json{{"base64", Base64(bytes)}};
}

Json StateJson(const StateReport& report) {
    const HostState& state = report.state;
    const ToolsState& tools = state.tools;
    return {{"host", state.host},
            {"readAt", state.readAt},
            {"system", tools.system},
            {"release", tools.release},
            {"toolsVersion", NullIfEmpty(tools.version)},
            {"moduleVersion", NullIfEmpty(tools.moduleVersion)},
            {"roots", state.roots},
            {"pools",
             Array(state.pools, [&](const PoolState& pool) { return PoolJson(pool, report); })},
            {"datasets",
             Array(state.datasets,
                   [&](const DatasetState& dataset) { return DatasetJson(dataset, report); })},
            {"snapshots", Array(state.snapshots, SnapshotJson)}};
}

} // namespace inspect
