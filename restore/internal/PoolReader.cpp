#include "restore/internal/PoolReader.h"

#include "exc/exc.h"
#include "restore/internal/PoolDevices.h"
#include "restore/internal/PropertyRows.h"
#include "util/ShellWord.h"
#include "util/str.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace zfslib::restore::internal {
namespace {

using util::ShellOperand;
using util::ShellWord;

class PoolReader {
public:
    PoolReader(const ToolsState& tools, const StateCommands& commands, StateTexts& texts)
        : tools_(tools), commands_(commands), texts_(texts) {}

    PoolState Read(const std::string& name) {
        PoolState pool;
        pool.name = texts_.Keep(name);
        const CommandUsages& usages = tools_.zpoolUsage;
        if (TakesOption(usages, "get", 'H') && TakesOption(usages, "get", 'p')) {
            std::vector<ObjectRows> rows = ReadPoolRows(name, " " + ShellWord(name));
            if (rows.size() != 1)
                throw StateMoved("the pool went away");
            pool.properties = std::move(rows.front().properties);
        } else {
            pool.properties = ReadPaddedProperties(name);
        }
        pool.guid = ValueOf(pool.properties, "guid");
        pool.altroot = ValueOf(pool.properties, "altroot");
        pool.health = ValueOf(pool.properties, "health");
        ReadPoolDevices(pool);
        if (pool.health != "ONLINE" && pool.health != "DEGRADED")
            pool.doubts.push_back("the pool is " + std::string(pool.health) +
                                  ": properties that show \"-\" may have been set");
        return pool;
    }

private:
    /// Rows of `zpool get`, with the skeleton read first.
    std::vector<ObjectRows> ReadPoolRows(const std::string& pool, const std::string& operands) {
        const std::string skeleton =
            commands_.Run("zpool get -Hp -o name,property,source all" + operands);
        const std::string_view values = texts_.Keep(
            commands_.RunAgain("zpool get -Hp -o name,property,value,source all" + operands));
        const auto ask = [&](std::string_view object, std::string_view property,
                             std::string_view column) {
            std::string line = "zpool get -Hp -o ";
            line.append(column).append(" ").append(ShellOperand(property)).append(" ") +=
                ShellWord(pool);
            if (object != pool)
                line += " " + ShellWord(object);
            return commands_.RunAgain(line);
        };
        return ReadPropertyRows(skeleton, values, false, ask, {}, texts_);
    }

    /// `zpool get all` of a tool that pads columns with blanks: the pool, the property, the value,
    /// which may have blanks in it, and the source.
    std::vector<PropertyValue> ReadPaddedProperties(const std::string& pool) {
        const std::string text = commands_.Run("zpool get all " + ShellWord(pool));
        std::vector<PropertyValue> properties;
        std::string_view rest = text;
        while (!rest.empty()) {
            std::string_view line = util::ConsumeLine(rest);
            if (!util::str_is_starts_with(line, pool + " "))
                continue;
            line.remove_prefix(pool.size());
            const std::string_view property = util::ConsumeWord(line);
            const std::size_t end = line.find_last_not_of(' ');
            const std::size_t blank = line.find_last_of(' ', end);
            if (property.empty() || end == std::string_view::npos ||
                blank == std::string_view::npos)
                throw exc::CRuntimeExc("Cannot read the line [%1] of `zpool get all`.", line);
            const std::string_view source = line.substr(blank + 1, end - blank);
            std::string_view value = line.substr(0, blank);
            value.remove_prefix(std::min(value.find_first_not_of(' '), value.size()));
            value = value.substr(0, value.find_last_not_of(' ') + 1);
            const PropertySource kind = source == "local"     ? PropertySource::Local
                                        : source == "default" ? PropertySource::Default
                                                              : PropertySource::None;
            properties.push_back(texts_.Make(property, value, std::nullopt, texts_.Origin(kind)));
        }
        return properties;
    }

    void ReadPoolDevices(PoolState& pool) {
        const CommandUsages& usages = tools_.zpoolUsage;
        const std::string name(pool.name);
        const auto status = [&](char option) {
            if (option != '\0' && !TakesOption(usages, "status", option))
                return std::string();
            const std::string words = option == '\0' ? std::string() : std::string(" -") + option;
            return commands_.Run("zpool status" + words + " " + ShellWord(name));
        };
        const std::string byName = status('\0');
        const std::string byPath = status('P');
        const std::string byGuid = status('g');
        pool.devices = ReadDevices(ReadStatusRows(byName), ReadStatusRows(byPath),
                                   ReadStatusRows(byGuid), tools_.system);
        if (tools_.AtLeast(2, 2))
            ReadDeviceProperties(name, pool.devices);
        NoteDevices(pool.devices, pool.doubts);
    }

    void ReadDeviceProperties(const std::string& pool, std::vector<Device>& devices) {
        std::unordered_map<std::string_view, const ObjectRows*> byGuid;
        const std::vector<ObjectRows> rows =
            ReadPoolRows(pool, " " + ShellWord(pool) + " all-vdevs");
        for (const ObjectRows& device : rows)
            byGuid.emplace(ValueOf(device.properties, "guid"), &device);
        Complete(devices, byGuid, true);
    }

    static void Complete(std::vector<Device>& devices,
                         const std::unordered_map<std::string_view, const ObjectRows*>& byGuid,
                         bool areTopLevel) {
        for (Device& device : devices) {
            Complete(device.children, byGuid, false);
            const auto found = byGuid.find(device.guid);
            if (device.guid.empty() || found == byGuid.end())
                continue; // spares and caches have none
            const std::vector<PropertyValue>& properties = found->second->properties;
            device.deviceId = ValueOf(properties, "devid");
            device.physicalPath = ValueOf(properties, "physpath");
            const auto ashift = NumberOf(ValueOf(properties, "ashift"));
            if (areTopLevel && ashift.value_or(0) != 0)
                device.ashift = static_cast<unsigned>(*ashift);
            // The tool calls local what the pool notes of itself, too.
            for (const PropertyValue& property : properties)
                if (property.Source() == PropertySource::Local &&
                    property.Name() != "org.zfsonlinux:allocation_bias")
                    device.properties.push_back(property);
        }
    }

    /// What is of the moment, and not how the pool is meant to be.
    static void NoteDevices(const std::vector<Device>& devices, std::vector<std::string>& doubts) {
        for (const Device& device : devices) {
            NoteDevices(device.children, doubts);
            if (device.kind == Device::Kind::Replacing)
                doubts.push_back("a device is being replaced: " + device.name);
            else if (device.kind == Device::Kind::Spare)
                doubts.push_back("a spare stands in for a device: " + device.name);
            else if (device.children.empty() && device.state != "ONLINE" &&
                     device.state != "AVAIL" && device.state != "INUSE" && !device.state.empty())
                doubts.push_back(device.name + " is " + device.state);
        }
    }

    const ToolsState& tools_;
    const StateCommands& commands_;
    StateTexts& texts_;
};

} // namespace

PoolState ReadPool(const std::string& name, const ToolsState& tools, const StateCommands& commands,
                   StateTexts& texts) {
    return PoolReader(tools, commands, texts).Read(name);
}

} // namespace zfslib::restore::internal
