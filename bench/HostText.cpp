#include "HostText.h"

#include <algorithm>
#include <string_view>

namespace bench {
namespace {

/// The rows without their first column: those of a Solaris 11 filesystem, with user properties.
constexpr std::string_view rows =
    R"(PROPERTY              VALUE                  SOURCE
aclinherit            restricted             default
aclmode               discard                default
atime                 off                    inherited from tank
available             4.28T                  -
canmount              noauto                 local
casesensitivity       mixed                  -
checksum              on                     default
compression           lz4                    inherited from tank
compressratio         1.31x                  -
copies                1                      default
creation              Tue Mar  4  9:12 2025  -
dedup                 off                    default
defaultgroupquota     none                   -
defaultreadlimit      none                   default
defaultuserquota      none                   -
defaultwritelimit     none                   default
devices               on                     default
effectivereadlimit    none                   -
effectivewritelimit   none                   -
encryption            off                    -
exec                  on                     default
keychangedate         -                      default
keysource             none                   default
keystatus             none                   -
logbias               latency                default
mlslabel              none                   -
mounted               yes                    -
mountpoint            /export/projects       local
multilevel            off                    -
nbmand                off                    default
normalization         none                   -
primarycache          all                    default
quota                 250G                   local
readlimit             none                   default
readonly              off                    default
recordsize            128K                   default
referenced            61.3G                  -
refquota              none                   default
refreservation        none                   default
rekeydate             -                      default
reservation           none                   default
rstchown              on                     default
secondarycache        all                    default
setuid                on                     default
shadow                none                   -
share.*               ...                    default
sharenfs              off                    default
sharesmb              off                    default
snapdir               hidden                 default
sync                  standard               default
type                  filesystem             -
used                  61.3G                  -
usedbychildren        0                      -
usedbydataset         61.3G                  -
usedbyrefreservation  0                      -
usedbysnapshots       0                      -
utf8only              off                    -
version               6                      -
vscan                 off                    default
writelimit            none                   default
xattr                 on                     default
zoned                 off                    default
com.example:backup    daily                  local
com.example:owner     team-storage           local
com.example:policy    gold                   inherited from tank
)";

} // namespace

std::vector<std::string> DatasetNames(std::size_t count) {
    std::vector<std::string> names{"tank"};
    constexpr std::size_t snapshotsOfOne = 25;
    for (std::size_t i = 0; names.size() < count; ++i) {
        // Fixed widths, so that the names are in order.
        const std::string filesystem = std::to_string(10000 + i / snapshotsOfOne);
        const std::string day = std::to_string(10 + i % snapshotsOfOne);
        names.push_back("tank/export/project-" + filesystem + "@daily-2026-10-" + day);
    }
    return names;
}

std::string ListOutput(const std::vector<std::string>& names) {
    std::string output;
    for (const std::string& name : names)
        output += name + "\t4.28T\t61.3G\t-\n";
    return output;
}

std::string GetOutput(const std::vector<std::string>& names) {
    std::size_t width = 0;
    for (const std::string& name : names)
        width = std::max(width, name.size() + 2);
    const std::size_t headerEnd = rows.find('\n') + 1;
    std::string output = "NAME" + std::string(width - 4, ' ');
    output += rows.substr(0, headerEnd);
    for (const std::string& name : names) {
        for (std::size_t begin = headerEnd; begin < rows.size();) {
            const std::size_t end = rows.find('\n', begin) + 1;
            output += name + std::string(width - name.size(), ' ');
            output += rows.substr(begin, end - begin);
            begin = end;
        }
    }
    return output;
}

std::string ScriptGetOutput(const std::vector<std::string>& names) {
    const std::size_t valueColumn = rows.find("VALUE");
    const std::size_t sourceColumn = rows.find("SOURCE");
    const auto trimmed = [](std::string_view cell) {
        return cell.substr(0, cell.find_last_not_of(' ') + 1);
    };
    std::string output;
    for (const std::string& name : names)
        for (std::size_t begin = rows.find('\n') + 1; begin < rows.size();) {
            const std::size_t end = rows.find('\n', begin) + 1;
            const std::string_view row = rows.substr(begin, end - begin);
            output.append(name).append("\t").append(trimmed(row.substr(0, valueColumn)));
            output.append("\t").append(
                trimmed(row.substr(valueColumn, sourceColumn - valueColumn)));
            output.append("\t").append(row.substr(sourceColumn));
            begin = end;
        }
    return output;
}

std::string StatusOutput(std::size_t disks) {
    std::string output = "  pool: tank\n state: ONLINE\n  scan: none requested\nconfig:\n\n"
                         "\tNAME                       STATE     READ WRITE CKSUM\n"
                         "\ttank                       ONLINE       0     0     0\n";
    constexpr std::size_t disksOfGroup = 8;
    for (std::size_t disk = 0; disk < disks; ++disk) {
        if (disk % disksOfGroup == 0)
            output += "\t  raidz2-" + std::to_string(disk / disksOfGroup) +
                      "                 ONLINE       0     0     0\n";
        output += "\t    c0t5000C500A1B2" + std::to_string(1000 + disk) +
                  "d0  ONLINE       0     0     0\n";
    }
    return output + "\nerrors: No known data errors\n";
}

namespace {

struct StateRow {
    std::string_view property;
    std::string_view value;
    std::string_view source;
};

/// Those of a file system of OpenZFS 2.3.9, but for the rarest, with user properties.
constexpr StateRow stateRows[] = {
    {"type", "filesystem", "-"},
    {"creation", "1795424006", "-"},
    {"used", "112128", "-"},
    {"available", "58608128", "-"},
    {"referenced", "24576", "-"},
    {"compressratio", "1.00", "-"},
    {"mounted", "yes", "-"},
    {"quota", "268435456000", "local"},
    {"reservation", "0", "default"},
    {"recordsize", "131072", "default"},
    {"mountpoint", "/export/projects", "local"},
    {"sharenfs", "off", "default"},
    {"checksum", "on", "default"},
    {"compression", "lz4", "inherited from tank"},
    {"atime", "off", "inherited from tank"},
    {"devices", "on", "default"},
    {"exec", "on", "default"},
    {"setuid", "on", "default"},
    {"readonly", "off", "default"},
    {"zoned", "off", "default"},
    {"snapdir", "hidden", "default"},
    {"aclmode", "discard", "default"},
    {"aclinherit", "restricted", "default"},
    {"createtxg", "1", "-"},
    {"canmount", "on", "default"},
    {"xattr", "on", "default"},
    {"copies", "1", "default"},
    {"version", "5", "-"},
    {"utf8only", "off", "-"},
    {"normalization", "none", "-"},
    {"casesensitivity", "sensitive", "-"},
    {"sharesmb", "off", "default"},
    {"refquota", "0", "default"},
    {"refreservation", "0", "default"},
    {"guid", "13884900669636853076", "-"},
    {"primarycache", "all", "default"},
    {"secondarycache", "all", "default"},
    {"usedbysnapshots", "0", "-"},
    {"usedbydataset", "24576", "-"},
    {"usedbychildren", "87552", "-"},
    {"usedbyrefreservation", "0", "-"},
    {"logbias", "latency", "default"},
    {"objsetid", "54", "-"},
    {"dedup", "off", "default"},
    {"sync", "standard", "default"},
    {"dnodesize", "legacy", "default"},
    {"refcompressratio", "1.00", "-"},
    {"written", "24576", "-"},
    {"logicalused", "41472", "-"},
    {"logicalreferenced", "12288", "-"},
    {"filesystem_limit", "none", "default"},
    {"snapshot_limit", "none", "default"},
    {"acltype", "off", "default"},
    {"relatime", "on", "default"},
    {"redundant_metadata", "all", "default"},
    {"overlay", "on", "default"},
    {"encryption", "off", "default"},
    {"keylocation", "none", "default"},
    {"keyformat", "none", "default"},
    {"pbkdf2iters", "0", "default"},
    {"special_small_blocks", "0", "default"},
    {"prefetch", "all", "default"},
    {"direct", "standard", "default"},
    {"com.example:backup", "daily", "local"},
    {"com.example:owner", "team storage", "local"},
    {"com.example:policy", "gold", "inherited from tank"},
};

constexpr std::string_view usage = "usage:\n\n\tget [-rHp] [-t type[,...]]\n";
constexpr std::string_view table = "\tPROPERTY  EDIT  INHERIT  VALUES\n\tquota YES NO <size>\n"
                                   "\tprojectquota@... YES NO <size>\n";
constexpr std::string_view status = "config:\n\n\tNAME   STATE\n\ttank   ONLINE\n"
                                    "\t  sda  ONLINE\n";

bool Has(const std::string& command, std::string_view text) {
    return command.find(text) != std::string::npos;
}

} // namespace

StateHost::StateHost(std::size_t datasets) {
    const auto add = [this](const std::string& name) {
        for (const StateRow& row : stateRows) {
            const std::string_view source =
                name == "tank" && row.source[0] == 'i' ? std::string_view("local") : row.source;
            skeleton.append(name).append("\t").append(row.property).append("\t");
            skeleton.append(source).append("\n");
            values.append(name).append("\t").append(row.property).append("\t");
            values.append(row.value).append("\t-\t").append(source).append("\n");
        }
    };
    add("tank");
    for (std::size_t i = 1; i < datasets; ++i)
        add("tank/export/project-" + std::to_string(100000 + i));
}

std::string StateHost::Answer(const std::string& command) const {
    if (Has(command, "-t filesystem,volume -o name,property,source"))
        return skeleton;
    if (Has(command, "-t filesystem,volume -o name,property,value"))
        return values;
    if (Has(command, "userspace"))
        return "POSIX Group\t0\t0\nPOSIX User\t0\t0\n";
    if (Has(command, " allow ") || Has(command, " -t snapshot") || Has(command, "projectspace"))
        return {};
    if (Has(command, "uname"))
        return "Linux host 6.1\n";
    if (Has(command, "date"))
        return "2026-11-23T08:55:07Z\n";
    if (Has(command, "get 2>&1"))
        return std::string(table);
    if (Has(command, "2>&1"))
        return std::string(usage);
    if (Has(command, "zpool status"))
        return std::string(status);
    if (Has(command, "zpool get"))
        return Has(command, "value") ? "tank\thealth\tONLINE\t-\n" : "tank\thealth\t-\n";
    return {};
}

} // namespace bench
