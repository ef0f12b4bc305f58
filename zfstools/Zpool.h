#pragma once

#include "../platform/guid/guid.h"
#include "../platform/zfslib_export.h"
#include "../zfstools/Property.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zfslib {

/// One imported storage pool, as `zpool list`, `zpool status` and `zpool get all` show it. A plain
/// value, made by ZpoolEnumerator.
class ZFSLIB_EXPORT Zpool {
public:
    /// Health, by the words of `zpool status`.
    enum class State { Degraded = 0, Offline = 1, Online = 2, Removed = 3, Unavail = 4 };

    /// What a virtual device is, told from its name.
    enum class VirtualDeviceType {
        File = 0,
        Disk = 1,
        Mirror = 2,
        Raidz = 3,
        Raidz1 = 4,
        Raidz2 = 5,
        Raidz3 = 6,
    };

    /// A device that a virtual device is made of.
    struct DeviceReference {
        guid::guid_t guid; ///< new with every enumeration; not an identifier of the system's
        std::string name;  ///< as `zpool status` prints it: "c1t0d0"
    };

    /// A top-level virtual device of one section of `zpool status`.
    struct VirtualDevice {
        std::string name; ///< as `zpool status` prints it: "mirror-0", "c1t0d0"
        VirtualDeviceType type = VirtualDeviceType::Disk; ///< from its name
        /// All that stands below it, groups inside it included; a single disk refers to itself.
        std::vector<DeviceReference> devices;
    };

    /// The properties of a pool, as `zpool get all` prints them.
    class ZFSLIB_EXPORT Properties {
    public:
        /// What the pool does when its devices fail for good.
        enum class Failmode { Wait = 0, Continue = 1, Panic = 2 };

        /// @{
        /// The words of the property. Errors: std::runtime_error for a text or a value outside the
        /// enumeration.
        static Failmode StringToFailmode(const std::string& text);
        static std::string FailmodeToString(const Failmode& value);
        /// @}

        /// "1.05x" is 1.05. Errors: std::runtime_error for no number, or one below 1.
        static double StringToDedupratio(const std::string& text);
        /// The ratio with six decimals: "1.050000".
        static std::string DedupratioToString(const double& ratio);

        /// @{
        /// Changes a property of the live pool, to the property's text: one `zpool set` through the
        /// process executor. No record is changed. Pool name and text reach the command line
        /// unquoted: the caller must see that both are single words without shell characters.
        /// Errors: std::runtime_error when the property is not the one of the setter; what the
        /// executor throws.
        static void SetAutoexpand(const std::string& pool, const Property<bool>& property);
        static void SetAutoreplace(const std::string& pool, const Property<bool>& property);
        static void SetFailmode(const std::string& pool, const Property<Failmode>& property);
        static void SetBootfs(const std::string& pool, const Property<std::string>& property);
        static void SetCachefile(const std::string& pool, const Property<std::string>& property);
        static void SetScrubInterval(const std::string& pool,
                                     const Property<std::string>& property);
        /// @}

        /// Calls `visit(property)` for every member, in the order in which they are read.
        template <typename Self, typename Visit>
        static void ForEach(Self& self, Visit&& visit);

        /// @{
        /// A property of the pool, named as `zpool get` names it; zpool(1M) says what it means.
        Property<std::string> altroot{"altroot", ""};
        Property<std::string> bootfs{"bootfs", ""};
        Property<std::string> cachefile{"cachefile", ""};
        Property<std::string> guid{"guid", ""};
        Property<std::string> lastscrub{"lastscrub", ""};
        Property<std::string> scrubinterval{"scrubinterval", "manual"};
        Property<unsigned long> version{"version", 32};
        Property<bool> readonly{"readonly", false};
        Property<bool> autoexpand{"autoexpand", false};
        Property<bool> autoreplace{"autoreplace", false};
        Property<bool> clustered{"clustered", false};
        Property<bool> delegation{"delegation", false};
        Property<bool> listshares{"listshares", false};
        Property<bool> listsnapshots{"listsnapshots", false};
        Property<unsigned long> allocunit{"allocunit", 512};
        Property<Failmode> failmode{"failmode", Failmode::Wait, StringToFailmode, FailmodeToString};
        Property<double> dedupratio{"dedupratio", 1.0, StringToDedupratio, DedupratioToString};
        /// @}
    };

    /// @{
    /// The words of the tools. Errors: std::runtime_error for a text or a value outside the
    /// enumeration ("FAULTED" and "SUSPENDED" are no states of it).
    static State StringToState(const std::string& text);
    static std::string StateToString(const State& state);
    static VirtualDeviceType StringToVirtualDeviceType(const std::string& text);
    static std::string VirtualDeviceTypeToString(const VirtualDeviceType& type);
    /// @}

    Zpool() = default;
    Zpool(const Zpool&) = default;
    Zpool(Zpool&&) = default;
    Zpool& operator=(const Zpool&) = default;
    /// A pool that is moved into itself stays as it is.
    Zpool& operator=(Zpool&& other) noexcept;
    ~Zpool() = default;

    /// Pools are ordered by name, byte by byte.
    bool operator<(const Zpool& other) const { return name < other.name; }

    /// Bytes that fit into the pool: the size times the deduplication ratio, raised to a whole
    /// number. Errors, here and below: std::runtime_error when the ratio was read but could not be
    /// converted.
    [[nodiscard]] std::uint64_t GetMaxSize() const;
    /// Bytes that the pool's data would need without deduplication: the allocated bytes times the
    /// exact ratio.
    [[nodiscard]] std::uint64_t GetAllocatedSize() const;
    /// The difference of the two. Errors: std::runtime_error when more is allocated than fits.
    [[nodiscard]] std::uint64_t GetAvailableSize() const;

    /// As `zpool list` prints it.
    std::string name;
    /// Bytes. Source: `size` column of `zpool list`.
    std::uint64_t size = 0;
    /// Bytes. Source: `alloc` column of `zpool list`.
    std::uint64_t allocated = 0;
    /// Source: `zpool get all`.
    Properties properties;
    /// Source: the "state:" line of `zpool status`; Unavail without one.
    State state = State::Unavail;
    std::vector<VirtualDevice> devices; ///< what the pool keeps its data on
    /// @{
    /// The devices of the section of that name in `zpool status`; empty without one.
    std::vector<VirtualDevice> spares;
    std::vector<VirtualDevice> logs;
    std::vector<VirtualDevice> caches;
    std::vector<VirtualDevice> metas;
    /// @}
};

template <typename Self, typename Visit>
void Zpool::Properties::ForEach(Self& self, Visit&& visit) {
    visit(self.readonly);
    visit(self.autoexpand);
    visit(self.autoreplace);
    visit(self.clustered);
    visit(self.delegation);
    visit(self.listshares);
    visit(self.listsnapshots);
    visit(self.altroot);
    visit(self.bootfs);
    visit(self.cachefile);
    visit(self.lastscrub);
    visit(self.guid);
    visit(self.scrubinterval);
    visit(self.version);
    visit(self.allocunit);
    visit(self.failmode);
    visit(self.dedupratio);
}

extern template class Property<Zpool::Properties::Failmode>;

} // namespace zfslib
