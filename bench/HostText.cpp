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

} // namespace bench
