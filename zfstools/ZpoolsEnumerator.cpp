#include "zfstools/ZpoolsEnumerator.h"

#include "util/str.h"
#include "zfstools/TextTable.h"
#include "zfstools/Util.h"
#include "zfstools/internal/LoggedExecution.h"
#include "zfstools/logging.h"

#include <map>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace zfslib {
namespace {

using VirtualDevice = Zpool::VirtualDevice;
using VirtualDeviceType = Zpool::VirtualDeviceType;

bool Contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

/// The column at which the line's first word begins; a tab counts as one column.
std::size_t content_start(const std::string& line) {
    std::string_view rest = line;
    const std::string_view word = util::ConsumeWord(rest);
    if (word.empty())
        throw std::runtime_error("Empty line inappropriate!");
    return static_cast<std::size_t>(word.data() - line.data());
}

std::string FirstWord(const std::string& line, const char* errorWithoutWord) {
    std::string_view rest = line;
    const std::string_view word = util::ConsumeWord(rest);
    if (word.empty())
        throw std::runtime_error(errorWithoutWord);
    return std::string(word);
}

VirtualDeviceType TypeFromName(std::string_view name) {
    const auto startsWith = [name](std::string_view prefix) {
        return util::str_is_starts_with(name, prefix);
    };
    if (startsWith("mirror"))
        return VirtualDeviceType::Mirror;
    if (startsWith("raidz1"))
        return VirtualDeviceType::Raidz1;
    if (startsWith("raidz2"))
        return VirtualDeviceType::Raidz2;
    if (startsWith("raidz3"))
        return VirtualDeviceType::Raidz3;
    if (startsWith("raidz"))
        return VirtualDeviceType::Raidz;
    // Two slashes: an ordinary absolute path is a disk to the host's restore plans.
    if (startsWith("//"))
        return VirtualDeviceType::File;
    return VirtualDeviceType::Disk;
}

/// The identifier is given later, to all devices of a section at once.
void AddDevice(VirtualDevice& device, const std::string& name) {
    device.devices.push_back({{}, name});
}

void GiveIdentifiers(std::vector<VirtualDevice>& devices) {
    std::size_t count = 0;
    for (const VirtualDevice& device : devices)
        count += device.devices.size();
    const std::vector<guid::guid_t> identifiers = guid::guid_t::CreateNew(count);
    auto next = identifiers.begin();
    for (VirtualDevice& device : devices)
        for (Zpool::DeviceReference& reference : device.devices)
            reference.guid = *next++;
}

VirtualDevice DeviceFromName(const std::string& name) {
    VirtualDevice device{name, TypeFromName(name), {}};
    const bool isGroup =
        util::str_is_starts_with(name, "mirror") || util::str_is_starts_with(name, "raidz");
    if (!isGroup)
        AddDevice(device, name);
    return device;
}

/// The virtual devices of one section of the device table: those at the column of its first line;
/// what stands at any other column belongs to the one before it.
std::vector<VirtualDevice> ParseConfigSection(const std::vector<std::string>& lines) {
    std::vector<VirtualDevice> devices;
    if (lines.empty())
        return devices;
    const std::size_t base = content_start(lines.front());
    for (const std::string& line : lines) {
        const std::size_t column = content_start(line);
        const std::string name = FirstWord(line, "Failed to parse zpool. Line is empty.");
        if (column == base)
            devices.push_back(DeviceFromName(name));
        else
            AddDevice(devices.back(), name);
    }
    for (const VirtualDevice& device : devices)
        if (device.devices.empty())
            throw std::runtime_error("Error. Empty virtual device parsed in zpool.");
    GiveIdentifiers(devices);
    return devices;
}

Zpool::State ParseStateLine(const std::string& line) {
    const std::vector<std::string> words = util::split(line);
    if (words.size() != 2)
        throw std::runtime_error("Parse zpool state failed: " + line);
    return Zpool::StringToState(words[1]);
}

/// The record of one pool; a pool's data goes from here into the record by moves.
Zpool MakeZpool(const std::string& name, const std::string& size, const std::string& alloc,
                ZpoolEnumerator::Config&& config, Zpool::Properties&& properties) {
    Zpool pool;
    pool.size = ParseSpaceValue(size);
    pool.allocated = ParseSpaceValue(alloc);
    pool.name = name;
    pool.properties = std::move(properties);
    pool.state = config.state;
    pool.devices = std::move(config.devices);
    pool.logs = std::move(config.logs);
    pool.caches = std::move(config.caches);
    pool.metas = std::move(config.metas);
    pool.spares = std::move(config.spares);
    return pool;
}

} // namespace

std::vector<Zpool> ZpoolEnumerator::Enumerate(CommandExecutor executor) {
    const std::string output =
        ExecutePoolCommandLogged(executor, "/usr/bin/env -i zpool list -o name,size,alloc");
    return ExtractZpoolsFromOutput(output, executor);
}

std::vector<Zpool> ZpoolEnumerator::ExtractZpoolsFromOutput(const std::string& listOutput,
                                                            CommandExecutor executor) {
    std::vector<Zpool> pools;
    if (Contains(listOutput, "no pools available"))
        return pools;
    for (RowReader reader(listOutput, 1); reader.Next();) {
        const std::vector<std::string>& row = reader.Row();
        if (row.empty())
            continue;
        if (row.size() < 3)
            throw std::runtime_error("Failed to parse zpool output:\n" + listOutput);
        const std::string& name = row[0];

        _log.dbg("Prepare to execute zpool");
        const std::string statusOutput = executor("/usr/bin/env -i zpool status " + name);
        _log.dbg("%1", statusOutput);
        Config config;
        ParseZpoolConfig(statusOutput, config);

        _log.dbg("Prepare to execute zpool get");
        const std::string getOutput = executor("/usr/bin/env -i zpool get all " + name);
        _log.dbg("%1", getOutput);
        Zpool::Properties properties;
        ParseZpoolProperty(getOutput, properties);

        pools.push_back(MakeZpool(name, row[1], row[2], std::move(config), std::move(properties)));
    }
    return pools;
}

void ZpoolEnumerator::ParseZpoolConfig(const std::string& statusOutput, Config& config) {
    config.state = Zpool::State::Unavail;
    bool insideConfig = false;
    std::vector<std::string> configLines;
    for (std::string_view rest = statusOutput; !rest.empty();) {
        const std::string line(util::ConsumeLine(rest));
        if (line.empty())
            continue;
        _log.dbg("Zfs pool output line: %1", line);
        if (Contains(line, "pool:")) {
            insideConfig = false;
        } else if (Contains(line, "state:")) {
            config.state = ParseStateLine(line);
            insideConfig = false;
        } else if (Contains(line, "config:")) {
            insideConfig = true;
        } else {
            if (Contains(line, "errors:"))
                insideConfig = false;
            if (insideConfig)
                configLines.push_back(line);
        }
    }
    ParseZpoolComponents(configLines, config);
}

void ZpoolEnumerator::ParseZpoolComponents(std::vector<std::string>& lines, Config& config) {
    if (lines.empty())
        return;
    if (Contains(lines.front(), "NAME") && Contains(lines.front(), "STATE"))
        lines.erase(lines.begin());
    if (lines.empty())
        return;

    // The first line is the pool's own; what stands at its column opens a section.
    const std::size_t base = content_start(lines.front());
    std::map<std::string, std::vector<VirtualDevice>> sections;
    std::string sectionKey = "zpool";
    std::vector<std::string> pending;
    for (auto line = std::next(lines.begin()); line != lines.end(); ++line) {
        if (content_start(*line) != base) {
            pending.push_back(*line);
            continue;
        }
        std::string nextKey = FirstWord(*line, "Failed parse zpool output. Line is empty");
        sections[sectionKey] = ParseConfigSection(pending);
        pending.clear();
        sectionKey = std::move(nextKey);
    }
    if (!pending.empty())
        sections[sectionKey] = ParseConfigSection(pending);

    config.devices = std::move(sections["zpool"]);
    const auto takeSection = [&sections](const char* key, std::vector<VirtualDevice>& target) {
        const auto section = sections.find(key);
        if (section == sections.end())
            return false;
        target = std::move(section->second);
        return true;
    };
    takeSection("logs", config.logs);
    if (!takeSection("cache", config.caches))
        takeSection("caches", config.caches);
    takeSection("metas", config.metas);
    takeSection("spares", config.spares);
}

void ZpoolEnumerator::ParseZpoolProperty(const std::string& getOutput,
                                         Zpool::Properties& properties) {
    AuxPropValues rows;
    for (RowReader reader(getOutput, 1); reader.Next();) {
        const std::vector<std::string>& row = reader.Row();
        if (row.empty())
            continue;
        if (row.size() != 4)
            throw std::runtime_error("Failed to parse zpool get all");
        rows[row[1]] = AuxPropValue{row[2], row[3], ""};
    }
    Zpool::Properties::ForEach(properties, [&rows](auto& property) { property.SetSilent(rows); });
}

Zpool ZpoolEnumerator::ParseZpoolFields(const std::string& name, const std::string& size,
                                        const std::string& alloc, const Config& config,
                                        const Zpool::Properties& properties) {
    return MakeZpool(name, size, alloc, Config(config), Zpool::Properties(properties));
}

} // namespace zfslib
