#pragma once

#include "../platform/zfslib_export.h"
#include "../zfstools/Property.h"
#include "../zfstools/ZfsProperties.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zfslib {

/// One dataset, as `zfs list` and `zfs get all` show it, and the operations on a dataset by name.
/// A plain value, made by ZfsDatasetEnumerator; a move costs no copy of its strings and leaves the
/// source's name empty.
///
/// The operations run one command each through the process executor. Names, properties, values and
/// mount points reach the command line unquoted. With the default executor, which uses no shell, a
/// blank in one of them makes two arguments of it; with an executor that goes through a shell, the
/// shell interprets them. The caller must see that they are single words without shell characters.
/// Errors, unless said otherwise: what the executor throws.
class ZFSLIB_EXPORT ZfsDataset {
public:
    /// What a dataset is.
    enum Type { filesystem = 0, volume = 1, snapshot = 2 };

    /// @{
    /// The texts are the words of `zfs list -t`. Errors: std::runtime_error for a text or a value
    /// outside the enumeration.
    static Type StringToType(const std::string& text);
    static std::string TypeToString(const Type& type);
    /// @}

    /// Reads one row of `zfs get all`: fills `out` and returns the property's name. Rows that
    /// cannot be told apart into value and source (the creation time, values with blanks) and empty
    /// ones are skipped: the result is empty and `out` stays. Errors: std::runtime_error for a row
    /// of one to three cells, and for an inherited source without a parent.
    static std::string ParseDatasetPropOutputRow(const std::vector<std::string>& row,
                                                 AuxPropValue& out);

    /// `zfs mount`.
    static void Mount(const std::string& name);
    /// `mount -F zfs`.
    static void MountLegacy(const std::string& name, const std::string& mountpoint);
    /// `zfs unmount -f`. A dataset that is not mounted is no error.
    static void Unmount(const std::string& name);
    /// `zfs inherit`.
    static void InheritProperty(std::string name, std::string property);
    /// `zfs set` for a dataset.
    static void ModifyPoolProperty(std::string name, std::string property, std::string value);

    /// Sets the mount point again as it was read: inherits it when its source is Inherited, else
    /// sets its value. Errors, before any command: std::runtime_error for another property.
    static void SetMountpoint(const std::string& name, const Property<std::string>& property);
    /// The same for a user property. Errors, before any command: std::runtime_error for a property
    /// without ":" in its name.
    static void SetUserProperty(const std::string& name, const Property<std::string>& property);

    /// The pseudo device behind a volume: "/devices/pseudo/zfs@0:1c" with whatever `ls -la` printed
    /// behind it, the line break included. "pseudo@zfs" when it cannot be found out; never fails.
    static std::string GetZfsPseudoDevice(const std::string& name);

    ZfsDataset() = default;
    ZfsDataset(const ZfsDataset&) = default;
    /// Leaves the name of `other` empty.
    ZfsDataset(ZfsDataset&& other) noexcept;
    ZfsDataset& operator=(const ZfsDataset&) = default;
    /// Leaves the name of `other` empty.
    ZfsDataset& operator=(ZfsDataset&& other) noexcept;
    ~ZfsDataset() = default;

    /// "pool", "pool/fs/child", "pool/fs@snapshot".
    std::string name;
    /// Of which `zfs list -t` listed it.
    Type type = filesystem;
    /// Space the dataset and its descendants could still consume, in bytes. Source: `avail` column
    /// of `zfs list`; 0 when the tool prints "-".
    std::uint64_t avail = 0;
    /// Space the dataset and its descendants consume, in bytes. Source: `used` column.
    std::uint64_t used = 0;
    /// Space its refreservation consumes, in bytes. Source: `usedrefreserv` column; 0 for "-".
    std::uint64_t usedrefreserv = 0;
    /// Source: `zfs get all`, `zfs userspace`, `zfs groupspace`.
    ZfsProperties properties;
};

} // namespace zfslib
