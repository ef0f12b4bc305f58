#include "inspect/Json.h"
#include "tests/live/Host.h"
#include "util/str.h"
#include "zfstools/ZfsProperties.h"
#include "zfstools/Zpool.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <set>

namespace {

using inspect::Json;
using live::OutputOf;
using live::Quoted;
using testing::HasSubstr;

/// What a host can hold of file systems, volumes and snapshots, with every property set somewhere;
/// below the pool $p, with files in the folder $m.
constexpr const char* makeDatasets = R"(
set -e
key() { echo 12345678 | zfs create -o keyformat=passphrase "$@"; }

zfs create -o atime=off -o site:dept=ops $p/a
zfs create -o compression=zstd-3 $p/a/b
head -c 3500000 /dev/urandom >$m/a/b/data
head -c 70000 /dev/urandom >$m/a/b/more
zfs snapshot -o site:reason=nightly $p/a/b@one
zfs clone -o site:dept=lab $p/a/b@one $p/clone
zfs create -o checksum=sha256 -o copies=2 -o devices=off -o exec=off -o logbias=throughput \
    -o nbmand=on -o primarycache=metadata -o recordsize=16K -o secondarycache=none -o setuid=off \
    -o snapdir=visible -o sync=always -o vscan=on -o xattr=dir -o aclmode=groupmask \
    -o aclinherit=passthrough-x -o quota=123456789 -o refquota=1.5G -o reservation=3M \
    -o refreservation=5000000 $p/options
zfs create $p/options/child
zfs create -o aclmode=restricted -o casesensitivity=mixed -o utf8only=on -o version=4 $p/created
zfs create -o canmount=noauto -o sharenfs=rw=@192.0.2.0/24 -o sharesmb=on $p/shared
zfs create -o canmount=off -o readonly=on -o zoned=on $p/zoned
zfs create -o mountpoint=legacy $p/legacy
zfs create -o mountpoint="$m/with blank" $p/blank
zfs create -o mountpoint=none -o dedup=on $p/none
zfs create $p/temporary
mount -o remount,ro,noatime $m/temporary

key -o encryption=on $p/encrypted
zfs create $p/encrypted/child
key -o encryption=aes-192-ccm $p/locked
zfs unmount $p/locked
zfs unload-key $p/locked

zfs create -o dedup=on $p/dedup
head -c 300000 /dev/urandom | tee $m/dedup/a >$m/dedup/b
zfs snapshot $p/dedup@s
zfs send -p $p/dedup@s | zfs receive -o site:dept=copy $p/received

zfs create -V 16M $p/thick
zfs create -V 20000000 -s -b 4K -o site:dept=volumes $p/sparse 2>/dev/null || \
    zfs create -V 20M -s -b 4K -o site:dept=volumes $p/sparse
zfs snapshot $p/thick@s

long=$(printf '%0118d' 7)
zfs create -o site:from=far $p/$long
zfs create $p/$long/child

zfs create $p/quotas
zfs set userquota@0=1G userquota@65534=123456789 userquota@1002=3.3T userquota@4711=2.3G \
    userobjquota@4713=1000 groupquota@4712=1G groupquota@1000=10M $p/quotas

zfs create $p/user
zfs set site:dash=- site:blank='two words' site:ends=' ends ' site:equals=a=b,c:d \
    site:utf8=$(printf 'gr\303\274n') site:bytes=$(printf '\377\376x') \
    site:most=$(printf '%08191d' 0) $p/user
zfs create $p/user/child
zpool sync
)";

/// What is said of a host, by "OBJECT PROPERTY", "OBJECT PROPERTY source" and the like.
using Facts = std::map<std::string, std::string>;

/// What zfsinspect has to tell of a host, in the tools' exact numbers. Where docs/architecture.md
/// says that it tells something else, that stands here, and is counted by the limit.
struct Truth {
    Facts facts;
    std::map<std::string, unsigned> limits;
};

/// What `get all` prints of the properties that the library has members for, of the user properties
/// and of those that `zfsinspect` tells beside them. No value may hold a tab or a newline.
template <typename Properties>
void ReadProperties(Truth& truth, const std::string& command, const std::set<std::string>& beside) {
    static const std::set<std::string> refused = {"encryption aes-256-gcm", "aclmode restricted",
                                                  "version -"};
    std::map<std::string, bool> isFlag = {{"normalization", false}}; // no member, but told
    const Properties fresh;
    Properties::ForEach(fresh, [&](const auto& property) {
        isFlag[property.GetName()] = // "mounted" has the words yes and no
            std::is_same_v<std::decay_t<decltype(property.GetValue())>, bool> &&
            property.GetName() != "mounted";
    });
    for (const auto& row : live::RowsOf(command)) { // the object, the property, value and source
        const std::string &name = row.at(1), key = row[0] + " " + name;
        std::string value = row.at(2);
        const auto tellsOf = [&](const char* limit, const std::string& told) {
            ++truth.limits[limit];
            value = told;
        };
        const bool isUser = name.find(':') != std::string::npos;
        const std::vector<std::string> words = util::split(value);
        if (beside.count(name) != 0) {
            truth.facts[key] = value;
            continue;
        }
        if (!isUser && isFlag.count(name) == 0)
            continue;
        if (words.size() > 1) {
            ++truth.limits["a value with blanks is skipped"];
            continue;
        }
        const std::string text = isUser ? words.at(0) : value;
        const std::string utf8 =
            Json::parse(Json(text).dump(-1, ' ', false, Json::error_handler_t::replace));
        if (isUser && value == "-")
            tellsOf("\"-\" is no value", "");
        else if (text != value)
            tellsOf("blanks at the ends of a value are lost", text);
        else if (utf8 != value)
            tellsOf("JSON holds no bytes that are not UTF-8", utf8);
        else if (refused.count(name + " " + value) != 0)
            tellsOf("a word that is not known is told as failed", value + " (failed)");
        else if (!isUser && isFlag[name] && value != "on" && value != "off")
            tellsOf("of a property of on and off, every other word is off", "off");
        else if (value == "-")
            value = "";
        truth.facts[key] = value;
        truth.facts[key + " source"] = row.at(3);
    }
}

/// Of `root` with all below it, and of several pools, whose names divides a blank.
Truth ReadTruth(const std::string& root, const std::string& pools) {
    Truth truth;
    const std::string columns = " -Hp -o name,property,value,source all ";
    ReadProperties<zfslib::ZfsProperties>(truth, "zfs get -r" + columns + root,
                                          {"type", "used", "available", "usedbyrefreservation"});
    ReadProperties<zfslib::Zpool::Properties>(truth, "zpool get" + columns + pools,
                                              {"health", "size", "allocated"});
    for (const auto& row : live::RowsOf("zfs list -rH -o name -t all " + root))
        truth.facts[row[0] + " parent"] = row[0].substr(0, row[0].find_last_of("/@"));
    for (const auto& row : live::RowsOf("for name in $(zfs list -rH -o name -t filesystem " + root +
                                        "); do zfs userspace -Hpn -t all -o type,name,quota $name "
                                        "2>/dev/null | sed \"s|^|$name\t|\"; done"))
        if (row.at(3) != "-" && row.at(3) != "0" && row.at(3) != "none")
            truth.facts[row[0] + (row[1] == "POSIX User" ? " userquota@" : " groupquota@") +
                        row[2]] = row[3];
    return truth;
}

std::string TextOf(const Json& value) {
    return value.is_string() ? value.get<std::string>() : value.dump();
}

/// What zfsinspect tells of the same.
Facts FactsOf(const Json& datasets, const Json& pools) {
    Facts told;
    const auto addProperties = [&told](const std::string& object, const Json& properties) {
        for (const Json& property : properties) {
            const std::string key = object + " " + TextOf(property.at("name"));
            told[key] =
                TextOf(property.at("value")) + (property.value("failed", false) ? " (failed)" : "");
            if (property.contains("bytes"))
                told[key + " bytes"] = property.at("bytes").dump();
            if (!property.contains("source")) // a quota
                continue;
            const Json &source = property.at("source"), &parent = property.at("inheritedFrom");
            told[key + " source"] = (source.is_null() ? "" : TextOf(source)) +
                                    (parent.is_null() ? "" : " from " + TextOf(parent));
        }
    };
    const auto add = [&told](const std::string& key, const Json& value) {
        if (!value.is_null())
            told[key] = TextOf(value);
    };
    for (const Json& dataset : datasets.at("datasets")) {
        const std::string name = dataset.at("name");
        add(name + " type", dataset.at("type"));
        add(name + " used", dataset.at("used"));
        add(name + " available", dataset.at("available"));
        add(name + " usedbyrefreservation", dataset.at("usedByRefreservation"));
        told[name + " parent"] =
            dataset.at("parent").is_null() ? name : TextOf(dataset.at("parent"));
        for (const char* properties : {"properties", "userProperties", "quotas"})
            addProperties(name, dataset.at(properties));
    }
    for (const Json& pool : pools.at("pools")) {
        const std::string name = pool.at("name");
        add(name + " health", pool.at("state"));
        add(name + " size", pool.at("rawSize"));
        add(name + " allocated", pool.at("rawAllocated"));
        addProperties(name, pool.at("properties"));
    }
    return told;
}

/// A size as the tools print it, in bytes; nothing when it is none.
std::optional<double> BytesOf(const std::string& text) {
    if (text == "none" || text.empty())
        return 0;
    std::string_view rest = text;
    const auto number = util::ConsumeDouble(rest);
    static const std::string units = "BKMGTPE";
    const std::size_t power = rest.empty() ? 0 : units.find(rest.front());
    if (!number || rest.size() > 1 || power == std::string::npos)
        return std::nullopt;
    return std::ldexp(*number, static_cast<int>(10 * power));
}

/// "equal", "wrong", or "rounded": the tools print sizes with two, one or no decimals, so that
/// three digits are shown.
std::string Judge(const std::string& told, const std::string& exact) {
    const std::optional<double> size = BytesOf(told), bytes = BytesOf(exact);
    if (told == exact || (size && size == bytes))
        return "equal";
    double unit = 1;
    while (bytes && *bytes / unit >= 1024)
        unit *= 1024;
    if (!size || unit == 1)
        return "wrong";
    const double shown = std::max(*size, *bytes) / unit;
    const double step = shown < 10 ? 0.01 : shown < 100 ? 0.1 : 1;
    return std::abs(*size - *bytes) <= step / 2 * unit + 1 ? "rounded" : "wrong";
}

class OnRichHost : public testing::Test {
protected:
    static void SetUpTestSuite() {
        host = std::make_unique<live::Host>();
        const auto disks = [](unsigned count) { return host->Disks(count, 64); };
        const std::string offline = disks(1);
        pool = host->MakePool("rich",
                              "mirror" + offline + disks(1) + " raidz1" + disks(3) + " raidz2" +
                                  disks(4) + " raidz3" + disks(5) + disks(1) + " log mirror" +
                                  disks(2) + disks(1) + " cache" + disks(2) + " spare" + disks(2) +
                                  " special mirror" + disks(2) + " dedup" + disks(1),
                              "-f");
        otherPool = host->MakePool("other", disks(1) + disks(1),
                                   "-o failmode=continue -o autoexpand=on -R " +
                                       (host->Folder() / "alt").string());
        OutputOf("zpool offline " + pool + offline);
        OutputOf("p=" + pool + " m=" + Quoted(host->Folder() / "rich") + "\n" + makeDatasets);
    }
    static void TearDownTestSuite() { host.reset(); }

    static std::string Inspect(const std::string& arguments) {
        return OutputOf(Quoted(std::getenv("ZFSINSPECT")) + " " + arguments);
    }

    static std::string InspectDatasets() { return Inspect("--json datasets --properties " + pool); }

    static inline std::unique_ptr<live::Host> host;
    static inline std::string pool;
    static inline std::string otherPool;
};

TEST_F(OnRichHost, IsToldAsItIsAndWhatIsFalseIsFound) {
    const std::string pools = pool + " " + otherPool;
    Truth truth, before;
    Json datasets;
    Facts told;
    for (int attempt = 0; attempt == 0 || truth.facts != before.facts; ++attempt) {
        ASSERT_LT(attempt, 5) << "the host does not come to rest";
        before = ReadTruth(pool, pools);
        datasets = Json::parse(InspectDatasets());
        told = FactsOf(datasets, Json::parse(Inspect("--json pools --properties " + pools)));
        truth = ReadTruth(pool, pools);
    }
    std::map<std::string, unsigned> verdicts;
    for (const auto& [key, text] : told) {
        const std::string bytes = " bytes"; // of a value that was told as the tools print it, too
        const auto exact = truth.facts.find(util::str_is_finishes_with(key, bytes)
                                                ? key.substr(0, key.size() - bytes.size())
                                                : key);
        if (exact == truth.facts.end()) {
            ADD_FAILURE() << key << ": told [" << text << "], is absent";
            continue;
        }
        const std::string verdict = Judge(text, exact->second);
        ++verdicts[verdict];
        EXPECT_NE(verdict, "wrong")
            << key << ": told [" << text << "], is [" << exact->second << "]";
        EXPECT_EQ(Judge(text + "x", exact->second), "wrong") << key;
    }
    for (const auto& [key, text] : truth.facts)
        EXPECT_EQ(told.count(key), 1U) << key << ": is [" << text << "], not told";
    EXPECT_EQ(Judge("1.5K", "1540") + Judge("1.5K", "1543") + Judge("1022", "1023"),
              "roundedwrongwrong");
    std::cout << "\nlive: " << verdicts["equal"] << " equal, " << verdicts["rounded"] << " rounded";
    for (const auto& [limit, count] : truth.limits)
        std::cout << "\nlive:     " << count << " " << limit;
    std::cout << std::endl;
    EXPECT_GT(verdicts["equal"], 1500U); // a comparison of little would prove little
    EXPECT_GT(verdicts["rounded"], 30U);
    EXPECT_THAT(datasets.at("warnings"),
                testing::UnorderedElementsAre(HasSubstr("user quota for [" + pool + "/locked]"),
                                              HasSubstr("group quota for [" + pool + "/locked]")));
}

TEST_F(OnRichHost, RunsOfAllWaysAgree) {
    OutputOf("for n in $(seq 20); do zfs snapshot -r " + pool + "/a@$n || exit 1; done");
    const std::string show = " datasets --properties " + pool;
    const auto run = [&](const std::string& jobs) { // without the heads, which tell the time
        const std::string file = Quoted(host->Folder() / ("recording" + jobs));
        const std::string told = Inspect("--json --jobs " + jobs + " --record " + file + show);
        EXPECT_EQ(told, Inspect("--json --replay " + file + show));
        return told + OutputOf("grep -av '^.begin ' " + file);
    };
    const std::string one = run("1");
    EXPECT_TRUE(one == run("2")); // not EXPECT_EQ: it has megabytes
    EXPECT_TRUE(Inspect("--json --batch 0" + show) == one.substr(0, one.find("\n}\n") + 3));
    const std::string recording = Quoted(host->Folder() / "recording");
    const std::string pools = Inspect("--record " + recording + " pools --properties");
    EXPECT_EQ(pools, Inspect("--replay " + recording + " pools --properties"));
}

} // namespace
