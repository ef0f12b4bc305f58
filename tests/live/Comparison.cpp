#include "tests/live/Comparison.h"

#include "tests/live/Host.h"
#include "util/str.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <type_traits>

namespace live {
namespace {

using inspect::Json;
using zfslib::Property;
using zfslib::PropState;
using zfslib::ZfsDataset;
using zfslib::ZfsProperties;
using zfslib::Zpool;

template <typename T>
void Add(std::map<std::string, ToldProperty>& properties, const Property<T>& property) {
    if (property.GetState() == PropState::Unset)
        return;
    ToldProperty told;
    told.value = property.GetText();
    if constexpr (std::is_same_v<T, ZfsProperties::SpaceSize>)
        if (property.GetValue().kind == ZfsProperties::SpaceSize::Kind::Value)
            told.bytes = property.GetValue().bytes;
    told.source = property.GetSource().text;
    if (!property.GetSource().inheritedFrom.empty())
        told.source += " from " + property.GetSource().inheritedFrom;
    told.failed = property.GetState() == PropState::Failed;
    properties[property.GetName()] = told;
}

void Add(std::map<std::string, ToldProperty>& properties, const Json& list) {
    for (const Json& property : list) {
        ToldProperty told;
        told.value = property.at("value");
        if (property.contains("bytes"))
            told.bytes = property.at("bytes");
        if (property.contains("source") && !property.at("source").is_null())
            told.source = property.at("source");
        if (property.contains("inheritedFrom") && !property.at("inheritedFrom").is_null())
            told.source += " from " + property.at("inheritedFrom").get<std::string>();
        told.failed = property.contains("failed") && property.at("failed").get<bool>();
        properties[property.at("name")] = told;
    }
}

std::optional<std::uint64_t> NumberOrNull(const Json& json) {
    return json.is_null() ? std::nullopt : std::optional<std::uint64_t>(json);
}

/// The properties that the library has members for, and those of them that are on or off.
struct NativeNames {
    std::set<std::string> all;
    std::set<std::string> flags;
};

template <typename Properties>
const NativeNames& NamesOf() {
    static const NativeNames names = [] {
        NativeNames collected;
        const Properties fresh;
        Properties::ForEach(fresh, [&](const auto& property) {
            collected.all.insert(property.GetName());
            if constexpr (std::is_same_v<std::decay_t<decltype(property.GetValue())>, bool>)
                collected.flags.insert(property.GetName());
        });
        return collected;
    }();
    return names;
}

bool IsSize(const std::string& property) {
    static const std::set<std::string> names = {"quota",          "refquota",   "reservation",
                                                "refreservation", "recordsize", "volsize",
                                                "volblocksize"};
    return names.count(property) != 0;
}

/// A size as the tools print it, in bytes; nothing when it is none.
std::optional<double> BytesOf(const std::string& text) {
    if (text == "none" || text == "-" || text.empty())
        return 0;
    std::string_view rest = text;
    const auto number = util::ConsumeDouble(rest);
    static const std::string units = "BKMGTPE";
    const std::size_t power = rest.empty() ? 0 : units.find(rest.front());
    if (!number || rest.size() > 1 || power == std::string::npos)
        return std::nullopt;
    return std::ldexp(*number, static_cast<int>(10 * power));
}

/// Whether the tools print `exact` as what was read as `told`: with two, one or no decimals, so
/// that three digits are shown.
bool IsRounded(double told, double exact) {
    double unit = 1;
    while (exact / unit >= 1024)
        unit *= 1024;
    const double shown = std::max(told, exact) / unit;
    const double step = shown < 10 ? 0.01 : shown < 100 ? 0.1 : 1;
    return unit > 1 && std::abs(told - exact) <= step / 2 * unit + 1;
}

bool IsUtf8(const std::string& text) {
    try {
        return !Json(text).dump().empty();
    } catch (const Json::type_error&) {
        return false;
    }
}

class Comparison {
public:
    explicit Comparison(bool isJson) : isJson_(isJson) {}

    void Text(const std::string& what, const std::string& told, const std::string& exact) {
        if (told == exact)
            ++tally.equal;
        else
            Wrong(what, told, exact);
    }

    void LeftOut(const char* limit) { ++tally.leftOut[limit]; }

    void Wrong(const std::string& what, const std::string& told, const std::string& exact) {
        tally.wrong.push_back(what + ": told [" + told + "], is [" + exact + "]");
    }

    void Size(const std::string& what, std::optional<double> told, const std::string& exact) {
        const std::optional<double> bytes = BytesOf(exact);
        if (told && bytes && *told == *bytes)
            ++tally.equal;
        else if (told && bytes && IsRounded(*told, *bytes))
            ++tally.rounded;
        else
            Wrong(what, told ? std::to_string(*told) : "nothing", exact);
    }

    /// The properties that the library has members for, and the user properties.
    void Properties(const std::string& object, const std::map<std::string, ToldProperty>& told,
                    const TrueProperties& exact, const NativeNames& native) {
        for (const auto& [name, property] : told)
            if (exact.count(name) == 0)
                Wrong(object + " " + name, property.value, "absent");
        for (const auto& [name, property] : exact) {
            const bool isUser = name.find(':') != std::string::npos;
            if (!isUser && native.all.count(name) == 0)
                continue;
            const std::string what = object + " " + name;
            const auto found = told.find(name);
            const std::vector<std::string> words = util::split(property.value);
            if (found == told.end()) {
                if (words.size() > 1)
                    LeftOut("a value with blanks is skipped");
                else
                    Wrong(what, "nothing", property.value);
                continue;
            }
            Text(what + " source", found->second.source, property.source);
            if (isUser)
                UserValue(what, found->second, property.value);
            else
                NativeValue(what, name, found->second, property.value, native);
        }
    }

    Tally tally;

private:
    void UserValue(const std::string& what, const ToldProperty& told, const std::string& exact) {
        const std::vector<std::string> words = util::split(exact);
        if (exact == "-" && told.value.empty())
            LeftOut("\"-\" is no value");
        else if (words.size() == 1 && words[0] != exact && told.value == words[0])
            LeftOut("blanks at the ends of a value are lost");
        else if (isJson_ && !IsUtf8(exact) && told.value.find("\xEF\xBF\xBD") != std::string::npos)
            LeftOut("JSON holds no bytes that are not UTF-8");
        else
            Text(what, told.value, exact);
    }

    void NativeValue(const std::string& what, const std::string& name, const ToldProperty& told,
                     const std::string& exact, const NativeNames& native) {
        static const std::map<std::string, std::string> refused = {
            {"encryption", "aes-256-gcm"}, {"aclmode", "restricted"}, {"version", "-"}};
        if (told.failed) {
            const auto word = refused.find(name);
            if (word != refused.end() && word->second == exact && told.value == exact)
                LeftOut("a word that is not known is told as failed");
            else
                Wrong(what, told.value + " (failed)", exact);
        } else if (name == "dedupratio") {
            Text(what, told.value, exact + "0000");
        } else if (IsSize(name)) {
            if (told.bytes)
                Size(what + " bytes", told.bytes, exact);
            Size(what, BytesOf(told.value), exact);
        } else if (native.flags.count(name) != 0 && name != "mounted" && exact != "on" &&
                   exact != "off") {
            if (told.value == "off")
                LeftOut("of a property of on and off, every other word is off");
            else
                Wrong(what, told.value, exact);
        } else if (exact == "-") {
            Text(what, told.value, "");
        } else {
            Text(what, told.value, exact);
        }
    }

    bool isJson_;
};

void CompareDataset(Comparison& comparison, const std::string& name, const ToldDataset& told,
                    const TrueProperties& exact) {
    comparison.Text(name + " type", told.type, exact.at("type").value);
    comparison.Size(name + " used", told.used, exact.at("used").value);
    if (told.type != "snapshot") {
        comparison.Size(name + " available", told.available, exact.at("available").value);
        comparison.Size(name + " usedByRefreservation", told.usedByRefreservation,
                        exact.at("usedbyrefreservation").value);
    }
    comparison.Properties(name, told.properties, exact, NamesOf<ZfsProperties>());
}

void CompareQuotas(Comparison& comparison, const std::string& dataset, bool isJson,
                   const std::map<std::string, ToldProperty>& quotas,
                   const std::map<std::string, std::string>& exact) {
    for (const auto& [name, quota] : quotas)
        if (exact.count(name) == 0)
            comparison.Wrong(dataset + " " + name, quota.value, "absent");
    for (const auto& [name, bytes] : exact) {
        const std::string what = dataset + " " + name;
        const auto found = quotas.find(name);
        if (found != quotas.end()) {
            comparison.Size(what, BytesOf(found->second.value), bytes);
            if (!found->second.source.empty())
                comparison.LeftOut("the source of a quota is the column behind it");
        } else {
            comparison.Text(what, isJson ? "0" : "nothing", bytes == "-" ? "0" : bytes);
        }
    }
}

void Append(std::map<std::string, std::string>& sections, const Device& device) {
    std::string& text = sections[device.section];
    text += device.name + " " + device.type + ":";
    for (const std::string& member : device.members)
        text += " " + member;
    text += "; ";
}

void CompareDevices(Comparison& comparison, const std::string& pool,
                    const std::vector<Device>& told, const std::vector<Device>& exact) {
    std::map<std::string, std::string> toldSections;
    std::map<std::string, std::string> trueSections;
    for (const Device& device : told)
        Append(toldSections, device);
    for (Device device : exact) {
        if (device.section == "special" || device.section == "dedup") {
            comparison.LeftOut("the sections special and dedup are not read");
            continue;
        }
        if (device.type == "file") {
            comparison.LeftOut("a file counts as a disk");
            device.type = "disk";
        }
        Append(trueSections, device);
    }
    for (const char* section : {"devices", "logs", "caches", "metas", "spares"})
        comparison.Text(pool + " " + section, toldSections[section], trueSections[section]);
}

void ComparePool(Comparison& comparison, const std::string& name, const ToldPool& told,
                 const Truth& truth) {
    const TrueProperties& exact = truth.pools.at(name);
    comparison.Text(name + " state", told.state, exact.at("health").value);
    comparison.Size(name + " size", told.size, exact.at("size").value);
    comparison.Size(name + " allocated", told.allocated, exact.at("allocated").value);
    comparison.Properties(name, told.properties, exact, NamesOf<Zpool::Properties>());
    CompareDevices(comparison, name, told.devices, truth.devices.at(name));
}

/// The names of two maps have to be the same; calls `compare` for those that are.
template <typename ToldMap, typename TrueMap, typename CompareOne>
void CompareNames(Comparison& comparison, const ToldMap& told, const TrueMap& exact,
                  CompareOne&& compare) {
    for (const auto& entry : told)
        if (exact.count(entry.first) == 0)
            comparison.Wrong(entry.first, "present", "absent");
    for (const auto& entry : exact) {
        const auto found = told.find(entry.first);
        if (found == told.end())
            comparison.Wrong(entry.first, "absent", "present");
        else
            compare(entry.first, found->second);
    }
}

/// The devices below one of `zpool status -j`, at whatever depth.
void AddMembers(std::vector<std::string>& members, const Json& device) {
    if (!device.contains("vdevs"))
        return;
    for (const Json& child : device.at("vdevs")) {
        members.push_back(child.at("name"));
        AddMembers(members, child);
    }
}

std::vector<Device> DevicesOf(const std::string& pool) {
    const Json status = Json::parse(OutputOf("zpool status -j " + pool)).at("pools").at(pool);
    std::vector<Device> devices;
    const auto add = [&](const std::string& section, const Json& list) {
        for (const Json& entry : list) {
            Device device{section, entry.at("name"), entry.at("vdev_type"), {}};
            if (device.type == "raidz") // the digit is in the name alone
                device.type = device.name.substr(0, device.name.find('-'));
            AddMembers(device.members, entry);
            if (device.members.empty())
                device.members.push_back(device.name);
            devices.push_back(std::move(device));
        }
    };
    add("devices", status.at("vdevs").at(pool).at("vdevs"));
    for (const auto& [key, section] :
         {std::pair("logs", "logs"), std::pair("l2cache", "caches"), std::pair("spares", "spares"),
          std::pair("special", "special"), std::pair("dedup", "dedup")})
        if (status.contains(key))
            add(section, status.at(key));
    return devices;
}

} // namespace

Told TellFromRecords(const std::vector<ZfsDataset>& datasets, const std::vector<Zpool>& pools,
                     std::vector<std::string> warnings) {
    Told told;
    told.warnings = std::move(warnings);
    for (const ZfsDataset& dataset : datasets) {
        ToldDataset& record = told.datasets[dataset.name];
        record.type = ZfsDataset::TypeToString(dataset.type);
        record.used = dataset.used;
        record.available = dataset.avail;
        record.usedByRefreservation = dataset.usedrefreserv;
        ZfsProperties::ForEach(dataset.properties,
                               [&](const auto& property) { Add(record.properties, property); });
        for (const auto& property : dataset.properties.userProperties)
            Add(record.properties, property);
        for (const auto* quotas : {&dataset.properties.userQuotas, &dataset.properties.groupQuotas})
            for (const auto& quota : *quotas)
                Add(record.quotas, quota);
    }
    for (const Zpool& pool : pools) {
        ToldPool& record = told.pools[pool.name];
        record.state = Zpool::StateToString(pool.state);
        record.size = pool.size;
        record.allocated = pool.allocated;
        Zpool::Properties::ForEach(pool.properties,
                                   [&](const auto& property) { Add(record.properties, property); });
        const auto add = [&](const char* section, const std::vector<Zpool::VirtualDevice>& list) {
            for (const Zpool::VirtualDevice& device : list) {
                record.devices.push_back(
                    {section, device.name, Zpool::VirtualDeviceTypeToString(device.type), {}});
                for (const Zpool::DeviceReference& member : device.devices)
                    record.devices.back().members.push_back(member.name);
            }
        };
        add("devices", pool.devices);
        add("logs", pool.logs);
        add("caches", pool.caches);
        add("metas", pool.metas);
        add("spares", pool.spares);
    }
    return told;
}

Told TellFromJson(const Json& datasets, const Json& pools) {
    Told told;
    told.isJson = true;
    told.warnings = datasets.at("warnings").get<std::vector<std::string>>();
    for (const Json& dataset : datasets.at("datasets")) {
        ToldDataset& record = told.datasets[dataset.at("name")];
        record.type = dataset.at("type");
        record.used = dataset.at("used");
        record.available = NumberOrNull(dataset.at("available"));
        record.usedByRefreservation = NumberOrNull(dataset.at("usedByRefreservation"));
        Add(record.properties, dataset.at("properties"));
        Add(record.properties, dataset.at("userProperties"));
        Add(record.quotas, dataset.at("quotas"));
    }
    for (const Json& pool : pools.at("pools")) {
        ToldPool& record = told.pools[pool.at("name")];
        record.state = pool.at("state");
        record.size = pool.at("rawSize");
        record.allocated = pool.at("rawAllocated");
        Add(record.properties, pool.at("properties"));
        for (const char* section : {"devices", "logs", "caches", "metas", "spares"})
            for (const Json& device : pool.at(section))
                record.devices.push_back({section, device.at("name"), device.at("type"),
                                          device.at("devices").get<std::vector<std::string>>()});
    }
    return told;
}

Truth ReadProperties(const std::string& root, const std::string& pools) {
    Truth truth;
    for (const auto& row : RowsOf("zfs get -rHp -o name,property,value,source all " + root))
        truth.datasets[row.at(0)][row.at(1)] = {row.at(2), row.at(3)};
    for (const auto& row : RowsOf("zpool get -Hp -o name,property,value,source all " + pools))
        truth.pools[row.at(0)][row.at(1)] = {row.at(2), row.at(3)};
    return truth;
}

void ReadQuotasAndDevices(Truth& truth) {
    std::string filesystems;
    for (const auto& [name, properties] : truth.datasets)
        if (properties.at("type").value == "filesystem")
            filesystems += " " + name;
    for (const auto& row : RowsOf("for name in" + filesystems +
                                  "; do zfs userspace -Hpn -t all -o type,name,quota $name "
                                  "2>/dev/null | sed \"s|^|$name\t|\"; done"))
        truth.quotas[row.at(0)][(row.at(1) == "POSIX User" ? "userquota@" : "groupquota@") +
                                row.at(2)] = row.at(3);
    for (const auto& entry : truth.pools)
        truth.devices[entry.first] = DevicesOf(entry.first);
}

std::string Tally::Summary() const {
    unsigned count = 0;
    std::string limits;
    for (const auto& [limit, times] : leftOut) {
        count += times;
        limits += "\nlive:     " + std::to_string(times) + " " + limit;
    }
    return std::to_string(equal) + " equal, " + std::to_string(rounded) + " rounded, " +
           std::to_string(count) + " left out, " + std::to_string(wrong.size()) + " wrong" + limits;
}

Tally Compare(const Told& told, const Truth& truth) {
    Comparison comparison(told.isJson);
    CompareNames(comparison, told.datasets, truth.datasets,
                 [&](const std::string& name, const ToldDataset& dataset) {
                     CompareDataset(comparison, name, dataset, truth.datasets.at(name));
                     const auto quotas = truth.quotas.find(name);
                     CompareQuotas(comparison, name, told.isJson, dataset.quotas,
                                   quotas == truth.quotas.end()
                                       ? std::map<std::string, std::string>{}
                                       : quotas->second);
                 });
    CompareNames(comparison, told.pools, truth.pools,
                 [&](const std::string& name, const ToldPool& pool) {
                     ComparePool(comparison, name, pool, truth);
                 });
    return comparison.tally;
}

} // namespace live
