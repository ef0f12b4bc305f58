#pragma once

#include "../platform/zfslib_export.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

/// A host's exact state, and the plan that puts it back.
namespace zfslib::restore {

/// Where the value of a property comes from: the SOURCE column of `zfs get` and `zpool get`.
enum class PropertySource {
    None,      ///< "-": read-only, or given at creation and never told where from
    Default,   ///< nobody set it
    Local,     ///< set here
    Inherited, ///< from a dataset above
    Received,  ///< came with a stream
    Temporary, ///< a mount option for as long as the mount lasts; what is stored is not shown
};

/// What all values with the same history share.
struct ValueOrigin {
    PropertySource source = PropertySource::None; ///< the kind of place
    /// The whole name of the dataset it is inherited from, even where the tool cuts it; it may be
    /// above the roots that were read. Empty unless inherited.
    std::string inheritedFrom;
    /// Why the value, the received value or the source is not known for certain; empty when all
    /// are exact. Example: "prints differently each time it is asked for".
    std::string doubt;
};

/// One property of a dataset, snapshot, pool or device, without loss: bytes as the tool prints them
/// with `-p`. A small value that looks into the texts of its HostState.
class ZFSLIB_EXPORT PropertyValue {
public:
    /// The size that stands for no received value.
    static constexpr std::uint32_t noReceived = UINT32_MAX;

    /// A value of which all parts are kept elsewhere, as StateTexts::Make does it. Unless
    /// `receivedSize` is noReceived, the received value stands behind the value, one byte between.
    PropertyValue(const std::string& name, const ValueOrigin& origin, std::string_view value,
                  std::uint32_t receivedSize) noexcept
        : name_(&name), origin_(&origin), text_(value.data()),
          valueSize_(static_cast<std::uint32_t>(value.size())), receivedSize_(receivedSize) {}

    /// As the tool prints it: "quota", "com.example:owner", "feature@lz4_compress".
    [[nodiscard]] const std::string& Name() const noexcept { return *name_; }

    /// Whether users make such names up: there is a ":" in it.
    [[nodiscard]] bool IsUser() const noexcept { return name_->find(':') != std::string::npos; }

    /// Any bytes, blanks and newlines included; may be empty. Sizes are plain numbers of bytes,
    /// with 0 or "none" for no limit as the tool has it; a mount point begins with the pool's
    /// altroot.
    [[nodiscard]] std::string_view Value() const noexcept { return {text_, valueSize_}; }

    /// What a stream brought, whether it counts or another value covers it: the RECEIVED column.
    /// Absent where nothing was received, or where the tool has no such column
    /// (ToolsState::hasReceived). A received "-" that a local value covers cannot be told from
    /// none. A received mount point begins with the altroot, too.
    [[nodiscard]] std::optional<std::string_view> Received() const noexcept {
        if (receivedSize_ == noReceived)
            return std::nullopt;
        return std::string_view(text_ + valueSize_ + 1, receivedSize_);
    }

    /// Where the value that counts is from.
    [[nodiscard]] PropertySource Source() const noexcept { return origin_->source; }

    /// As ValueOrigin has it.
    [[nodiscard]] const std::string& InheritedFrom() const noexcept {
        return origin_->inheritedFrom;
    }

    /// Whether value, received value and source are known for certain. Nothing may be planned from
    /// a value that is not exact.
    [[nodiscard]] bool IsExact() const noexcept { return origin_->doubt.empty(); }

    /// Why it is not exact; empty when it is.
    [[nodiscard]] const std::string& Doubt() const noexcept { return origin_->doubt; }

private:
    const std::string* name_;
    const ValueOrigin* origin_;
    const char* text_;
    std::uint32_t valueSize_;
    std::uint32_t receivedSize_;
};

/// The value of that name; nothing when there is none. Looks at one after another.
[[nodiscard]] ZFSLIB_EXPORT const PropertyValue*
FindProperty(const std::vector<PropertyValue>& properties, std::string_view name) noexcept;

/// A limit on what one user, group or project may take: only what was set for it, never a default.
/// Source: `zfs userspace`, `zfs groupspace`, `zfs projectspace`.
struct Quota {
    /// Whose use is limited.
    enum class Owner { User, Group, Project };

    Owner owner = Owner::User; ///< the kind of owner; `id` says which
    bool isOfObjects = false;  ///< files and directories are counted in place of bytes
    std::string id;            ///< decimal digits; of a Windows user or group "S-1-..."
    std::uint64_t limit = 0;   ///< bytes or objects; never 0

    /// As `zfs set` takes it: "userquota@1001", "groupobjquota@50".
    [[nodiscard]] ZFSLIB_EXPORT std::string PropertyName() const;
};

/// A file system or volume.
struct ZFSLIB_EXPORT DatasetState {
    /// The property `type`.
    enum class Type { Filesystem, Volume };

    std::string_view name;           ///< "tank/data"
    Type type = Type::Filesystem;    ///< other types are not in a state
    std::string_view guid;           ///< decimal digits
    std::string_view origin;         ///< the snapshot a clone was made from; else empty
    std::string_view encryptionRoot; ///< may be the dataset itself; empty when not encrypted
    bool isMounted = false;          ///< the property `mounted`

    /// Every property the tool prints for it, native and of users, in the tool's order. What it
    /// does not print it does not have: the same property may be missing for a volume.
    std::vector<PropertyValue> properties;

    /// Without the limits that only show a default. Volumes have none.
    std::vector<Quota> quotas;
    /// Why the quotas are not known, or not all of them; empty when they are.
    std::string quotasDoubt;

    /// What `zfs allow` prints about permissions given here, from its heading
    /// "---- Permissions on NAME ---" on; empty when there are none.
    std::string_view permissions;
    /// Why the permissions are not known; empty when they are.
    std::string permissionsDoubt;

    /// The property of that name; nothing when there is none. Looks at one after another.
    [[nodiscard]] const PropertyValue* Find(std::string_view property) const noexcept {
        return FindProperty(properties, property);
    }
};

/// A snapshot that something was set on; others are not in the state.
struct SnapshotState {
    std::string_view name; ///< "tank/data@monday"
    /// The user properties that were set on itself or came with it, not what it inherits.
    std::vector<PropertyValue> userProperties;
    std::vector<std::string> holds; ///< the tags, sorted; they may have blanks in them
    /// Why the holds are not known; empty when they are.
    std::string holdsDoubt;
};

/// A device, or a group of devices, in a pool's tree.
struct Device {
    /// What it is, by its name.
    enum class Kind {
        Disk,
        File,
        Mirror,
        Raidz,     ///< of any parity
        Draid,     ///< of any geometry
        Replacing, ///< the old and the new device while one replaces the other
        Spare,     ///< a device and the spare that stands in for it
        Other,     ///< what is left of a removed device, or a word that is not known
    };
    /// What the pool uses a top-level device for.
    enum class Use {
        Normal,
        Special,
        Dedup,
        Log,
        Meta, ///< Solaris
        Cache,
        Spare,
        Other, ///< the head of its section is not known
    };

    Kind kind = Kind::Disk; ///< of a missing device, Disk
    Use use = Use::Normal;  ///< of a device inside a group: that of its group
    std::string name;       ///< as `zpool status` prints it: "mirror-0", "sda", "c1t0d0"
    std::string state;      ///< "ONLINE", "OFFLINE", "AVAIL", ...; empty where none is printed
    /// The word that makes a group in `zpool create`: "mirror", "raidz2", "draid2:8d:12c:1s"; empty
    /// for disks and files, and where there is none.
    std::string word;
    /// Of a disk or file the whole path, with the partition that holds the data. Without an option
    /// for it (Solaris), what was given to `zpool create`.
    std::string path;
    /// Whether the pool took the whole disk and partitioned it itself; absent where nobody can
    /// tell.
    std::optional<bool> isWholeDisk;
    std::string guid;     ///< decimal digits; empty where the tool does not tell
    std::string deviceId; ///< the link in by-id without its folder: "scsi-35000c500a1b2c3d4-part1"
    std::string physicalPath; ///< where the controller has it; empty where the tool does not tell
    /// Of a top-level device the sector size that it was made with, as a power of 2; absent where
    /// the tool does not tell. The pool property of that name is only what new devices get.
    std::optional<unsigned> ashift;
    /// The properties that were set on it, those of users included.
    std::vector<PropertyValue> properties;
    std::vector<Device> children; ///< of a group, in order
};

/// An imported pool.
struct ZFSLIB_EXPORT PoolState {
    std::string_view name;    ///< "tank"
    std::string_view guid;    ///< decimal digits
    std::string_view altroot; ///< what mount points are printed below; empty when there is none
    std::string_view health;  ///< "ONLINE", "DEGRADED", ...

    /// Every property the tool prints, features ("feature@...") and those of users included.
    std::vector<PropertyValue> properties;

    /// The top-level devices, in the order of `zpool status`, which lists normal ones, then those
    /// of each other use.
    std::vector<Device> devices;
    /// Why the devices or properties are not what they should be, each a sentence: a device is
    /// being replaced, a spare stands in, a property shows "-" because the pool is not available.
    std::vector<std::string> doubts;

    /// The property of that name; nothing when there is none.
    [[nodiscard]] const PropertyValue* Find(std::string_view property) const noexcept {
        return FindProperty(properties, property);
    }
};

/// What the installed tool says about a property in the table that it prints when `zfs get` or
/// `zpool get` is called without operands.
struct PropertyRule {
    bool isEditable = false;    ///< column EDIT
    bool isInheritable = false; ///< column INHERIT; pools and devices have none
    std::string values;         ///< column VALUES: "on | off", "<size> | none"

    /// Given once, at creation; taken from the parent when it is not given. A few more are given
    /// once and not taken from the parent (keyformat, pbkdf2iters): the table has them as
    /// read-only.
    [[nodiscard]] bool IsSetOnce() const noexcept { return !isEditable && isInheritable; }
};

/// The rules by name; those of a family by its beginning: "userquota@...", "feature@...".
using PropertyRules = std::map<std::string, PropertyRule, std::less<>>;

/// The rule for a property: its own or that of its family. Nothing for user properties and names
/// the table does not have.
[[nodiscard]] ZFSLIB_EXPORT const PropertyRule* FindRule(const PropertyRules& rules,
                                                         std::string_view property);

/// The usage of each command, without its name, with blanks where its lines are broken; several
/// forms of one command with a newline between. Example: of "set"
/// "[-u] <property=value> ... <filesystem|volume|snapshot> ...".
using CommandUsages = std::map<std::string, std::string, std::less<>>;

/// Whether a command has an option of one letter: TakesOption(tools.zfsUsage, "set", 'u').
[[nodiscard]] ZFSLIB_EXPORT bool TakesOption(const CommandUsages& usages, std::string_view command,
                                             char option);

/// The tools a state was read with, and what they can do.
struct ZFSLIB_EXPORT ToolsState {
    std::string system;  ///< `uname -s`: "Linux", "FreeBSD", "SunOS"
    std::string release; ///< `uname -r`
    /// `zfs version`, its first line: "zfs-2.3.9-1". Empty where there is no such command: older
    /// tools, and Solaris.
    std::string version;
    std::string moduleVersion; ///< its second line, of the kernel module: "zfs-kmod-2.3.9-1"

    PropertyRules datasetProperties; ///< from `zfs get`
    PropertyRules poolProperties;    ///< from `zpool get`

    CommandUsages zfsUsage;   ///< from `zfs` called alone
    CommandUsages zpoolUsage; ///< from `zpool` called alone

    bool hasReceived = false;      ///< `zfs get -o received`
    bool hasTypeOption = false;    ///< `zfs get -t`
    bool hasObjectQuotas = false;  ///< `zfs userspace -o objquota`
    bool hasProjectQuotas = false; ///< `zfs projectspace`

    /// Whether one `zfs set` may change several properties (Solaris: one each).
    [[nodiscard]] bool SetsSeveral() const;
    /// The first numbers of the version, for what only that tells: AtLeast(2, 2). False when there
    /// is no version to go by.
    [[nodiscard]] bool AtLeast(unsigned major, unsigned minor) const noexcept;
};

/// The order of datasets in a state: each before what stands below it, and that before its next
/// sibling; siblings by their bytes.
[[nodiscard]] ZFSLIB_EXPORT bool ComesBefore(std::string_view a, std::string_view b) noexcept;

/// Owns what the views in a state look into, and makes values of it. Names and origins are kept
/// once each. Not to be used by several threads at once while something is added.
class ZFSLIB_EXPORT StateTexts {
public:
    StateTexts();
    StateTexts(const StateTexts&) = delete;
    StateTexts& operator=(const StateTexts&) = delete;
    ~StateTexts();

    /// Takes a text and gives a view of it that holds as long as this.
    std::string_view Keep(std::string text);
    /// The one string with these bytes.
    const std::string& Name(std::string_view name);
    /// The one origin with these parts.
    const ValueOrigin& Origin(PropertySource source, std::string_view inheritedFrom = {},
                              std::string_view doubt = {});
    /// A value of which everything is copied and kept.
    PropertyValue Make(std::string_view name, std::string_view value,
                       std::optional<std::string_view> received, const ValueOrigin& origin);

private:
    std::deque<std::string> texts_;
    std::set<std::string, std::less<>> names_;
    std::map<std::tuple<PropertySource, std::string, std::string>, ValueOrigin> origins_;
};

/// What stood on a host, without loss: everything below the roots, and the pools that hold them. A
/// plain value, made by ReadHostState; copies share the texts they look into and keep them alive.
struct ZFSLIB_EXPORT HostState {
    std::string host;               ///< `uname -n`
    std::string readAt;             ///< when, by the host's clock: "2026-11-23T08:55:07Z"
    ToolsState tools;               ///< what it was read with
    std::vector<std::string> roots; ///< pools or datasets, as they were asked for

    std::vector<PoolState> pools;            ///< by name
    std::vector<DatasetState> datasets;      ///< in the order of ComesBefore
    std::vector<SnapshotState> snapshots;    ///< in the order of ComesBefore
    std::shared_ptr<const StateTexts> texts; ///< what the views look into

    /// @{
    /// By whole name; nothing when there is none. A dataset is found by halving.
    [[nodiscard]] const PoolState* FindPool(std::string_view name) const noexcept;
    [[nodiscard]] const DatasetState* FindDataset(std::string_view name) const noexcept;
    [[nodiscard]] const SnapshotState* FindSnapshot(std::string_view name) const noexcept;
    /// @}
};

} // namespace zfslib::restore
