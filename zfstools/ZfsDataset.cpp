#include "zfstools/ZfsDataset.h"

#include "zfstools/Executor.h"
#include "zfstools/internal/EnumTexts.h"
#include "zfstools/internal/LoggedExecution.h"
#include "zfstools/logging.h"

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

std::string ZfsDataset::ParseDatasetPropOutputRow(const std::vector<std::string>& row,
                                                  AuxPropValue& out) {
    if (row.empty())
        return {};
    if (row.size() < 4) {
        std::string cells;
        for (const std::string& cell : row)
            cells += cell + " ";
        throw std::runtime_error("Failed to parse zfs get: raw size [" +
                                 std::to_string(row.size()) + "], row [" + cells + "]");
    }
    const std::string& name = row[1];
    const std::string& source = row[3];
    if (name == "creation") // "Sun Nov 22 20:59 2026": its words would be taken for a source
        return {};
    if (row.size() == 4) {
        out.value = row[2];
        out.source = source;
        out.inheritedFrom.clear();
        return name;
    }
    if (source != "inherited")
        return {};
    if (row.size() < 6)
        throw std::runtime_error(
            "Failed to parse an inherited section of ZFS properties: parent not found.");
    out.value = row[2];
    out.source = source;
    out.inheritedFrom = row[5];
    return name;
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
