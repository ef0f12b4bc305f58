#include "restore/HostState.h"
#include "restore/Plan.h"
#include "util/str.h"

#include <gmock/gmock.h>

#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace zfslib::restore;
using testing::ElementsAreArray;
using Lines = std::vector<std::string>;

ToolsState Tools() {
    ToolsState tools;
    tools.system = "Linux";
    tools.version = "zfs-2.3.9-1";
    tools.hasReceived = tools.hasObjectQuotas = tools.hasProjectQuotas = true;
    tools.zfsUsage = {{"create", "[-Pnpuv] <filesystem>"},
                      {"set", "[-u] <property=value> ... <filesystem|volume|snapshot> ..."},
                      {"inherit", "[-rS] <property> <filesystem|volume|snapshot> ..."}};
    for (const char* name :
         {"atime", "checksum", "compression", "devices", "exec", "longname", "mountpoint",
          "readonly", "recordsize", "relatime", "setuid", "sharenfs", "xattr", "zoned"})
        tools.datasetProperties[name] = {true, true, ""};
    for (const char* name : {"canmount", "keylocation", "quota", "refquota", "reservation",
                             "refreservation", "snapshot_limit", "version", "volsize"})
        tools.datasetProperties[name] = {true, false, ""};
    for (const char* name : {"casesensitivity", "encryption", "volblocksize"})
        tools.datasetProperties[name] = {false, true, ""};
    for (const char* name : {"guid", "used", "keyformat", "keystatus"})
        tools.datasetProperties[name] = {};
    return tools;
}

PropertySource SourceOf(std::string_view word) {
    if (util::str_is_starts_with(word, "inherited:"))
        return PropertySource::Inherited;
    return word == "local"       ? PropertySource::Local
           : word == "received"  ? PropertySource::Received
           : word == "default"   ? PropertySource::Default
           : word == "temporary" ? PropertySource::Temporary
                                 : PropertySource::None;
}

/// "altroot PATH", "feature NAME VALUE" and "other" of the pool, which is another then; "old" when
/// the tool mounts what it sets, and shares nothing by the way; "NAME [volume] [mounted] [key:ROOT]
/// [guid:NAME] [doubt]" for a dataset, and behind it, indented, "PROPERTY SOURCE VALUE [RECEIVED]",
/// "allow LINE" and "userquota@1 5". A snapshot holds "hold TAG", or "hold ?". "~" stands for a
/// blank.
HostState State(std::string_view text) {
    HostState state;
    const auto texts = std::make_shared<StateTexts>();
    state.tools = Tools();
    state.roots = {"tank"};
    PoolState& pool = state.pools.emplace_back();
    pool.name = "tank";
    pool.guid = "7";
    pool.health = "ONLINE";
    std::string permissions;
    while (!text.empty()) {
        const std::string_view line = util::ConsumeLine(text);
        std::vector<std::string> words = util::split(line);
        for (std::string& word : words)
            for (char& c : word)
                c = c == '~' ? ' ' : c;
        if (words.empty())
            continue;
        const bool isIndented = line.front() == ' ';
        if (!isIndented && words[0] == "altroot") {
            pool.altroot = texts->Keep(words[1]);
        } else if (!isIndented && words[0] == "feature") {
            pool.properties.push_back(texts->Make("feature@" + words[1], words[2], std::nullopt,
                                                  texts->Origin(PropertySource::Local)));
        } else if (!isIndented && words[0] == "other") {
            pool.guid = "8";
        } else if (!isIndented && words[0] == "old") {
            state.tools.zfsUsage["set"] = "<property=value> ... <filesystem>";
            state.tools.version.clear();
        } else if (!isIndented && words[0].find('@') != std::string::npos) {
            state.snapshots.emplace_back().name = texts->Keep(words[0]);
        } else if (!isIndented) {
            DatasetState& dataset = state.datasets.emplace_back();
            dataset.name = texts->Keep(words[0]);
            dataset.guid = dataset.name;
            for (const std::string& word : words) {
                if (word == "volume")
                    dataset.type = DatasetState::Type::Volume;
                dataset.isMounted = dataset.isMounted || word == "mounted";
                if (word == "doubt")
                    dataset.quotasDoubt = dataset.permissionsDoubt = "no key";
                if (util::str_is_starts_with(word, "guid:"))
                    dataset.guid = texts->Keep(word.substr(5));
                if (util::str_is_starts_with(word, "key:"))
                    dataset.encryptionRoot = texts->Keep(word.substr(4));
            }
            permissions.clear();
        } else if (words[0] == "hold") {
            if (words[1] == "?")
                state.snapshots.back().holdsDoubt = "a tab";
            else
                state.snapshots.back().holds.push_back(words[1]);
        } else if (words[0] == "allow") {
            permissions += words[1] == "+" ? "" : words[1] + "\n";
            permissions += words.size() > 2 ? "\t" + words[2] + "\n" : "";
            state.datasets.back().permissions = texts->Keep(permissions);
        } else if (words[0].find("quota@") != std::string::npos) {
            state.datasets.back().quotas.push_back(
                {words[0][0] == 'u' ? Quota::Owner::User : Quota::Owner::Group,
                 words[0].find("objquota") != std::string::npos,
                 words[0].substr(words[0].find('@') + 1), std::stoull(words[1])});
        } else {
            const PropertySource source = SourceOf(words[1]);
            const std::string from =
                source == PropertySource::Inherited ? words[1].substr(10) : std::string();
            std::optional<std::string_view> received;
            if (words.size() > 3)
                received = words[3];
            const PropertyValue value =
                texts->Make(words[0], words[2], received,
                            texts->Origin(source, from, words[1] == "doubtful" ? "torn" : ""));
            if (state.datasets.empty() ||
                (!state.snapshots.empty() &&
                 state.snapshots.back().name > state.datasets.back().name))
                state.snapshots.back().userProperties.push_back(value);
            else
                state.datasets.back().properties.push_back(value);
        }
    }
    state.texts = texts;
    return state;
}

/// The commands of a plan, without "zfs", and what it cannot do: "! tank/a quota: why".
/// With `needs`, " <0 2" stands behind a command that needs these steps.
Lines LinesOf(const Plan& plan, bool needs = false) {
    Lines lines;
    for (const Step& step : plan.steps) {
        std::string line = step.isPinned ? "pinned:" : "";
        for (std::size_t i = 1; i < step.words.size(); ++i)
            line += (line.empty() ? "" : " ") + step.words[i];
        for (std::size_t i = 0; needs && i < step.needs.size(); ++i)
            line += (i == 0 ? " <" : " ") + util::str(step.needs[i]);
        lines.push_back(line);
    }
    for (const Cannot& cannot : plan.cannot)
        lines.push_back("! " + cannot.object + " " + cannot.property);
    for (const Mention& mention : plan.mentioned)
        lines.push_back("? " + mention.object);
    return lines;
}

struct Case {
    const char* what;
    const char* saved;
    const char* live;
    Lines expected;
};

void Check(const std::vector<Case>& cases, bool needs = false) {
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        LiveState live;
        live.state = State(test.live);
        for (const SnapshotState& snapshot : live.state.snapshots)
            live.snapshots.emplace_back(snapshot.name);
        EXPECT_THAT(LinesOf(MakePlan(State(test.saved), live), needs),
                    ElementsAreArray(test.expected));
    }
}

TEST(Plan, SetsAndInheritsWhatDiffers) {
    Check({
        {"nothing differs",
         "tank\n atime local off\n u:x local a~b\n used - 1\ntank/a\n atime inherited:tank off\n",
         "tank\n atime local off\n u:x local a~b\n used - 2\ntank/a\n atime inherited:tank off\n",
         {}},
        {"equal in other words",
         "tank\n compression local gzip-6\n quota local 0\n snapshot_limit default none\n"
         " xattr local on\n mountpoint local /x/\n",
         "tank\n compression local gzip\n quota default 0\n"
         " snapshot_limit default 18446744073709551615\n xattr local sa\n mountpoint local /x\n",
         {}},
        {"was local",
         "tank\n atime local off\ntank/a\n atime local off\n recordsize local 8\ntank/b\n"
         " u:n local two~words\n",
         "tank\n atime default on\ntank/a\n atime inherited:tank off\n recordsize temporary 8\n"
         "tank/b\n",
         {"set atime=off tank", "set atime=off tank/a", "set recordsize=8 tank/a",
          "set u:n=two words tank/b"}},
        {"was default or inherited",
         "tank\n atime default on\n recordsize default 1\ntank/a\n atime default on\n"
         " recordsize default 1\n",
         "tank\n atime local off\n recordsize default 1\ntank/a\n atime received on on\n"
         " recordsize temporary 2\n u:n local 1\n",
         {"inherit atime tank", "inherit atime tank/a", "inherit recordsize tank/a",
          "inherit u:n tank/a"}},
        {"inherited through what has no step of its own",
         "tank\n atime default on\ntank/a\n atime default on\ntank/a/b\n atime default on\n",
         "tank\n atime local off\ntank/a\n atime inherited:tank off\ntank/a/b\n"
         " atime inherited:tank off\n",
         {"inherit atime tank"}},
        {"a name like an option",
         "tank\n -u:x local 1\n",
         "tank\n -u:y local 1\n",
         {"set -- -u:x=1 tank", "inherit -- -u:y tank"}},
        {"what is not handed down is not inherited by the way",
         "tank\n reservation local 2\ntank/a\n reservation local 1\n",
         "tank\n reservation default 0\ntank/a\n reservation default 0\n",
         {"set reservation=2 tank", "set reservation=1 tank/a"}},
        {"received",
         "tank\n atime received off off\n u:a received 1 1\n u:b received 1 1\n u:c local 2 1\n "
         "u:d received 1 1\n quota received 5 5\n",
         "tank\n atime local on off\n u:a inherited:x 1\n u:b local 1\n u:c local 2 1\n"
         " u:d local 2 3\n quota local 5 5\n",
         {"inherit -S atime tank", "set u:a=1 tank", "set u:d=1 tank", "inherit -S quota tank",
          "! tank u:a", "! tank u:b", "! tank u:d"}},
        {"another origin of the same value",
         "tank\n atime inherited:up on\n",
         "tank\n atime default on\n",
         {}},
        {"another default",
         "tank\n atime default on\n",
         "tank\n atime default off\n",
         {"! tank atime"}},
        {"not certain, or of a mount option",
         "tank\n atime doubtful on\n recordsize temporary 8\n u:n local 1\n",
         "tank\n atime local off\n recordsize local 1\n u:n doubtful 2\n",
         {"! tank atime", "! tank recordsize", "! tank u:n"}},
        {"only creation sets it",
         "tank\n casesensitivity - mixed\n nosuch local 1\n nobody default 1\n",
         "tank\n casesensitivity - sensitive\n",
         {"! tank casesensitivity", "! tank nosuch"}},
        {"not handed down",
         "tank\n canmount default on\n quota default 0\n refquota local 7\n",
         "tank\n canmount local off\n quota local 5\n refquota received 6 6\n",
         {"inherit -S quota tank", "set refquota=7 tank", "inherit -S canmount tank"}},
        {"received below what is not handed down",
         "tank\n quota default 0\n refquota received 5 5\n",
         "tank\n quota received 5 5\n refquota local 4\n",
         {"set quota=none tank", "set refquota=5 tank", "! tank refquota"}},
        {"a feature is lacking",
         "tank\n compression local zstd-3\ntank/e key:tank/e\n encryption - aes\n",
         "feature zstd_compress disabled\nfeature encryption disabled\n"
         "tank\n compression default on\n",
         {"! tank/e encryption", "! tank compression"}},
        {"a feature is lacking, or is not known",
         "tank\n checksum local blake3\n longname local on\ntank/v volume\n volsize - 1048576\n "
         "volblocksize - 1048576\n",
         "feature async_destroy enabled\nfeature large_blocks disabled\n"
         "tank\n checksum default on\n longname default off\n",
         {"! tank/v volblocksize", "! tank checksum", "! tank longname"}},
        {"versions go up",
         "tank\n version - 5\ntank/a\n version - 4\n",
         "tank\n version - 4\ntank/a\n version - 5\n",
         {"set version=5 tank", "! tank/a version"}},
    });
}

TEST(Plan, CreatesWhatIsMissing) {
    Check({
        {"parents first, with what only creation sets",
         "tank\ntank/a mounted\n casesensitivity - mixed\n version - 4\n atime local off\n"
         " quota default 0\n canmount default on\ntank/a/v volume\n volsize local 64\n"
         " volblocksize - 8\n refreservation local 70\ntank/b~b\n",
         "tank\ntank/other\ntank/other/x\ntank/other2\n",
         {"create -u -o casesensitivity=mixed -o version=4 tank/a",
          "create -s -V 64 -o volblocksize=8 tank/a/v", "create -u tank/b b",
          "set atime=off tank/a", "set refreservation=70 tank/a/v", "mount tank/a", "! tank/a guid",
          "! tank/a/v guid", "! tank/b b guid", "? tank/other", "? tank/other2"}},
        {"encryption",
         "tank\ntank/e key:tank/e\n encryption - aes\n keyformat - raw\n keylocation local prompt\n"
         "tank/e/c key:tank/e\n encryption - aes\n keyformat - raw\ntank/e/d key:tank/e\n"
         " encryption - other\ntank/e/plain\n encryption default off\n",
         "tank\n",
         {"create -u -o encryption=aes -o keyformat=raw -o keylocation=prompt tank/e",
          "create -u tank/e/c", "create -u -o encryption=other tank/e/d",
          "create -u -o encryption=off tank/e/plain", "! tank/e guid", "! tank/e/c guid",
          "! tank/e/d guid", "! tank/e/plain guid"}},
        {"with another key than it had",
         "tank\ntank/e key:tank/e\ntank/e/c key:tank/e\n encryption - aes\n",
         "tank key:tank\n encryption - aes\ntank/e key:tank\n encryption - aes\n",
         {"create -u tank/e/c", "! tank/e/c encryptionroot", "! tank/e encryptionroot",
          "! tank/e/c guid"}},
        {"never without the encryption it had, or with a size that nobody knows",
         "tank\ntank/e key:tank/e\ntank/e/c key:tank/e\ntank/k\n keysource local raw\n"
         "tank/v volume\n volsize doubtful 64\n",
         "tank\ntank/e\n encryption - off\n",
         {"! tank/e/c encryptionroot", "! tank/k keysource", "! tank/v volsize"}},
        {"another type, and what is below it",
         "tank\ntank/a volume\ntank/b\ntank/b/c\n",
         "tank\ntank/a\ntank/b volume\n",
         {"! tank/a type", "! tank/b type", "! tank/b/c "}},
        {"renamed",
         "tank\ntank/a\n",
         "tank\ntank/b guid:tank/a\n",
         {"create -u tank/a", "! tank/a guid", "? tank/a", "? tank/b"}},
    });
}

TEST(Plan, MovesEachQuotaAgainstItsReservation) {
    const auto host = [](unsigned quota, unsigned reservation) {
        return State("tank\n quota local " + util::str(quota) + "\n reservation local " +
                     util::str(reservation) + "\n");
    };
    unsigned moves = 0;
    for (unsigned from = 0; from < 16; ++from)
        for (unsigned to = 0; to < 16; ++to) {
            unsigned quota = from / 4;
            unsigned reservation = from % 4;
            const auto isLegal = [&] { return quota == 0 || reservation <= quota; };
            if (!isLegal() || (to / 4 != 0 && to % 4 > to / 4))
                continue;
            LiveState live;
            live.state = host(quota, reservation);
            for (const Step& step : MakePlan(host(to / 4, to % 4), live).steps) {
                (step.property == "quota" ? quota : reservation) =
                    static_cast<unsigned>(step.willBe->front() - '0');
                EXPECT_TRUE(isLegal()) << from << " to " << to;
                ++moves;
            }
            EXPECT_EQ(quota * 4 + reservation, to);
        }
    EXPECT_GT(moves, 100U);
}

TEST(Plan, OrdersLimits) {
    Check({
        {"reservations down, quotas up, reservations up, quotas down",
         "tank\n quota local 9\ntank/a\n quota local 8\n reservation local 7\ntank/b\n quota local "
         "1\n"
         " reservation default 0\n",
         "tank\n quota local 5\ntank/a\n quota local 2\n reservation default 0\ntank/b\n"
         " quota default 0\n reservation local 4\n",
         {"inherit -S reservation tank/b", "set quota=9 tank", "set quota=8 tank/a",
          "set reservation=7 tank/a", "set quota=1 tank/b"}},
        {"a size, and the reservation with it; read-only for a while no more",
         "tank\ntank/v volume\n volsize local 64\n refreservation default 0\n readonly local on\n",
         "tank\ntank/v volume\n volsize local 32\n refreservation local 33\n readonly local on\n",
         {"inherit -S refreservation tank/v", "set readonly=off tank/v",
          "set volsize=64 refreservation=none tank/v", "set readonly=on tank/v"}},
        {"read-only, and nobody knows why",
         "tank\ntank/v volume\n volsize local 64\n readonly doubtful on\ntank/w volume\n"
         " volsize local 64\n",
         "tank\ntank/v volume\n volsize local 32\n readonly local on\ntank/w volume\n"
         " volsize doubtful 32\n",
         {"! tank/v volsize", "! tank/w volsize", "! tank/v readonly"}},
        {"thick on the same devices",
         "tank\ntank/v volume\n volsize local 64\n refreservation local 70\n",
         "tank\ntank/v volume\n volsize local 64\n refreservation local 66\n",
         {"set refreservation=70 tank/v"}},
        {"thick here and there; nothing is cut off",
         "tank\ntank/v volume\n volsize local 64\n refreservation local 70\ntank/w volume\n"
         " volsize local 1\n refreservation local 2\n",
         "other\ntank\ntank/v volume\n volsize local 64\n refreservation local 66\ntank/w volume\n"
         " volsize local 2\n refreservation local 3\n",
         {"! tank/w volsize", "? tank", "? tank/v"}},
    });
}

TEST(Plan, MountsWhatWasMounted) {
    Check({
        {"a tree that moves goes and comes in the order of its places",
         "tank mounted\n mountpoint local /new\ntank/a mounted\n mountpoint inherited:tank /new/a\n"
         "tank/b mounted\n mountpoint local /x\ntank/c mounted\n mountpoint local /x/c\n",
         "tank mounted\n mountpoint local /zold\ntank/a mounted\n mountpoint inherited:tank "
         "/zold/a\n"
         "tank/b mounted\n mountpoint local /y\ntank/c mounted\n mountpoint local /x/c\n"
         "tank/z mounted\n mountpoint inherited:tank /zold/z\n",
         {"unmount tank/z", "unmount tank/a", "unmount tank/b", "unmount tank/c", "unmount tank",
          "set -u mountpoint=/new tank", "set -u mountpoint=/x tank/b", "mount tank",
          "mount tank/a", "mount tank/z", "mount tank/b", "mount tank/c", "? tank/z"}},
        {"what is below by name goes along, wherever it is mounted, but for legacy mounts",
         "tank mounted\n mountpoint local /new\ntank/k mounted\n mountpoint local legacy\n"
         "tank/z mounted\n mountpoint local /a\ntank/z/y mounted\n mountpoint local /0\n",
         "tank mounted\n mountpoint local /old\ntank/k mounted\n mountpoint local legacy\n"
         "tank/l mounted\n mountpoint local legacy\ntank/z mounted\n mountpoint local /a\n"
         "tank/z/y mounted\n mountpoint local /0\n",
         {"unmount tank/z/y", "unmount tank/z", "unmount tank", "set -u mountpoint=/new tank",
          "mount tank/z/y", "mount tank/z", "mount tank", "? tank/l"}},
        {"together, where what is below by name is above by its place",
         "tank mounted\n mountpoint local /n\ntank/c mounted\n mountpoint local /p\n",
         "tank mounted\n mountpoint local /p/q\ntank/c mounted\n mountpoint local /p\n",
         {"unmount tank", "set -u mountpoint=/n tank", "mount tank", "mount tank/c"}},
        {"a mount option goes with its mount",
         "tank mounted\n mountpoint local /t\n atime temporary off\n",
         "tank mounted\n mountpoint local /u\n atime temporary off\n",
         {"unmount tank", "set -u mountpoint=/t tank", "mount tank", "! tank atime"}},
        {"to go back to a received mount point would mount by the way",
         "tank\n mountpoint received /r /r\n canmount default on\n",
         "tank\n mountpoint local /t /r\n canmount default on\n",
         {"set -u canmount=noauto tank", "inherit -S mountpoint tank", "inherit -S canmount tank"}},
        {"zoned again before anything is mounted, read-only behind it; what is mounted is shared",
         "tank mounted\n mountpoint local /t\n sharenfs local on\n readonly local on\ntank/s\n"
         " zoned local on\n sharenfs inherited:tank on\ntank/z mounted\n zoned local on\n"
         " mountpoint local /z\n",
         "tank\n mountpoint local /t\n sharenfs default off\n readonly default off\ntank/s\n"
         " zoned local on\n sharenfs local ro\ntank/z\n zoned local on\n mountpoint local /y\n",
         {"set zoned=off tank/s", "set zoned=off tank/z", "set -u mountpoint=/z tank/z",
          "set -u sharenfs=on tank", "inherit sharenfs tank/s", "set zoned=on tank/s",
          "set zoned=on tank/z", "mount tank", "set readonly=on tank", "? tank/z"}},
        {"nothing is mounted by shares by the way",
         "tank mounted\n sharenfs local on\n mountpoint local /t\ntank/a mounted\n"
         " mountpoint inherited:tank /t/a\n canmount default on\n sharenfs inherited:tank on\n",
         "tank mounted\n sharenfs default off\n mountpoint local /t\ntank/a mounted\n"
         " mountpoint local /x\n canmount default on\n sharenfs local ro\n",
         {"unmount tank/a", "set -u canmount=noauto tank/a", "inherit mountpoint tank/a",
          "set -u canmount=on tank/a", "mount tank/a", "set sharenfs=on tank",
          "inherit sharenfs tank/a"}},
        {"not over the host's root, and that is not unmounted",
         "tank mounted\n mountpoint local /\ntank/a\n mountpoint local /\ntank/b mounted\n"
         " mountpoint local /b\ntank/c mounted\n mountpoint local /c\n",
         "tank\n mountpoint local /\ntank/a mounted\n mountpoint local /\ntank/b\n"
         " mountpoint local /b\ntank/c mounted\n mountpoint local /c\n",
         {"! tank/a mounted", "! tank mounted", "! tank/b mounted"}},
        {"nor what goes with that root in other pools, but below an altroot",
         "bp/boot mounted\n mountpoint local /etc\nrp/root mounted\n mountpoint local /\n"
         "tank mounted\n mountpoint local /t\n",
         "altroot /mnt\nbp/boot\n mountpoint local /etc\nrp/root\n mountpoint local /\n"
         "tank\n mountpoint local /mnt/t\n",
         {"mount tank", "! bp/boot mounted", "! rp/root mounted"}},
        {"places without the altroot",
         "altroot /a\ntank mounted\n mountpoint local /a\ntank/b mounted\n mountpoint local /a/b\n",
         "altroot /x\ntank mounted\n mountpoint local /x\ntank/b mounted\n mountpoint local /x/c\n",
         {"unmount tank/b", "set -u mountpoint=/b tank/b", "mount tank/b"}},
        {"no longer in a zone",
         "tank mounted\n zoned default off\n mountpoint local /t\n",
         "tank\n zoned local on\n mountpoint local /t\n",
         {"inherit zoned tank", "mount tank"}},
        {"what closes comes first",
         "tank\n sharenfs local on\n readonly default off\ntank/a\n sharenfs local off\n"
         " readonly local on\n",
         "tank\n sharenfs default off\n readonly local on\ntank/a\n sharenfs default off\n"
         " readonly inherited:tank on\n",
         {"set -u sharenfs=off tank/a", "set readonly=on tank/a", "set -u sharenfs=on tank",
          "inherit readonly tank"}},
        {"mounts follow what they inherit",
         "tank\n readonly default off\n atime default on\n relatime default on\ntank/a mounted\n"
         " readonly default off\n atime default on\n relatime default on\n mountpoint local /a\n"
         "tank/b\n readonly local on\ntank/b/c mounted\n readonly inherited:tank/b on\n"
         " mountpoint local /c\n",
         "tank\n readonly local on\n atime local off\n relatime local off\ntank/a mounted\n"
         " readonly inherited:tank on\n atime inherited:tank off\n relatime inherited:tank off\n"
         " mountpoint local /a\ntank/b\n readonly local off\ntank/b/c "
         "mounted\n"
         " readonly inherited:tank/b off\n mountpoint local /c\n",
         {"inherit atime tank", "inherit relatime tank", "inherit atime tank/a",
          "inherit relatime tank/a", "inherit readonly tank", "inherit readonly tank/a",
          "set readonly=on tank/b", "inherit readonly tank/b/c"}},
        {"mounted by others",
         "tank mounted\n mountpoint local /t\n",
         "tank mounted\n mountpoint local legacy\n",
         {"set -u mountpoint=/t tank", "! tank mounted"}},
        {"a running zone is left alone",
         "tank\n atime local on\n zoned local on\n mountpoint local /t\n sharenfs local on\n"
         "tank/a\n mountpoint local /a\ntank/d\n zoned doubtful on\n mountpoint local /d\n",
         "tank mounted\n atime local off\n zoned local on\n mountpoint local /u\n"
         " sharenfs default off\ntank/a\n mountpoint local /b\ntank/a/z\n zoned local on\n"
         " mountpoint inherited:tank/a /b/z\ntank/d\n zoned local on\n mountpoint local /e\n",
         {"set atime=on tank", "! tank mountpoint", "! tank/d mountpoint", "! tank/a mountpoint",
          "! tank/d zoned", "? tank/a/z"}},
        {"mounted now, and was not",
         "tank\n mountpoint local /t\n",
         "tank mounted\n mountpoint local /t\n",
         {"unmount tank"}},
        {"what has canmount=off, which a stream may bring, stays mounted, and is not mounted",
         "tank\n atime local on\ntank/a mounted\n canmount local off\n mountpoint local /a\n"
         "tank/b mounted\n canmount local off\n mountpoint local /b\n",
         "tank\n atime local off\ntank/a mounted\n canmount local off\n mountpoint local /a\n"
         "tank/b\n canmount local off\n mountpoint local /b\n",
         {"set atime=on tank", "! tank/b mounted"}},
        {"others have to mount it",
         "tank mounted\n mountpoint local legacy\ntank/a mounted\n mountpoint local legacy\n"
         "tank/z mounted\n zoned local on\n mountpoint local /z\n",
         "tank\n mountpoint local legacy\ntank/a mounted\n mountpoint local /a\n"
         "tank/z mounted\n zoned local off\n mountpoint local /z\n",
         {"unmount tank/z", "unmount tank/a", "set -u mountpoint=legacy tank/a",
          "set zoned=on tank/z", "? tank", "? tank/a", "? tank/z"}},
    });
}

TEST(Plan, NeedsWhatHasToComeFirst) {
    const std::vector<Case> cases = {
        {"features",
         "feature large_blocks enabled\nfeature encryption enabled\nfeature userobj_accounting "
         "enabled\ntank\n recordsize local 1048576\n userobjquota@1 5\ntank/v volume key:tank/v\n"
         " volsize - 1048576\n volblocksize - 1048576\n encryption - aes\n",
         "feature large_blocks disabled\nfeature encryption disabled\nfeature userobj_accounting "
         "disabled\ntank\n recordsize default 131072\n",
         {"set feature@large_blocks=enabled tank", "set feature@encryption=enabled tank",
          "set feature@userobj_accounting=enabled tank",
          "create -s -V 1048576 -o volblocksize=1048576 -o encryption=aes tank/v <0 1",
          "set recordsize=1048576 tank <0", "set userobjquota@1=5 tank <2", "! tank/v guid"}},
        {"to inherit a mount point would mount by the way",
         "tank\n mountpoint default /tank\n canmount default on\ntank/a mounted\n"
         " mountpoint default /tank/a\n canmount default on\ntank/new\n canmount default on\n",
         "tank\n mountpoint local /t\n canmount default on\ntank/a mounted\n"
         " mountpoint inherited:tank /t/a\n canmount local on\n"
         "tank/x\n mountpoint inherited:tank /t/x\n canmount default on\n"
         "tank/x/x\n mountpoint inherited:tank /t/x/x\n canmount local on\n"
         "tank/y\n mountpoint inherited:tank /t/y\n canmount local off\n"
         "tank/z\n mountpoint local /z\n canmount default on\n"
         "tank/z/z\n mountpoint inherited:tank/z /z/z\n canmount default on\n",
         {"create -u tank/new",
          "unmount tank/a",
          "set -u canmount=noauto tank",
          "set -u canmount=noauto tank/a",
          "set -u canmount=noauto tank/x",
          "set -u canmount=noauto tank/x/x",
          "set -u canmount=noauto tank/new <0",
          "inherit mountpoint tank <2 3 4 5 6",
          "inherit -S canmount tank",
          "inherit -S canmount tank/a",
          "inherit -S canmount tank/new <0",
          "inherit -S canmount tank/x",
          "set -u canmount=on tank/x/x",
          "mount tank/a <1 7",
          "! tank/new guid",
          "? tank/x",
          "? tank/x/x",
          "? tank/x",
          "? tank/y",
          "? tank/z"}},
        {"a tool that does more than to record, and shares when it is told",
         "tank mounted\n mountpoint local /t\n canmount default on\ntank/b mounted\n"
         " mountpoint local /b\n canmount default on\n sharenfs local on\n",
         "old\ntank\n mountpoint local /x\n canmount default on\n",
         {"create -o canmount=noauto tank/b", "set canmount=noauto tank",
          "set mountpoint=/t tank <1", "set mountpoint=/b tank/b <0", "mount tank/b <0 2 3",
          "mount tank <2", "inherit -S canmount tank", "inherit -S canmount tank/b <0",
          "set sharenfs=on tank/b <0", "share tank/b <0 4", "! tank/b guid"}},
        {"keys, for what is made, what gets its key from above and what is mounted",
         "tank\ntank/e mounted key:tank/e\n keystatus - available\n mountpoint local /e\n"
         " encryption - aes\n keylocation local prompt\ntank/e/c mounted key:tank/e\n"
         " keystatus - available\n mountpoint local /c\ntank/e/n key:tank/e\n"
         "tank/e/o key:tank/e\ntank/f/c mounted key:tank/f\n keystatus - available\n"
         " mountpoint local /f/c\ntank/f/c/m key:tank/f\ntank/g mounted\n"
         " mountpoint local /f/c/g\ntank/h mounted\n mountpoint local /f/c/h\n",
         "tank\ntank/e key:tank/e\n keystatus - unavailable\n mountpoint local /e\n"
         " encryption - aes\n keylocation local file:///gone\ntank/e/c key:tank/e\n"
         " keystatus - unavailable\n mountpoint local /c\n"
         "tank/e/o key:tank/e/o\n keystatus - unavailable\ntank/f key:tank/f\n"
         " keystatus - unavailable\ntank/f/c key:tank/f\n keystatus - unavailable\n encryption - "
         "aes\n"
         " mountpoint local /f/c\ntank/g\n mountpoint local /f/c/g\ntank/h mounted\n"
         " mountpoint local /f/c/h\n",
         {"set keylocation=prompt tank/e", "load-key tank/e <0", "create -u tank/e/n <1",
          "load-key tank/e/o", "change-key -i tank/e/o <1 3", "mount tank/e/c <1",
          "mount tank/e <1", "! tank/f/c/m ", "! tank/e/n guid", "! tank/f/c keystatus",
          "! tank/f/c mounted", "! tank/g mounted", "? tank/f"}},
        {"a folder in what is read-only",
         "tank mounted\n mountpoint local /t\n readonly local on\ntank/a mounted\n"
         " mountpoint inherited:tank /t/a\n readonly inherited:tank on\ntank/b mounted\n"
         " mountpoint local /t/b\n readonly inherited:tank on\ntank/c mounted\n"
         " mountpoint local /t/b/c\n readonly local on\ntank/d mounted\n mountpoint local /o/d\n",
         "tank mounted\n mountpoint local /t\n readonly local on\ntank/a mounted\n"
         " mountpoint local /x\n readonly inherited:tank on\ntank/a/n mounted\n"
         " mountpoint inherited:tank/a /x/n\n readonly inherited:tank on\ntank/b mounted\n"
         " mountpoint local /t/b\n readonly inherited:tank on\ntank/c guid:new\n mountpoint local "
         "/t/b/c\n"
         " readonly local on\ntank/d\n mountpoint local /d\n"
         "tank/o mounted\n mountpoint local /o\n readonly local on\n",
         {"unmount tank/a/n", "unmount tank/a", "inherit mountpoint tank/a <1",
          "set -u mountpoint=/o/d tank/d", "set readonly=off tank", "set readonly=off tank/b",
          "mount tank/a <1 2 4", "mount tank/a/n <0 6", "mount tank/c <5", "set readonly=on tank",
          "inherit readonly tank/a", "inherit readonly tank/b", "inherit readonly tank/a/n <7",
          "! tank/c guid", "! tank/d mounted", "? tank/a/n", "? tank/o"}},
        {"a key in a file of what is mounted first; a loop",
         "tank\ntank/d mounted key:tank/d\n keystatus - available\n mountpoint local /d\n"
         " keylocation local file:///d/x/k\ntank/d/x mounted\n mountpoint local /d/x\n"
         "tank/e mounted key:tank/e\n keystatus - available\n mountpoint local /e\n"
         " keylocation local file:///k/e/key\ntank/e/o key:tank/e\ntank/e/p mounted\n"
         " mountpoint local /e/p\ntank/f key:tank/f\n keystatus - available\n encryption - aes\n"
         " keylocation local file:///k/key\ntank/k mounted\n mountpoint local /k\n",
         "tank\ntank/d key:tank/d\n keystatus - unavailable\n mountpoint local /d\n"
         " keylocation local file:///d/x/k\ntank/d/x\n mountpoint local /d/x\n"
         "tank/e key:tank/e\n keystatus - unavailable\n encryption - aes\n mountpoint local /e\n"
         " keylocation local prompt\ntank/e/p\n mountpoint local /e/p\ntank/k\n"
         " mountpoint local /k\n",
         {"create -u -o encryption=aes -o keylocation=file:///k/key tank/f",
          "set keylocation=file:///k/e/key tank/e", "mount tank/k", "load-key tank/e <1 2",
          "mount tank/e <1 3", "mount tank/e/p <1 4", "! tank/e/o ", "! tank/f guid",
          "! tank/d mounted", "! tank/d/x mounted", "! tank/d keystatus"}},
        {"what stands below a place where one goes or comes",
         "tank\ntank/a mounted\n mountpoint local /x\ntank/b mounted\n mountpoint local /x/b\n"
         "tank/c mounted\n mountpoint local /y/c\ntank/d mounted\n mountpoint local /w\n"
         "tank/d/e mounted\n mountpoint local /k\ntank/f mounted\n mountpoint local /k/f\n",
         "tank\ntank/a mounted\n mountpoint local /y\ntank/b mounted\n mountpoint local /x/b\n"
         "tank/c mounted\n mountpoint local /y/c\ntank/d mounted\n mountpoint local /z\n"
         "tank/d/e mounted\n mountpoint local /k\ntank/f mounted\n mountpoint local /k/f\n",
         {"unmount tank/f", "unmount tank/d/e", "unmount tank/d", "unmount tank/c",
          "unmount tank/a", "unmount tank/b", "set -u mountpoint=/x tank/a <4",
          "set -u mountpoint=/w tank/d <2", "mount tank/d/e <0 1 7", "mount tank/f <0 8",
          "mount tank/d <2 7", "mount tank/a <4 5 6", "mount tank/b <5 11", "mount tank/c <3"}},
        {"nothing is mounted unguarded, or in a wrong place",
         "tank\n mountpoint local /t\n setuid local off\n exec local off\n devices local off\n"
         " sharenfs local ro\ntank/a mounted\n mountpoint inherited:tank /t/a\n setuid "
         "inherited:tank off\n",
         "tank\n mountpoint local /o\n setuid default on\n sharenfs default off\ntank/a\n"
         " mountpoint inherited:tank /o/a\n setuid local on\n",
         {"set setuid=off tank", "set exec=off tank", "set devices=off tank",
          "inherit setuid tank/a", "set -u mountpoint=/t tank", "set -u sharenfs=ro tank",
          "mount tank/a <0 1 2 3 4 5"}},
    };
    Check(cases, true);
}

TEST(Plan, CoversNothing) {
    const HostState saved = State("tank mounted\n mountpoint local /t\n");
    LiveState live;
    live.state = State("tank\n mountpoint local /t\n");
    for (const auto& [path, isCovered] : std::map<std::string, bool>{
             {"/t", true}, {"/t/x", true}, {"/t@x", false}, {"/", false}, {"/tx", false}}) {
        live.mounts = {{"other", path}, {"next", "/t-"}};
        const Lines covered = {"! tank mounted"};
        EXPECT_EQ(LinesOf(MakePlan(saved, live)), isCovered ? covered : Lines{"mount tank"})
            << path;
    }
    // Nor is anything unmounted below which others are: by their places, nor by their names.
    live.state = State("tank mounted\n mountpoint local /y\ntank/a mounted\n mountpoint local /u\n"
                       "tank/a/b mounted\n mountpoint local /w\ntank/c mounted\n"
                       " mountpoint inherited:tank /y/c\ntank/d mounted\n mountpoint local /d\n");
    live.mounts = {{"other", "/w/x"}, {"tank/d", "/dd"}, {"else", "/dd/x"}};
    EXPECT_EQ(LinesOf(MakePlan(State("tank\n mountpoint local /y\ntank/a mounted\n mountpoint "
                                     "local /v\ntank/a/b mounted\n"
                                     " mountpoint local /w\ntank/c\n mountpoint local /c\n"
                                     "tank/d mounted\n mountpoint local /d\n"),
                               live)),
              (Lines{"unmount tank/c", "set -u mountpoint=/c tank/c", "! tank/a mountpoint",
                     "! tank mounted", "! tank/d mounted"}));
    live.mounts.clear();
    // Where it is mounted counts, not where it would be.
    live.state = State("tank mounted\n mountpoint local /t\n");
    live.mounts = {{"tank", ""}}; // more than once
    EXPECT_TRUE(MakePlan(saved, live).IsEmpty());
    live.mounts = {{"tank", "/t/old"}};
    EXPECT_EQ(LinesOf(MakePlan(saved, live)), (Lines{"unmount tank", "mount tank"}));
}

TEST(Plan, GivesBackWhatIsNoPropertyOfADataset) {
    Check({
        {"quotas by number",
         "tank\n userquota@1 5\n groupquota@2 6\n userquota@S-1-5 7\n",
         "tank\n userquota@1 4\n userquota@3 1\n",
         {"set userquota@1=5 tank", "set groupquota@2=6 tank", "set userquota@3=none tank",
          "! tank userquota@S-1-5"}},
        {"what could not be read",
         "tank doubt\ntank/a\n userquota@1 5\n",
         "tank\ntank/a doubt\n",
         {"! tank quotas of users", "! tank permissions", "! tank/a quotas of users"}},
        {"permissions",
         "tank\n allow Permission~sets: @s~mount\n allow Local~permissions: user~a~mount,send\n"
         " allow + user~(unknown:~42)~send\n allow Local+Descendent~permissions: everyone~@s\n"
         " allow + group~staff~group~send\n allow + user~b~send\n"
         " allow Create~time~permissions: mount\n allow Descendent~permissions: group~g~send\n",
         "tank\n allow Local~permissions: user~a~create,send\n"
         " allow Local+Descendent~permissions: user~b~send\n",
         {"allow -c mount tank", "allow -d -g g send tank", "allow -e @s tank",
          "allow -l -u 42 send tank", "allow -l -u a mount tank", "allow -s @s mount tank",
          "! tank permissions", "? tank"}},
        {"a number that had no name",
         "tank\n allow Local~permissions: user~(unknown:~42)~send\n"
         " allow + group~(unknown:~42)~hold\n",
         "tank\n allow Local~permissions: user~b~send\n allow + group~b~send\n",
         {"allow -l -g 42 hold tank", "! tank permissions", "? tank"}},
        {"snapshots",
         "tank\ntank@a\n hold one~tag\n hold -r\n u:x local 1\ntank@b\n hold ?\ntank@c\n hold x\n"
         "tank@gone\n hold x\n",
         "tank\ntank@a\n hold other\n u:y local 2\ntank@b\ntank@c\n hold ?\n"
         "tank@new\n u:z local 1\n",
         {"set u:x=1 tank@a", "inherit u:y tank@a", "hold one tag tank@a", "hold -- -r tank@a",
          "! tank@b holds", "! tank@c holds", "! tank@gone ", "? tank@a", "? tank@new"}},
    });
}

TEST(Plan, PutsARootUnderAnotherName) {
    PlanOptions options;
    options.renames = {{"tank/a", "tank/new"}};
    options.roots = {"tank/a"};
    const std::string saved =
        "tank\n atime local off\ntank/a mounted\n atime inherited:tank off\n"
        " mountpoint inherited:tank /t/a\ntank/a/b\n atime inherited:tank off\n"
        " origin - tank/a@s\ntank/ab\ntank/a@s\n hold x\n";
    LiveState live;
    live.state = State("");
    const HostState above = State("tank\n atime default on\n mountpoint local /t\n");
    live.above = above.datasets;
    const Plan plan = MakePlan(State(saved), live, options);
    EXPECT_THAT(LinesOf(plan),
                ElementsAreArray(Lines{"create -u tank/new", "create -u tank/new/b",
                                       "pinned: set atime=off tank/new", "mount tank/new",
                                       "! tank/new guid", "! tank/new/b guid", "! tank/new@s "}));
    EXPECT_THAT(plan.steps[1].needs, testing::ElementsAre(0U));
    EXPECT_THAT(plan.steps[2].needs, testing::ElementsAre(0U));

    // What was pinned stays so.
    live.state = State("tank/new mounted\n atime local off\n mountpoint inherited:tank /t/new\n"
                       "tank/new/b\n atime inherited:tank/new off\ntank/new@s\n hold x\n");
    live.snapshots = {"tank/new@s"};
    EXPECT_EQ(LinesOf(MakePlan(State(saved), live, options)),
              (Lines{"! tank/new guid", "! tank/new/b guid"}));
    options.renames = {{"tank/a", "tank/ab"}};
    options.roots.clear();
    EXPECT_THROW((void)MakePlan(State(saved), live, options), std::runtime_error);
}

} // namespace
