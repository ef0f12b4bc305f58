#include "executors/internal/MountTable.h"

#include "util/str.h"

#include <algorithm>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <utility>
#include <vector>

namespace zfslib::executors::internal {
namespace {

struct Mount {
    std::string point;
    std::string type;
    std::string source;
};

/// A mount of Linux, which knows what it is mounted on.
struct LinuxMount {
    Mount mount;
    std::string_view id;
    std::string_view parent; ///< its own id, or one that is not there, for the root
};

/// What cuts a row of `df -Z` into cells.
bool IsDivider(char c) {
    return util::IsSpace(c) || c == '(' || c == ')';
}

constexpr unsigned octal = 8;

/// The character that "\040" at the front of the text stands for.
std::optional<char> OctalCharacter(std::string_view text) {
    constexpr std::size_t length = 4;
    if (text.size() < length || text.front() != '\\')
        return std::nullopt;
    unsigned code = 0;
    for (const char digit : text.substr(1, length - 1)) {
        if (digit < '0' || digit > '7')
            return std::nullopt;
        code = code * octal + static_cast<unsigned>(digit - '0');
    }
    return static_cast<char>(code);
}

/// The text with each "\040" as the character that it stands for.
std::string Decode(std::string_view text) {
    std::string decoded;
    while (!text.empty()) {
        const std::optional<char> character = OctalCharacter(text);
        decoded += character.value_or(text.front());
        text.remove_prefix(character ? 4 : 1);
    }
    return decoded;
}

/// A name of a file system as one cell.
std::string Encode(std::string_view text) {
    std::string encoded;
    for (const char c : text) {
        const auto code = static_cast<unsigned char>(c);
        if (IsDivider(c))
            encoded += "\\" + util::str(code / octal / octal) + util::str(code / octal % octal) +
                       util::str(code % octal);
        else
            encoded += c;
    }
    return encoded;
}

/// The directory above; empty when there is none.
std::string_view DirectoryAbove(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    if (path == "/" || slash == std::string_view::npos)
        return {};
    return path.substr(0, slash == 0 ? 1 : slash);
}

/// What is mounted at a directory or, if nothing is, at the next one above it where something is;
/// `mounts` has the mount points for keys. `mounts.end()` when there is no such directory.
template <typename Mounts>
auto FindHolder(const Mounts& mounts, std::string_view directory) {
    auto holder = mounts.end();
    for (; holder == mounts.end() && !directory.empty(); directory = DirectoryAbove(directory))
        holder = mounts.find(directory);
    return holder;
}

/// What the row says is mounted. What is not ZFS must not be taken for a dataset: the source of a
/// tmpfs is whatever word the administrator chose.
std::string Filesystem(const Mount& mount) {
    const bool isPath = mount.source.find('/') == 0 || mount.source.find(":/") != std::string::npos;
    return Encode(mount.type == "zfs" || isPath ? mount.source : mount.type);
}

/// What two different file systems that cannot be told apart are called.
std::string Either(const std::string& a, const std::string& b) {
    if (a == b)
        return a;
    const std::string pool = a.substr(0, a.find('/'));
    return !pool.empty() && pool == b.substr(0, b.find('/')) ? pool + "/?" : "?";
}

/// The rows of `df -Z`: mount point and file system.
class Rows {
public:
    explicit Rows(const std::vector<Mount>& mounts) {
        for (const Mount& mount : mounts)
            if (CellOf(mount) == mount.point)
                filesystems_[mount.point] = Filesystem(mount);
        AddCut(mounts);
    }

    [[nodiscard]] std::string Format() const {
        std::string text;
        for (const auto& [point, filesystem] : filesystems_)
            text += Padded(point, 19) + "(" + Padded(filesystem, 18) +
                    "):       - blocks        - files\n";
        return text;
    }

private:
    using RowMap = std::map<std::string, std::string, std::less<>>;

    static std::string CellOf(const Mount& mount) {
        const auto end = std::find_if(mount.point.begin(), mount.point.end(), IsDivider);
        return {mount.point.begin(), end};
    }

    static std::string Padded(std::string text, std::size_t columns) {
        text.resize(std::max(text.size(), columns), ' ');
        return text;
    }

    void AddCut(const std::vector<Mount>& mounts) {
        RowMap cut;
        for (const Mount& mount : mounts) {
            const std::string cell = CellOf(mount);
            if (cell.back() == '/' || filesystems_.count(cell) != 0)
                continue;
            const auto [row, isNew] = cut.emplace(cell, Filesystem(mount));
            if (!isNew)
                row->second = Either(row->second, Filesystem(mount));
        }
        // "/srv/Data", for "/srv/Data Store", must not count for a directory of that name.
        RowMap directories;
        for (const auto& row : cut) {
            const auto holder = FindHolder(filesystems_, row.first);
            if (holder != filesystems_.end())
                directories.emplace(row.first + "/", holder->second);
        }
        filesystems_.merge(cut);
        filesystems_.merge(directories);
    }

    RowMap filesystems_;
};

/// The fields of a line of mountinfo: 36 35 98:0 /mnt1 /mnt2 rw master:1 - ext3 /dev/root rw
LinuxMount ParseMountinfoLine(std::string_view line) {
    constexpr std::string_view separator = " - "; // ends the optional fields
    constexpr std::size_t pointField = 4;
    const auto field = [](std::string_view& rest) {
        const std::string_view text = rest.substr(0, rest.find(' '));
        rest.remove_prefix(std::min(text.size() + 1, rest.size()));
        return text;
    };
    LinuxMount mount;
    std::string_view rest = line;
    mount.id = field(rest);
    mount.parent = field(rest);
    for (std::size_t i = 2; i < pointField; ++i)
        field(rest);
    mount.mount.point = Decode(field(rest));
    const std::size_t end = rest.find(separator);
    if (mount.mount.point.empty() || mount.mount.point.front() != '/' ||
        end == std::string_view::npos)
        throw std::runtime_error("Failed to parse '/proc/self/mountinfo': " + std::string(line));
    rest.remove_prefix(end + separator.size());
    mount.mount.type = field(rest);
    mount.mount.source = Decode(field(rest));
    return mount;
}

/// Tells which mounts a path can lead to.
class MountTree {
public:
    explicit MountTree(const std::vector<LinuxMount>& mounts) {
        for (const LinuxMount& mount : mounts) {
            byId_.emplace(mount.id, &mount);
            if (mount.parent != mount.id)
                places_.emplace(mount.parent, mount.mount.point);
        }
    }

    [[nodiscard]] bool IsVisible(const LinuxMount& mount) const {
        if (places_.count({mount.id, mount.mount.point}) != 0) // another one lies right above
            return false;
        const LinuxMount* place = &mount;
        // Not more often than there are mounts: the text may come from anywhere.
        for (std::size_t i = 0; i < byId_.size(); ++i) {
            if (IsCovered(*place))
                return false;
            const auto parent = byId_.find(place->parent);
            if (parent == byId_.end() || parent->second == place)
                break;
            place = parent->second;
        }
        return true;
    }

private:
    /// Whether a mount on the same file system lies between that and the mount.
    [[nodiscard]] bool IsCovered(const LinuxMount& mount) const {
        std::string_view directory = DirectoryAbove(mount.mount.point);
        for (; !directory.empty(); directory = DirectoryAbove(directory))
            if (places_.count({mount.parent, directory}) != 0)
                return true;
        return false;
    }

    std::map<std::string_view, const LinuxMount*> byId_;
    std::set<std::pair<std::string_view, std::string_view>> places_; ///< parent and mount point
};

/// "tank/a<tab>/tank/a<tab>zfs<tab>rw,nfsv4acls 0 0". A blank in the first two may stand as it is
/// or as "\040"; the mount point is where the first "/" follows white space.
Mount ParseFstabLine(std::string_view line) {
    constexpr std::string_view blanks = " \t";
    Mount mount;
    std::string_view rest = line;
    const auto takeLast = [&rest, blanks] {
        rest = rest.substr(0, rest.find_last_not_of(blanks) + 1);
        const std::string_view word = rest.substr(rest.find_last_of(blanks) + 1);
        rest.remove_suffix(word.size());
        return word;
    };
    for (int i = 0; i < 3; ++i) // pass, dump, options
        takeLast();
    mount.type = takeLast();
    rest = rest.substr(0, rest.find_last_not_of(blanks) + 1);
    const std::size_t point = std::min(rest.find(" /"), rest.find("\t/"));
    if (point == std::string_view::npos || point == 0)
        throw std::runtime_error("Failed to parse 'mount -p' output: " + std::string(line));
    mount.point = Decode(rest.substr(point + 1));
    mount.source = Decode(rest.substr(0, rest.find_last_not_of(blanks, point) + 1));
    return mount;
}

/// Leaves out what a later mount covers.
std::vector<Mount> WithoutCovered(const std::vector<Mount>& mounts) {
    std::map<std::string_view, std::size_t> latest;
    for (std::size_t i = 0; i < mounts.size(); ++i)
        latest[mounts[i].point] = i;
    std::vector<Mount> visible;
    for (std::size_t i = 0; i < mounts.size(); ++i) {
        bool isCovered = false;
        for (std::string_view directory = mounts[i].point; !directory.empty();
             directory = DirectoryAbove(directory)) {
            const auto found = latest.find(directory);
            isCovered = isCovered || (found != latest.end() && found->second > i);
        }
        if (!isCovered)
            visible.push_back(mounts[i]);
    }
    return visible;
}

/// The mount that holds the directory which a nullfs mounts a second time; any other as it is.
const Mount& Resolve(const std::map<std::string_view, const Mount*>& byPoint, const Mount& nullfs) {
    const Mount* mount = &nullfs;
    // Not more often than there are mounts: they could name each other.
    for (std::size_t i = 0; i < byPoint.size() && mount->type == "nullfs"; ++i) {
        const auto holder = FindHolder(byPoint, mount->source);
        if (holder == byPoint.end())
            break;
        mount = holder->second;
    }
    return *mount;
}

} // namespace

std::string DfFromMountinfo(std::string_view mountinfo) {
    std::vector<LinuxMount> mounts;
    while (!mountinfo.empty())
        mounts.push_back(ParseMountinfoLine(util::ConsumeLine(mountinfo)));
    const MountTree tree(mounts);
    std::vector<Mount> visible;
    for (const LinuxMount& mount : mounts)
        if (tree.IsVisible(mount))
            visible.push_back(mount.mount);
    return Rows(visible).Format();
}

std::string DfFromFstab(std::string_view fstab) {
    std::vector<Mount> mounts;
    while (!fstab.empty())
        mounts.push_back(ParseFstabLine(util::ConsumeLine(fstab)));
    mounts = WithoutCovered(mounts);
    std::map<std::string_view, const Mount*> byPoint;
    for (const Mount& mount : mounts)
        byPoint.emplace(mount.point, &mount);
    std::vector<Mount> resolved;
    for (const Mount& mount : mounts) {
        const Mount& holder = Resolve(byPoint, mount);
        resolved.push_back({mount.point, holder.type, holder.source});
    }
    return Rows(resolved).Format();
}

} // namespace zfslib::executors::internal
