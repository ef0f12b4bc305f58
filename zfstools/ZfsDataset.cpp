#include "zfstools/ZfsDataset.h"

#include "zfstools/Executor.h"
#include "zfstools/internal/EnumTexts.h"
#include "zfstools/internal/GetRow.h"
#include "zfstools/internal/LoggedExecution.h"
#include "zfstools/logging.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace zfslib {
namespace {

const EnumTexts<ZfsDataset::Type>& TypeTexts() {
    static const EnumTexts<ZfsDataset::Type> texts{
        {ZfsDataset::filesystem, "filesystem"},
        {ZfsDataset::volume, "volume"},
        {ZfsDataset::snapshot, "snapshot"},
    };
    return texts;
}

constexpr const char* typeError = "Incorrect zfs dataset type conversion: ";

void Execute(const std::string& command) {
    ExecuteLogged(Executors::GetProcessExecutor(), command);
}

/// Sets a property to its value again, or inherits it again.
void RestoreProperty(const std::string& name, const Property<std::string>& property) {
    const PropSource& source = property.GetSource();
    if (source.type == PropSource::Type::Inherited && source.unparsed == 0)
        ZfsDataset::InheritProperty(name, property.GetName());
    else
        ZfsDataset::ModifyPoolProperty(name, property.GetName(), property.GetValue());
}

/// What both kinds of property are refused with: the text has always spoken of user properties.
[[noreturn]] void ThrowWrongProperty(const std::string& name,
                                     const Property<std::string>& property) {
    throw std::runtime_error("Failed to set user property [" + property.GetName() +
                             "] for ZFS dataset [" + name + "]");
}

} // namespace

ZfsDataset::ZfsDataset(ZfsDataset&& other) noexcept
    : name(std::exchange(other.name, std::string())), type(other.type), avail(other.avail),
      used(other.used), usedrefreserv(other.usedrefreserv),
      properties(std::move(other.properties)) {}

ZfsDataset& ZfsDataset::operator=(ZfsDataset&& other) noexcept {
    if (this == &other)
        return *this;
    name = std::exchange(other.name, std::string());
    type = other.type;
    avail = other.avail;
    used = other.used;
    usedrefreserv = other.usedrefreserv;
    properties = std::move(other.properties);
    return *this;
}

ZfsDataset::Type ZfsDataset::StringToType(const std::string& text) {
    return TypeTexts().Value(text, typeError);
}

std::string ZfsDataset::TypeToString(const Type& type) {
    return TypeTexts().Text(type, typeError);
}

std::optional<GetRow> ReadGetRow(const GetCells& line) {
    const auto& [cells, count] = line;
    if (count == 0)
        return std::nullopt;
    if (count < 4) {
        std::string text;
        for (std::size_t i = 0; i < count; ++i)
            text.append(cells[i]).append(" ");
        throw std::runtime_error("Failed to parse zfs get: raw size [" + std::to_string(count) +
                                 "], row [" + text + "]");
    }
    const auto& [dataset, name, value, source, from, parent] = cells;
    if (name == "creation") // "Sun Nov 22 20:59 2026": its words would be taken for a source
        return std::nullopt;
    if (count == 4)
        return GetRow{name, value, source, {}};
    if (source != "inherited")
        return std::nullopt;
    if (count < 6)
        throw std::runtime_error(
            "Failed to parse an inherited section of ZFS properties: parent not found.");
    return GetRow{name, value, source, parent};
}

std::string ZfsDataset::ParseDatasetPropOutputRow(const std::vector<std::string>& row,
                                                  AuxPropValue& out) {
    GetCells line;
    line.count = std::min(row.size(), GetCells::most);
    std::copy_n(row.begin(), line.count, line.cells.begin());
    const std::optional<GetRow> parsed = ReadGetRow(line);
    if (!parsed)
        return {};
    out.value = parsed->value;
    out.source = parsed->source;
    out.inheritedFrom = parsed->inheritedFrom;
    return std::string(parsed->name);
}

void ZfsDataset::Mount(const std::string& name) {
    Execute("/usr/bin/env -i zfs mount " + name);
}

void ZfsDataset::MountLegacy(const std::string& name, const std::string& mountpoint) {
    Execute("/usr/bin/env -i mount -F zfs " + name + " " + mountpoint);
}

void ZfsDataset::Unmount(const std::string& name) {
    const CommandExecutor executor = Executors::GetProcessExecutor();
    const std::string command = "/usr/bin/env -i zfs unmount -f " + name;
    _log.dbg("Execute command: [%1]", command);
    std::string output;
    try {
        output = executor(command);
    } catch (const std::exception& error) {
        if (std::string_view(error.what()).find("not currently mounted") == std::string_view::npos)
            throw;
    }
    _log.dbg("Command output: [%1]", output);
}

void ZfsDataset::InheritProperty(std::string name, std::string property) {
    Execute("/usr/bin/env -i zfs inherit " + property + " " + name);
}

void ZfsDataset::ModifyPoolProperty(std::string name, std::string property, std::string value) {
    Execute("/usr/bin/env -i zfs set " + property + "=" + value + " " + name);
}

void ZfsDataset::SetMountpoint(const std::string& name, const Property<std::string>& property) {
    if (property.GetName() != "mountpoint")
        ThrowWrongProperty(name, property);
    RestoreProperty(name, property);
}

void ZfsDataset::SetUserProperty(const std::string& name, const Property<std::string>& property) {
    if (property.GetName().find(':') == std::string::npos)
        ThrowWrongProperty(name, property);
    RestoreProperty(name, property);
}

std::string ZfsDataset::GetZfsPseudoDevice(const std::string& name) {
    const CommandExecutor executor = Executors::GetProcessExecutor();
    try {
        const std::string output =
            ExecuteLogged(executor, "/usr/bin/env -i ls -la /dev/zvol/dsk/" + name);
        return output.substr(output.find("/devices/pseudo/zfs")); // throws when it is not there
    } catch (const std::exception& error) {
        _log.dbg("Error: %1", error.what());
        _log.dbg("DevNode will be replaced on stub");
        return "pseudo@zfs";
    }
}

} // namespace zfslib
