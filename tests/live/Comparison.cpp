#include "tests/live/Comparison.h"

#include "tests/live/Host.h"
#include "util/str.h"
#include "zfstools/ZfsProperties.h"
#include "zfstools/Zpool.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>
#include <set>
#include <type_traits>

namespace live {
namespace {

using inspect::Json;
using zfslib::ZfsProperties;
using zfslib::Zpool;

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

    /// `told` is a number, or as the tools print it.
    void Size(const std::string& what, const Json& told, const std::string& exact) {
        const std::optional<double> size = told.is_string()   ? BytesOf(told)
                                           : told.is_number() ? std::optional<double>(told)
                                                              : std::nullopt;
        const std::optional<double> bytes = BytesOf(exact);
        if (size && bytes && *size == *bytes)
            ++tally.equal;
        else if (size && bytes && IsRounded(*size, *bytes))
            ++tally.rounded;
        else
            Wrong(what, told.dump(), exact);
    }

    /// The names of two maps have to be the same; calls `compare` for those that are.
    template <typename TrueMap, typename CompareOne>
    void Names(const Json& told, const TrueMap& exact, CompareOne&& compare) {
        for (const auto& entry : told.items())
            if (exact.count(entry.key()) == 0)
                Wrong(entry.key(), "present", "absent");
        for (const auto& [name, one] : exact)
            if (told.contains(name))
                compare(name, told.at(name), one);
            else
                Wrong(name, "absent", "present");
    }

    /// The properties that the library has members for, and the user properties.
    void Properties(const std::string& object, const Json& told, const TrueProperties& exact,
                    const NativeNames& native) {
        for (const auto& entry : told.items())
            if (exact.count(entry.key()) == 0)
                Wrong(object + " " + entry.key(), entry.value().dump(), "absent");
        for (const auto& [name, property] : exact) {
            const bool isUser = name.find(':') != std::string::npos;
            if (!isUser && native.all.count(name) == 0)
                continue;
            const std::string what = object + " " + name;
            if (!told.contains(name)) {
                if (util::split(property.value).size() > 1)
                    LeftOut("a value with blanks is skipped");
                else
                    Wrong(what, "nothing", property.value);
                continue;
            }
            const Json& found = told.at(name);
            const Json& parent = found.at("inheritedFrom");
            Text(what + " source",
                 (found.at("source").is_null() ? "" : found.at("source").get<std::string>()) +
                     (parent.is_null() ? "" : " from " + parent.get<std::string>()),
                 property.source);
            if (isUser)
                UserValue(what, found.at("value"), property.value);
            else
                NativeValue(what, name, found, property.value, native);
        }
    }

    Tally tally;

private:
    void UserValue(const std::string& what, const std::string& told, const std::string& exact) {
        const std::vector<std::string> words = util::split(exact);
        if (exact == "-" && told.empty())
            LeftOut("\"-\" is no value");
        else if (words.size() == 1 && words[0] != exact && told == words[0])
            LeftOut("blanks at the ends of a value are lost");
        else if (!IsUtf8(exact) && told.find("\xEF\xBF\xBD") != std::string::npos)
            LeftOut("JSON holds no bytes that are not UTF-8");
        else
            Text(what, told, exact);
    }

    void NativeValue(const std::string& what, const std::string& name, const Json& told,
                     const std::string& exact, const NativeNames& native) {
        static const std::map<std::string, std::string> refused = {
            {"encryption", "aes-256-gcm"}, {"aclmode", "restricted"}, {"version", "-"}};
        const std::string value = told.at("value");
        if (told.at("failed")) {
            const auto word = refused.find(name);
            if (word != refused.end() && word->second == exact && value == exact)
                LeftOut("a word that is not known is told as failed");
            else
                Wrong(what, value + " (failed)", exact);
        } else if (name == "dedupratio") {
            Text(what, value, exact + "0000");
        } else if (IsSize(name)) {
            if (told.contains("bytes"))
                Size(what + " bytes", told.at("bytes"), exact);
            Size(what, value, exact);
        } else if (native.flags.count(name) != 0 && name != "mounted" && exact != "on" &&
                   exact != "off") {
            if (value == "off")
                LeftOut("of a property of on and off, every other word is off");
            else
                Wrong(what, value, exact);
        } else {
            Text(what, value, exact == "-" ? "" : exact);
        }
    }
};

/// Its quotas "none" are not told.
void CompareQuotas(Comparison& comparison, const std::string& dataset, const Json& told,
                   const std::map<std::string, std::string>& exact) {
    for (const auto& entry : told.items())
        if (exact.count(entry.key()) == 0)
            comparison.Wrong(dataset + " " + entry.key(), entry.value().dump(), "absent");
    for (const auto& [name, bytes] : exact) {
        const std::string what = dataset + " " + name;
        if (told.contains(name))
            comparison.Size(what, told.at(name).at("value"), bytes);
        else
            comparison.Text(what, "0", bytes == "-" ? "0" : bytes);
    }
}

/// The devices of a pool, in the order that they are told in, as they stand in the Truth.
std::string DevicesOf(const Json& pool) {
    std::string lines;
    for (const char* section : {"devices", "logs", "caches", "metas", "spares"})
        for (const Json& device : pool.at(section)) {
            lines += section + (" " + device.at("name").get<std::string>()) + " " +
                     device.at("type").get<std::string>() + ":";
            for (const std::string member : device.at("devices"))
                lines += " " + member;
            lines += "\n";
        }
    return lines;
}

/// The devices below one of `zpool status -j`, at whatever depth, each with a blank before it.
std::string MembersOf(const Json& device) {
    std::string members;
    if (device.contains("vdevs"))
        for (const Json& child : device.at("vdevs"))
            members += " " + child.at("name").get<std::string>() + MembersOf(child);
    return members;
}

void ReadDevices(Truth& truth, const std::string& pool) {
    const Json status = Json::parse(OutputOf("zpool status -j " + pool)).at("pools").at(pool);
    const auto add = [&](const std::string& section, const Json& list) {
        for (const Json& entry : list) {
            const std::string name = entry.at("name");
            std::string type = entry.at("vdev_type");
            if (type == "raidz") // the digit is in the name alone
                type = name.substr(0, name.find('-'));
            if (type == "file") {
                ++truth.leftOut["a file counts as a disk"];
                type = "disk";
            }
            const std::string members = MembersOf(entry);
            truth.devices[pool] += section + " " + name + " " + type + ":" +
                                   (members.empty() ? " " + name : members) + "\n";
        }
    };
    add("devices", status.at("vdevs").at(pool).at("vdevs"));
    for (const auto& [key, section] :
         {std::pair("logs", "logs"), std::pair("l2cache", "caches"), std::pair("spares", "spares")})
        if (status.contains(key))
            add(section, status.at(key));
    for (const char* unread : {"special", "dedup"})
        if (status.contains(unread))
            truth.leftOut["the sections special and dedup are not read"] +=
                static_cast<unsigned>(status.at(unread).size());
}

Json ByName(const Json& list) {
    Json named = Json::object();
    for (const Json& item : list)
        named[item.at("name")] = item;
    return named;
}

} // namespace

Json ByName(const Json& datasets, const Json& pools) {
    Json told = {{"datasets", ByName(datasets.at("datasets"))},
                 {"pools", ByName(pools.at("pools"))},
                 {"warnings", datasets.at("warnings")}};
    for (Json& dataset : told["datasets"]) {
        dataset["properties"] = ByName(dataset["properties"]);
        dataset["properties"].update(ByName(dataset["userProperties"]));
        dataset["quotas"] = ByName(dataset["quotas"]);
    }
    for (Json& pool : told["pools"])
        pool["properties"] = ByName(pool["properties"]);
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
        ReadDevices(truth, entry.first);
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

Tally Compare(const Json& told, const Truth& truth) {
    Comparison comparison;
    comparison.tally.leftOut = truth.leftOut;
    comparison.Names(
        told.at("datasets"), truth.datasets,
        [&](const std::string& name, const Json& dataset, const auto& exact) {
            comparison.Text(name + " type", dataset.at("type"), exact.at("type").value);
            const std::size_t divider = name.find_last_of("/@");
            comparison.Text(name + " parent", dataset.at("parent").dump(),
                            divider == std::string::npos ? "null"
                                                         : Json(name.substr(0, divider)).dump());
            for (const auto& [size, property] :
                 {std::pair("used", "used"), std::pair("available", "available"),
                  std::pair("usedByRefreservation", "usedbyrefreservation")})
                if (dataset.at("type") != "snapshot" || property == std::string("used"))
                    comparison.Size(name + " " + size, dataset.at(size), exact.at(property).value);
            comparison.Properties(name, dataset.at("properties"), exact, NamesOf<ZfsProperties>());
            const auto quotas = truth.quotas.find(name);
            CompareQuotas(comparison, name, dataset.at("quotas"),
                          quotas == truth.quotas.end() ? std::map<std::string, std::string>{}
                                                       : quotas->second);
        });
    comparison.Names(
        told.at("pools"), truth.pools,
        [&](const std::string& name, const Json& pool, const auto& exact) {
            comparison.Text(name + " state", pool.at("state"), exact.at("health").value);
            comparison.Size(name + " size", pool.at("rawSize"), exact.at("size").value);
            comparison.Size(name + " allocated", pool.at("rawAllocated"),
                            exact.at("allocated").value);
            const double ratio = util::StringToDouble(exact.at("dedupratio").value);
            const auto size =
                static_cast<std::uint64_t>(std::ceil(ratio) * pool.at("rawSize").get<double>());
            const auto allocated =
                static_cast<std::uint64_t>(ratio * pool.at("rawAllocated").get<double>());
            const Json corrected = {size, allocated, size - allocated, nullptr};
            comparison.Text(name + " corrected",
                            Json{pool.at("size"), pool.at("allocated"), pool.at("available"),
                                 pool.at("spaceError")}
                                .dump(),
                            corrected.dump());
            comparison.Properties(name, pool.at("properties"), exact, NamesOf<Zpool::Properties>());
            comparison.Text(name + " devices", DevicesOf(pool), truth.devices.at(name));
        });
    return comparison.tally;
}

} // namespace live
