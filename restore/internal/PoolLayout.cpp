#include "restore/internal/PoolLayout.h"

#include "util/str.h"

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <utility>

namespace zfslib::restore::internal {
namespace {

using Kind = Device::Kind;
using Use = Device::Use;

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

std::string_view FolderOf(std::string_view path) {
    return path.substr(0, path.rfind('/'));
}

/// The path without the partition that the pool made on a whole disk for itself.
std::string PathGiven(const Device& device) {
    if (!device.isWholeDisk.value_or(false) || device.path.front() != '/')
        return device.path;
    return std::string(FolderOf(device.path)) + "/" +
           device.name.substr(device.name.rfind('/') + 1);
}

/// The link that udev made for the disk or partition. The tool gives that of the data's partition.
std::string LinkById(const Device& device) {
    constexpr std::string_view partition = "-part1";
    std::string link = "/dev/disk/by-id/" + device.deviceId;
    if (device.isWholeDisk.value_or(false) && util::str_is_finishes_with(link, partition))
        link.resize(link.size() - partition.size());
    return link;
}

LayoutDisk DiskOf(const Device& device, const PlanOptions& options, std::string_view system) {
    LayoutDisk disk;
    disk.device = &device;
    const std::string given = PathGiven(device);
    const bool isMissing = util::str_is_integer(device.name); // it is called by its number
    disk.whatToName = isMissing && !given.empty() ? given : device.name;
    for (const std::string& name : {device.name, device.path, given, device.deviceId})
        if (const auto named = options.disks.find(name);
            !name.empty() && named != options.disks.end()) {
            disk.namedBy = name;
            disk.word = named->second;
            // Solaris finds its disks by their short names alone.
            if (system != "SunOS" && !disk.word.empty() && disk.word.front() != '/')
                disk.word.insert(0, "/dev/");
            return disk;
        }
    const bool isBelowDev = util::str_is_starts_with(device.path, "/dev/");
    if (isMissing && isBelowDev)
        return disk; // nobody can tell whether the pool had the whole disk
    // Names like sda go to whatever disk is found first; what a link is called by stays.
    if (!device.deviceId.empty() && isBelowDev && FolderOf(device.path) == "/dev")
        disk.word = LinkById(device);
    else
        disk.word = given;
    return disk;
}

/// Whichever device is to stay: the new one of two while one replaces the other, and the one that a
/// spare stands in for.
const Device& Intended(const Device& device) {
    if (device.children.empty())
        return device;
    if (device.kind == Kind::Replacing)
        return Intended(device.children.back());
    if (device.kind == Kind::Spare)
        return Intended(device.children.front());
    return device;
}

/// The order in which `zpool create` takes them: no word leads back to normal devices.
unsigned Rank(Use use) {
    switch (use) {
    case Use::Normal:
        return 0;
    case Use::Special:
        return 1;
    case Use::Dedup:
        return 2;
    case Use::Log:
        return 3;
    case Use::Cache:
        return 4;
    case Use::Spare:
        return 5;
    case Use::Meta:
    case Use::Other:
        break;
    }
    return 6;
}

} // namespace

PoolLayout LayoutOf(const PoolState& pool, const PlanOptions& options, std::string_view system) {
    PoolLayout layout;
    for (const Device& top : pool.devices) {
        const Device& device = Intended(top);
        if (device.kind == Kind::Other && device.children.empty())
            continue;
        LayoutGroup group;
        group.device = &device;
        group.ashift = top.ashift;
        group.name = device.name;
        group.word = device.word;
        group.use = top.use;
        if (device.children.empty())
            group.disks.push_back(DiskOf(device, options, system));
        for (const Device& child : device.children)
            group.disks.push_back(DiskOf(Intended(child), options, system));
        const bool isOdd =
            device.word.empty() != device.children.empty() ||
            std::any_of(group.disks.begin(), group.disks.end(),
                        [](const LayoutDisk& disk) { return !disk.device->children.empty(); });
        if (isOdd || Rank(group.use) > Rank(Use::Spare))
            layout.doubt = "nobody knows what makes a device like " + top.name;
        layout.groups.push_back(std::move(group));
    }
    std::stable_sort(
        layout.groups.begin(), layout.groups.end(),
        [](const LayoutGroup& a, const LayoutGroup& b) { return Rank(a.use) < Rank(b.use); });
    return layout;
}

std::vector<std::string> FoldersOf(const PoolLayout& layout) {
    std::vector<std::string> folders;
    for (const LayoutGroup& group : layout.groups)
        for (const LayoutDisk& disk : group.disks) {
            const std::string folder(FolderOf(disk.word));
            if (!folder.empty() && !util::str_is_starts_with(disk.word, "/dev/") &&
                std::find(folders.begin(), folders.end(), folder) == folders.end())
                folders.push_back(folder);
        }
    return folders;
}

std::string WholeDisk(const std::string& path) {
    constexpr std::string_view part = "-part";
    std::size_t end = path.size();
    while (end > 0 && IsDigit(path[end - 1]))
        --end;
    if (end == path.size() || end == 0 || !util::str_is_starts_with(path, "/dev/"))
        return path;
    if (util::str_is_finishes_with(path.substr(0, end), part))
        return path.substr(0, end - part.size());
    // nvme0n1p1, c1t0d0s0
    if ((path[end - 1] == 'p' || path[end - 1] == 's') && IsDigit(path[end - 2]))
        return path.substr(0, end - 1);
    if (util::str_is_starts_with(path, "/dev/sd") || util::str_is_starts_with(path, "/dev/vd") ||
        util::str_is_starts_with(path, "/dev/xvd") || util::str_is_starts_with(path, "/dev/hd"))
        return path.substr(0, end);
    return path;
}

} // namespace zfslib::restore::internal
