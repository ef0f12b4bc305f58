#pragma once

#include "../platform/zfslib_export.h"
#include "../zfstools/Property.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zfslib {

/// The properties of one dataset, as `zfs get all` prints them. A new set holds the defaults.
/// What a set owns is moved by a move; copies share what does not change between datasets.
class ZFSLIB_EXPORT ZfsProperties {
public:
    /// A size property: a number of bytes with the unit it was written in, or one of the words
    /// "auto" and "none".
    class ZFSLIB_EXPORT SpaceSize {
    public:
        /// What a size can be counted in.
        class ZFSLIB_EXPORT Unit {
        public:
            /// Errors: std::runtime_error when `byteFactor` is 0.
            Unit(const std::string& name, const std::vector<std::string>& altNames,
                 unsigned long byteFactor);

            /// The name the unit is printed with: "K".
            [[nodiscard]] std::string Name() const { return names_->name; }
            /// The suffixes the unit is read from, in the order they are tried.
            [[nodiscard]] std::vector<std::string> AltName() const { return names_->suffixes; }
            /// Bytes per unit; never 0.
            [[nodiscard]] unsigned long ByteFactor() const noexcept { return byteFactor_; }

        private:
            friend class SpaceSize;

            struct Names {
                std::string name;
                std::vector<std::string> suffixes;
            };

            detail::Shared<Names> names_;
            std::uint64_t byteFactor_;
        };

        /// What a size property can say.
        enum class Kind : std::uint32_t {
            None = 0,  ///< the word "none"; also a text that could not be read
            Value = 1, ///< a number of bytes
            Auto = 2,  ///< the word "auto"
        };

        std::uint64_t bytes = 0; ///< 0 unless the kind is Value
        Unit unit = Bytes();     ///< the one it was written in
        Kind kind = Kind::None;  ///< which of the three it is

        /// B, K, M, G and T, in the order their suffixes are tried. There is none above T.
        static const std::vector<Unit> units;

        /// Reads "auto", a plain number of bytes, or a number with one of the suffixes of `units`;
        /// everything else is "none". Errors: std::out_of_range "stoi" for a plain number above
        /// 2147483647, as the tools print such sizes with a unit.
        static SpaceSize FromString(const std::string& text);

        /// "auto", "none", or the number of units with six decimals and the unit: "1.500000K".
        static std::string ToString(const SpaceSize& size);

        /// @{
        /// The bytes in units of 1024, 1024^2 and 1024^4.
        [[nodiscard]] double GetKb() const;
        [[nodiscard]] double GetMb() const;
        [[nodiscard]] double GetTb() const;
        /// @}

        /// @{
        /// Sizes compare by their bytes alone: "auto", "none" and 0 are equal.
        bool operator>(const SpaceSize& other) const { return bytes > other.bytes; }
        bool operator<(const SpaceSize& other) const { return bytes < other.bytes; }
        bool operator==(const SpaceSize& other) const { return bytes == other.bytes; }
        /// @}

    private:
        static const Unit& Bytes();
    };

    /// What becomes of an access list when the mode is set: the words of `aclmode`.
    enum class Aclmode { Discard = 0, Mask = 1, Passthrough = 2, Groupmask = 3 };
    /// The words of `canmount`.
    enum class Canmount { On = 0, Off = 1, Noauto = 2 };
    /// The words of `casesensitivity`.
    enum class Casesensitivity { Sensitive = 0, Insensitive = 1, Mixed = 2 };
    /// The words of `encryption`: off, on, or a cipher with its mode ("aes-128-ccm").
    enum class Encryption {
        Off = 0,
        On = 1,
        Aes128Ccm = 2,
        Aes192Ccm = 3,
        Aes256Ccm = 4,
        Aes128Gcm = 5,
        Aes192Gcm = 6,
        Aes256Gcm = 7, ///< printed, but not read: the property becomes Failed
        Aes128Ctr = 8,
    };
    /// Where the key of an encrypted dataset comes from: the words of `keysource`.
    enum class Keysource {
        None = 0,     ///< "-"
        NoneText = 1, ///< "none"
        Raw = 2,
        Hex = 3,
        PassphrasePrompt = 4, ///< "passphrase,promt"
        File = 5,
        RawEphemeral = 6,
    };

    /// @{
    /// The conversions of the enumerations. Texts are matched exactly. Errors: std::runtime_error
    /// for a text or a value outside the table.
    static Aclmode StringToAclMode(const std::string& text);
    static std::string AclmodeToString(const Aclmode& value);
    static Canmount StringToCanmount(const std::string& text);
    static std::string CanmountToString(const Canmount& value);
    static Casesensitivity StringToCasesensitivity(const std::string& text);
    static std::string CasesensitivityToString(const Casesensitivity& value);
    static Encryption StringToEncryption(const std::string& text);
    static std::string EncryptionToString(const Encryption& value);
    static Keysource StringToKeysource(const std::string& text);
    static std::string KeysourceToString(const Keysource& value);
    /// @}
    /// @{
    /// "yes" is true, everything else false.
    static bool StringToMounted(const std::string& text);
    static std::string MountedToString(const bool& value);
    /// @}

    /// @{
    /// The members whose conversions are not those of their type.
    static Property<Casesensitivity> BuildCasesensitivityProperty();
    static Property<Encryption> BuildEncryptionProperty();
    static Property<Keysource> BuildKeysourceProperty();
    static Property<Aclmode> BuildAclmodeProperty();
    static Property<Canmount> BuildCanmountProperty();
    static Property<SpaceSize> BuildVolsizeProperty();
    static Property<SpaceSize> BuildRefreservationProperty();
    static Property<bool> BuildMountedProperty();
    /// @}

    /// Every property at its default, Unset, and empty lists.
    ZfsProperties();
    ZfsProperties(const ZfsProperties&) = default;
    ZfsProperties(ZfsProperties&&) noexcept = default;
    ZfsProperties& operator=(const ZfsProperties&) = default;
    /// A set that is moved into itself stays as it is.
    ZfsProperties& operator=(ZfsProperties&& other) noexcept;
    ~ZfsProperties() = default;

    /// Stores what the rows of `zfs get all` hold for the members, each once, in their order.
    /// Errors: as Property::Set.
    void SetSilent(const AuxPropValues& rows);

    /// Whether a property is given to a dataset when it is created, and cannot be set afterwards:
    /// casesensitivity, encryption, keysource, multilevel, normalization, utf8only, volblocksize.
    /// The tools print "-" for the source of most of them, whether somebody chose the value or not.
    [[nodiscard]] static bool IsSetAtCreation(const std::string& name);

    /// Calls `visit(property)` for every member but the lists, in their order.
    template <typename Self, typename Visit>
    static void ForEach(Self& self, Visit&& visit);

    // Ordered as the conversions are applied. Where the text of a value is kept, "none" and "10G"
    // stay text: a restore sets again what the tool printed.
    /// @{
    /// A property of the dataset, named as `zfs get` names it; zfs(1M) says what it means.
    Property<Casesensitivity> casesensitivity = BuildCasesensitivityProperty();
    Property<Encryption> encryption = BuildEncryptionProperty();
    Property<Keysource> keysource = BuildKeysourceProperty();
    Property<bool> utf8only{"utf8only", false};
    Property<bool> multilevel{"multilevel", false};
    Property<Aclmode> aclmode = BuildAclmodeProperty();
    Property<Canmount> canmount = BuildCanmountProperty();
    Property<std::string> mountpoint{"mountpoint", ""};
    Property<SpaceSize> volsize = BuildVolsizeProperty();
    Property<bool> mounted = BuildMountedProperty();
    Property<std::string> volblocksize{"volblocksize", ""};
    Property<std::string> checksum{"checksum", "off"};
    Property<std::string> primarycache{"primarycache", ""};
    Property<SpaceSize> refreservation = BuildRefreservationProperty();
    Property<std::string> aclinherit{"aclinherit", "discard"};
    Property<bool> atime{"atime", false};
    Property<std::string> compression{"compression", "off"};
    Property<std::string> copies{"copies", "1"};
    Property<std::string> dedup{"dedup", "off"};
    Property<bool> devices{"devices", false};
    Property<bool> exec{"exec", false};
    Property<std::string> logbias{"logbias", "latency"};
    Property<std::string> mlslabel{"mlslabel", "none"};
    Property<bool> nbmand{"nbmand", false};
    Property<std::string> quota{"quota", "none"};
    Property<std::string> readlimit{"readlimit", "none"};
    Property<std::string> writelimit{"writelimit", "none"};
    Property<std::string> defaultreadlimit{"defaultreadlimit", "none"};
    Property<std::string> defaultwritelimit{"defaultwritelimit", "none"};
    Property<std::string> sync{"sync", "standard"};
    Property<std::string> defaultuserquota{"defaultuserquota", "none"};
    Property<std::string> defaultgroupquota{"defaultgroupquota", "none"};
    Property<bool> readonly{"readonly", false};
    Property<std::string> recordsize{"recordsize", ""};
    Property<std::string> refquota{"refquota", "none"};
    Property<std::string> reservation{"reservation", "none"};
    Property<bool> rstchown{"rstchown", false};
    Property<std::string> secondarycache{"secondarycache", "none"};
    Property<bool> setuid{"setuid", false};
    Property<std::string> shadow{"shadow", "none"};
    /// Only "on" is true: share options ("rw=@10.0.0.0/8") read as false.
    Property<bool> sharenfs{"sharenfs", false};
    /// Only "on" is true, as for sharenfs.
    Property<bool> sharesmb{"sharesmb", false};
    Property<std::string> snapdir{"snapdir", "hidden"};
    Property<std::string> version{"version", "current"};
    Property<bool> vscan{"vscan", false};
    Property<bool> xattr{"xattr", false};
    Property<bool> zoned{"zoned", false};
    /// @}

    /// "userquota@1001" and the like, as `zfs set` takes them; in the tool's order.
    std::vector<Property<std::string>> userQuotas;
    /// "groupquota@1001" and the like, as `zfs set` takes them; in the tool's order.
    std::vector<Property<std::string>> groupQuotas;
    /// The properties with a ":" in their name, in no particular order.
    std::vector<Property<std::string>> userProperties;

private:
    struct BuildTag {};
    explicit ZfsProperties(BuildTag) {}
    static const ZfsProperties& Defaults();
};

template <typename Self, typename Visit>
void ZfsProperties::ForEach(Self& self, Visit&& visit) {
    visit(self.casesensitivity);
    visit(self.encryption);
    visit(self.keysource);
    visit(self.utf8only);
    visit(self.multilevel);
    visit(self.aclmode);
    visit(self.canmount);
    visit(self.mountpoint);
    visit(self.volsize);
    visit(self.mounted);
    visit(self.volblocksize);
    visit(self.checksum);
    visit(self.primarycache);
    visit(self.refreservation);
    visit(self.aclinherit);
    visit(self.atime);
    visit(self.compression);
    visit(self.copies);
    visit(self.dedup);
    visit(self.devices);
    visit(self.exec);
    visit(self.logbias);
    visit(self.mlslabel);
    visit(self.nbmand);
    visit(self.quota);
    visit(self.readlimit);
    visit(self.writelimit);
    visit(self.defaultreadlimit);
    visit(self.defaultwritelimit);
    visit(self.sync);
    visit(self.defaultuserquota);
    visit(self.defaultgroupquota);
    visit(self.readonly);
    visit(self.recordsize);
    visit(self.refquota);
    visit(self.reservation);
    visit(self.rstchown);
    visit(self.secondarycache);
    visit(self.setuid);
    visit(self.shadow);
    visit(self.sharenfs);
    visit(self.sharesmb);
    visit(self.snapdir);
    visit(self.version);
    visit(self.vscan);
    visit(self.xattr);
    visit(self.zoned);
}

extern template class Property<ZfsProperties::SpaceSize>;
extern template class Property<ZfsProperties::Aclmode>;
extern template class Property<ZfsProperties::Canmount>;
extern template class Property<ZfsProperties::Casesensitivity>;
extern template class Property<ZfsProperties::Encryption>;
extern template class Property<ZfsProperties::Keysource>;

} // namespace zfslib
