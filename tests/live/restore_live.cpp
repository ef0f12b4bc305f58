#include "restore/Apply.h"
#include "restore/HostStateReader.h"
#include "restore/LiveState.h"
#include "restore/Plan.h"
#include "restore/Script.h"
#include "tests/live/Host.h"
#include "util/str.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

namespace {

using live::OutputOf;
using live::Quoted;
using namespace zfslib::restore;

/// What the tools say of the pools "$@" and can be put back: a line each of the object, the
/// property, and the rest. Without identity and what comes from the data; a received value is as
/// good as a local one, and so is what is set to what it would be by itself.
constexpr const char* tellTruth = R"sh(
unnumbered='s/\t\( *\(mirror\|raidz1\)\)-[0-9]*/\t\1/' # they are by their order
lost='allocated|available|bcloneused|capacity|[^\t]*ratio|createtxg|creation|(filesystem|snapshot)_count'
lost="$lost|fragmentation|free|freeing|guid|keystatus|last_scrubbed_txg|load_guid|logical[^\t]*|objsetid"
lost="$lost|referenced|snapshots_changed|used[^\t]*|written"
given='\t(ref)?(quota|reservation)\t0\t|_limit\tnone\t|\t(canmount|volthreading)\ton\t|context\tnone\t'
{ for pool; do
    zfs get -rHp -t filesystem,volume -o name,property,value,source all "$pool"
    zfs get -rHp -t snapshot -s local,received -o name,property,value all "$pool"
    zfs list -rH -t snapshot -o name,userrefs "$pool" | while IFS='	' read -r name holds; do
        [ "$holds" = 0 ] || zfs holds -H "$name" | sed 's/\t/\thold\t/; s/\t[^\t]*$//'
    done
    zfs list -rH -t filesystem,volume -o name,type "$pool" | while IFS='	' read -r name type; do
        echo "$name"
        zfs allow "$name"
        [ "$type" = volume ] || { zfs userspace -Hpn -t posixuser,posixgroup -o type,name,quota,objquota "$name" &&
            zfs projectspace -Hp -o type,name,quota,objquota "$name"; } 2>&1
    done | awk -F '\t' '
        /^----/ { own = index($0, "---- Permissions on " name " -") == 1; next }
        /:$/ { section = $0 }
        /^\t/ && own { print name "\tallow\t" section $0 }
        NF == 4 && $3 + $4 != 0 { print name "\tquota of\t" $0 }
        NF == 1 && !/:$/ { name = $0 }'
    zpool get -Hp -o name,property,value,source all "$pool" | sed '/@/s/\tactive\t/\tenabled\t/'
    zpool get -Hp -o name,property,value ashift,allocating,comment,checksum_n,u:shelf \
        "$pool" all-vdevs | sed "s/^/$pool\tdevice\t/; $unnumbered"
    zpool status -P "$pool" | sed '1,/^config:/d; /^errors:/,$d'";$unnumbered" |
        awk -F '\t' -v pool="$pool" '{ sub(/ +[A-Z]+ .*/, "", $2); print pool "\tstructure\t" NR " " $2 }'
done
awk '$3 == "zfs" { gsub(/\\040/, " ", $1); print $1 "\tmount\t" $2 "\t" $4 }' /proc/mounts
} | LC_ALL=C sed -E "/^[^\t]*\t($lost)\t[^\t]*\t[^\t]*\$/d; s/\treceived$/\tlocal/; s/($given)local/\1default/"
)sh";

using Truth = std::set<std::string>;

Truth ReadTruth(const std::string& pools) {
    const std::string text = OutputOf("set -- " + pools + "\n" + tellTruth);
    Truth truth;
    for (std::string_view rest = text; !rest.empty();)
        truth.emplace(util::ConsumeLine(rest));
    return truth;
}

/// The lines of one and not of the other, but for what a plan says that stays different.
std::vector<std::string> Differences(const Truth& before, const Truth& after,
                                     const Plan& plan = {}) {
    std::vector<std::string> differences;
    std::set_symmetric_difference(before.begin(), before.end(), after.begin(), after.end(),
                                  std::back_inserter(differences));
    const auto isForeseen = [&](const std::string& line) {
        const auto isWithin = [&](const std::string& object) {
            return util::str_is_starts_with(line, object) &&
                   std::string("/@\t").find(line[object.size()]) != std::string::npos;
        };
        const auto isOf = [&](const std::string& object, const std::string& property) {
            return util::str_is_starts_with(line, object + "\t" + property + "\t");
        };
        return isWithin("forged") ||
               std::any_of(plan.cannot.begin(), plan.cannot.end(),
                           [&](const Cannot& told) {
                               return isOf(told.object, told.property) ||
                                      (told.property.empty() && isWithin(told.object)) ||
                                      (told.property == "quotas of users" &&
                                       isOf(told.object, "quota of")) ||
                                      (told.property == "mounted" && isOf(told.object, "mount")) ||
                                      (told.reason == "a mount option covered what was stored" &&
                                       (isOf(told.object, "mount") || // and what is handed down
                                        (isWithin(told.object) &&
                                         line.find("\t" + told.property + "\t") != line.npos)));
                           }) ||
               std::any_of(plan.mentioned.begin(), plan.mentioned.end(), [&](const Mention& told) {
                   return told.text == "was not saved"
                              ? isWithin(told.object)
                              : isOf(told.object, "allow") || isOf(told.object, "hold");
               });
    };
    differences.erase(std::remove_if(differences.begin(), differences.end(), isForeseen),
                      differences.end());
    return differences;
}

std::string Told(const Plan& plan) {
    std::string text;
    for (const Step& step : plan.steps)
        text += DescribeStep(step) + "\n";
    for (const Cannot& cannot : plan.cannot)
        text += "! " + cannot.object + " " + cannot.property + ": " + cannot.reason + "\n";
    return text;
}

class Restore : public testing::Test {
protected:
    std::string Inspect(const std::string& arguments) {
        return OutputOf(Quoted(std::getenv("ZFSINSPECT")) + " " + arguments);
    }

    live::Host host;
};

/// A host as years leave it behind: in the pool $p, with keys and mount points in $m.
constexpr const char* makeMess = R"sh(
set -e
head -c 32 /dev/urandom >$m/key; echo 'a passphrase' >$m/words
new() { zfs create -u "$@"; }
new -o mountpoint=$m/x -o atime=off -o recordsize=16K -o 'u:owner=two words' $p/a
new -o "mountpoint=$m/x/in side" -o devices=off $p/b # among the mount points of $p/a
new -o mountpoint="$m/x/in side/deep" -o atime=on -o sharenfs=ro,no_subtree_check $p/a/below
new -o mountpoint=legacy -o sharesmb=off $p/legacy; new -o mountpoint=none $p/none
new -o canmount=off -o setuid=off -o compression=zstd-3 "$p/of f"
new -o canmount=noauto "$p/of f/noauto"; new -o canmount=noauto "$p/of f/noauto mounted"
new -o readonly=on -o dnodesize=auto $p/readonly; new -o utf8only=on -o version=4 $p/readonly/old
new -o casesensitivity=mixed -o normalization=formD -o xattr=dir $p/mixed
new -o casesensitivity=sensitive -o normalization=none -o utf8only=off $p/mixed/plain
new -o mountpoint=$m/zoned -o sharenfs=off $p/zoned
new -o encryption=aes-192-ccm -o keyformat=raw -o keylocation=file://$m/key $p/secret
new -o encryption=aes-256-gcm -o atime=off $p/secret/cipher; new -o encryption=off $p/secret/open
new -o keyformat=passphrase -o keylocation=file://$m/words -o pbkdf2iters=200000 $p/secret/own
new -o quota=60M -o reservation=30000001 -o refquota=50M -o refreservation=9M $p/quotas
new -o quota=90M -o reservation=12345678 -o filesystem_limit=3 -o snapshot_limit=7 $p/quotas/more
zfs create -V 8M -o volblocksize=8K $p/thick 2>&1; zfs create -s -V 10000000 -o readonly=on $p/sparse
zfs create -s -V 8M -o refreservation=2M -o volmode=none $p/secret/volume
zfs create -V 8M -o snapdev=visible $p/quotas/volume
long=$p/$(printf '%0118d' 7); new -o sync=disabled -o "u:far=	from here
$p/b	quota	1	-	local" $long; new $long/child
for value in 'u:empty=' 'u:dash=-' 'u:ends= two  words ' "u:quotes=it's \"\$HOME\" \`x\` \\n %s" \
    "u:bytes=$(printf '\n \377\376\001\303\251\360\237\230\200\n\n.')" "u:long=$(printf '%08191d' 3)" \
    checksum=sha256 copies=2 logbias=throughput special_small_blocks=4096 acltype=posix dedup=verify \
    primarycache=metadata secondarycache=none snapdir=visible redundant_metadata=most overlay=off \
    aclmode=groupmask aclinherit=passthrough vscan=on nbmand=on exec=off relatime=off prefetch=none \
    direct=always longname=on canmount=on volmode=dev snapshot_limit=20 userquota@1000=12345678 \
    userobjquota@1001=17 groupquota@50=3333333 projectquota@7=1g projectobjquota@8=9
do
    zfs set -u "$value" $p/b
done
zfs set userquota@4711=1 $p/readonly; zfs set groupobjquota@4712=5 $p/secret/own
zfs set -u sharenfs=rw=@192.0.2.0/24 u:top=all $p; zfs set -u sharenfs=off $p/zoned
for name in a b a/below 'of f/noauto mounted' readonly secret secret/own quotas mixed secret/cipher; do
    zfs mount "$p/$name"
done
zfs set zoned=on $p/zoned
zfs allow -s @all create,mount,@some $p/a; zfs allow -s @some quota,userprop $p/a
zfs allow -c destroy,mount,@all $p/quotas; zfs allow -l -u 1001 create,mount $p/a
zfs allow -d -u 4242 destroy $p/a; zfs allow -g 50 hold $p/a; zfs allow -l -g 1100 @all $p/a
zfs allow -e readonly $p/a; zfs allow -d -e send $p/b; zfs allow -u 1000 compression,send $p/thick
for name in a b thick 'of f/noauto'; do zfs snapshot "$p/$name@s t"; done
zfs hold 'of two words' "$p/a@s t"; zfs hold -- -dash "$p/a@s t"
zfs set 'u:own=a
b' "$p/a@s t"; zfs set u:x= "$p/thick@s t"
zpool set bootfs=$p/a $p; zpool set comment='two words' $p; zpool set failmode=continue $p
zpool set listsnapshots=on $p; zpool set autotrim=on $p; zpool set u:pool='any	thing' $p
)sh";

TEST_F(Restore, OfALostHostByItsScript) {
    const std::string folder = Quoted(host.Folder());
    const std::string disks = host.Disks(3);
    const std::string pool = host.MakePool(
        "messy", "raidz1" + disks + " special mirror" + host.Disks(2) + " log" + host.Disks(1),
        "-O normalization=none -o ashift=12 -o feature@blake3=disabled -o feature@edonr=disabled");
    OutputOf("zpool add --allow-ashift-mismatch -o ashift=13 " + pool + " raidz1" + host.Disks(3));
    OutputOf("zpool set u:shelf='left, top' " + pool + " " + disks.substr(disks.rfind(' ') + 1));
    const std::string other = host.MakePool("other", host.Disks(1), "-O canmount=off");
    OutputOf("p=" + pool + " m=" + folder + "\n" + makeMess);
    OutputOf("zfs create -u " + other + "/kept && zfs set quota=8M " + other + "/kept");

    const std::string pools = pool + " " + other;
    const std::string saved = Quoted(host.Folder() / "saved");
    const std::string plan = "plan --saved " + saved;
    Inspect("--record " + saved + " state " + pools);
    const Truth truth = ReadTruth(pools);
    EXPECT_GT(truth.size(), 1500U);
    OutputOf("zpool destroy " + pool + " && zpool destroy " + other);
    EXPECT_THAT(Inspect(plan), testing::AllOf(testing::HasSubstr("zpool import -D -d"),
                                              testing::Not(testing::HasSubstr("+ create"))));
    OutputOf("for disk in " + folder + "/disk*; do zpool labelclear \"$disk\" || exit; done");

    const std::string script = Quoted(host.Folder() / "script");
    Inspect(plan + " --script >" + script);
    OutputOf("sh " + script + " prepare");
    OutputOf("for name in a b thick 'of f/noauto'; do zfs snapshot " + pool +
             "/\"$name@s t\"; done");
    OutputOf("bash " + script + " finish");
    // The snapshots were not there yet when the plan was made.
    Inspect(plan + " --script >" + script);
    OutputOf("busybox sh " + script);

    EXPECT_THAT(Differences(truth, ReadTruth(pools)), testing::IsEmpty());
    const std::string empty = OutputOf(Quoted(std::getenv("ZFSINSPECT")) + " " + plan +
                                       " --exit-code --json || [ $? = 4 ]");
    EXPECT_THAT(empty, testing::HasSubstr("\"steps\": []")) << empty;
}

/// A pool $p with one of each, for `drift`.
constexpr const char* makeDrifting = R"sh(
set -e
head -c 32 /dev/urandom >$m/key
zfs create $p/a; zfs create $p/a/b; zfs create "$p/d d"
zfs create -o encryption=on -o keyformat=raw -o keylocation=file://$m/key $p/e; zfs create $p/e/f
zfs create -s -V 16M $p/v; zfs create -V 16M $p/a/thick
zfs create -o quota=50M -o atime=off -o u:from=afar -o canmount=noauto $p/source
zfs snapshot $p/source@1; zfs send -p $p/source@1 | zfs receive -u $p/got; zfs snapshot $p/a@s; zfs set u:kept=1 $p/a@s
)sh";

/// $count random changes from $seed on, printed as they succeed; which many do not.
constexpr const char* drift = R"sh(
RANDOM=$seed
datasets=($p $p/a $p/a/b "$p/d d" $p/e $p/e/f $p/v $p/a/thick $p/got $p/got $p/source)
rows=("atime on off" "compression on off lz4 gzip-6 zstd-3" "recordsize 4K 131072" "checksum sha256 on"
    "readonly on off" "readonly on off" "readonly on off" "canmount on off noauto" "canmount on off noauto"
    "canmount on off noauto" "mountpoint $m/@ $m/1/@ none legacy" "mountpoint $m/1/2/@ $m/3/@"
    "mountpoint $m/@ $m/4/3/@" "sharenfs off" "sharesmb off" "quota none 20M 30000000 40M" "quota none 60M"
    "refquota none 20M 50M" "reservation none 1M 3000001 25M" "refreservation none 1M 20M 2000000"
    "reservation none 8M" "xattr on sa dir" "filesystem_limit none 100 5" "snapshot_limit none 9" "copies 1 2"
    "sync always standard" "dnodesize auto legacy" "volsize 8M 16M 24M" "volmode dev none" "dedup off on"
    "snapdev visible hidden" "zoned on off off" "overlay on off" "acltype posix off" "setuid off on"
    "volthreading off on" "devices off on" "relatime on off" "context none" "version 5" "u:one 1 2" "u:one 3"
    "u:two - =" "u:from here" "special_small_blocks 0 4096" "volsize 8M 16M 24M")
try() { "$@" >/dev/null 2>&1 && { printf '%q ' "$@"; echo; }; }
for ((n = 0; n < count; n++)); do
    i=$((RANDOM % ${#datasets[@]})) d=${datasets[i]} row=(${rows[RANDOM % ${#rows[@]}]})
    value=${row[RANDOM % (${#row[@]} - 1) + 1]} property=${row[0]}
    value=${value/@/$i} # a place of its own, maybe below that of another
    kind=(user userobj group groupobj project projectobj)
    case $((RANDOM % 50)) in
    ?) try zfs set "$property=$value" "$d" ;;
    1? | 3[0-5]) try zfs set -u "$property=$value" "$d" ;;
    2[0-2]) try zfs inherit "$property" "$d" ;;
    2[3-5]) try zfs inherit -S "$property" "$d" ;;
    2[6-9]) try zfs set "${kind[RANDOM % 6]}quota@$((1000 + RANDOM % 3))=$((RANDOM % 3 * 1234567))" "$d" ;;
    36) try zfs allow -u $((1000 + RANDOM % 3)) send,hold "$d" ;;
    37) try zfs unallow -u $((1000 + RANDOM % 3)) send "$d" ;;
    38) try zfs set "u:lines=$n"$'\nforged\tquota\t1\tlocal' "$d" ;;
    39) try zfs hold "tag $((RANDOM % 3))" $p/a@s ;;
    40) try zfs release "tag $((RANDOM % 3))" $p/a@s ;;
    41) try zfs set "u:one=$n" $p/a@s ;;
    42) try zfs inherit u:one $p/a@s ;;
    43) ((RANDOM % 3)) || try zfs rename "$d" "$p/away$n" ;;
    44) ((RANDOM % 3)) || try zfs destroy -r "$d" ;;
    45) try zfs create -u "$d/new$n" ;;
    46) try zfs create -s -V 8M "$d/new$n" ;;
    *) last=$(zfs list -H -o name -t snapshot -s createtxg $p/got | tail -n 1)
        zfs snapshot "$p/source@$n"
        try sh -c "zfs send -p -i '@${last##*@}' $p/source@$n | zfs receive -u -F $p/got" ||
            try sh -c "zfs send -p $p/source@$n | zfs receive -u -F $p/got" ;;
    esac 2>/dev/null
done
# Mounted where the properties say, the upper ones first: what is mounted last hides what is below it.
tac /proc/mounts | awk -v p=$p '$3 == "zfs" && index($1 "/", p "/") == 1 { print $2 }' |
    while read -r at; do umount "$(printf %b "$at")"; done
try zfs unload-key $p/e
((RANDOM % 2)) || zfs load-key $p/e
zfs list -rH -t filesystem -o mountpoint,name $p | sort | while IFS='	' read -r at d; do
    ((RANDOM % 4)) && try zfs mount "$d" && ! ((RANDOM % 4)) &&
        try mount -o "remount,$( ((RANDOM % 2)) && echo ro || echo noatime)" "$at"
done
true
)sh";

unsigned NumberFrom(const char* variable, unsigned otherwise) {
    const char* const text = std::getenv(variable);
    return text == nullptr ? otherwise : static_cast<unsigned>(std::stoul(text));
}

TEST_F(Restore, OfAHostThatDrifts) {
    const unsigned rounds = NumberFrom("ZFSLIB_LIVE_ROUNDS", 1);
    const unsigned seed = NumberFrom("ZFSLIB_LIVE_SEED", 1);
    const std::string pool = host.MakePool("drift", host.Disks(1, 512));
    const std::string variables = "p=" + pool + " m=" + Quoted(host.Folder()) + " count=200 seed=";
    OutputOf(variables + "0\n" + makeDrifting);
    const auto read = [&](const HostState& saved) {
        LiveState live = ReadLiveState(saved, {}, live::HostExecutor());
        live.snapshots.clear(); // those of both states between which it goes to and fro
        for (const auto& row : live::RowsOf("zfs list -rH -t snapshot -o name -s name " + pool))
            live.snapshots.push_back(row[0]);
        return live;
    };
    HostState before = ReadHostState({pool}, live::HostExecutor());
    Truth truthBefore = ReadTruth(pool);
    // The changes give no other reason to leave something.
    const auto isExpected = testing::Matches(testing::ContainsRegex(
        "always new|only a stream|a mount option|beyond its end|a snapshot comes with the data|"
        "its key is not loaded|would be covered|in a zone"));
    std::size_t accepted = 0;
    std::size_t steps = 0;
    for (unsigned round = seed; round < seed + rounds; ++round) {
        const std::string history =
            OutputOf("bash -c " + Quoted(variables + std::to_string(round) + "\n" + drift));
        accepted += static_cast<std::size_t>(std::count(history.begin(), history.end(), '\n'));
        LiveState live = read(before);
        HostState after = live.state;
        Truth truthAfter = ReadTruth(pool);
        // Back to what was, and then forth to what it had become.
        for (const bool isBack : {true, false}) {
            const HostState& saved = isBack ? before : after;
            const Plan made = MakePlan(saved, live);
            std::string faults;
            for (const Cannot& cannot : made.cannot)
                if (!isExpected(cannot.reason))
                    faults += "! " + cannot.object + ": " + cannot.reason + "\n";
            // What stands behind a key is not known before it is loaded, nor a received user
            // property behind one that was inherited explicitly: that takes another plan.
            const bool takesTwo =
                std::any_of(made.steps.begin(), made.steps.end(), [](const Step& step) {
                    return step.action == Action::LoadKey ||
                           (step.property.find(':') != std::string::npos &&
                            step.why == "came with a stream");
                });
            Plan next = made;
            for (unsigned plans = takesTwo ? 2 : 1; plans != 0; --plans) {
                steps += next.steps.size();
                for (const StepReport& report : Apply(next, live::HostExecutor()).steps)
                    if (report.outcome != Outcome::Done)
                        faults += DescribeStep(next.steps[report.step]) + ": " + report.text + "\n";
                live = read(saved);
                next = MakePlan(saved, live);
            }
            if (!next.IsEmpty())
                faults += "second plan:\n" + Told(next);
            const Truth truth = ReadTruth(pool);
            for (const std::string& line :
                 Differences(isBack ? truthBefore : truthAfter, truth, made))
                faults += (truth.count(line) != 0 ? "new: " : "lost: ") + line + "\n";
            if (faults.empty())
                continue;
            ADD_FAILURE() << "round " << round << (isBack ? " back\n" : " forth\n") << faults
                          << "history:\n"
                          << history << "plan:\n"
                          << Told(made);
            after = live.state;
            truthAfter = truth;
            break;
        }
        before = std::move(after);
        truthBefore = std::move(truthAfter);
    }
    std::cout << "\nlive: " << accepted << " changes, " << steps << " steps" << std::endl;
    EXPECT_GT(accepted, rounds * 80);
}

TEST_F(Restore, SaysWhatCannotBeDone) {
    const std::string p = host.MakePool("cannot", host.Disks(1));
    const std::string disks = host.Disks(2);
    const std::string gone = host.MakePool("gone", "mirror" + disks);
    const std::string other = host.MakePool("layout", host.Disks(1), "-o ashift=12");
    const std::string shell = "set -e; p=" + p + " m=" + Quoted(host.Folder()) + "\n";
    OutputOf(shell + R"sh(
        head -c 32 /dev/urandom >$m/key; echo 'a passphrase' >$m/words
        zfs create -u $p/type; zfs create -u -o casesensitivity=mixed $p/once
        zfs create -u -o quota=8M -o u:x=1 $p/source; zfs snapshot $p/source@s
        zfs send -p $p/source@s | zfs receive -u $p/got; zfs set u:x=2 $p/got
        zfs clone $p/source@s $p/clone; zfs clone $p/source@s $p/promoted; zfs set u:x=3 $p/once
        zfs create $p/temporary; mount -o remount,noatime $m/cannot/temporary
        zfs create -s -V 8M $p/volume; zfs create -u -o version=4 $p/old
        zfs create -u -o encryption=on -o keyformat=passphrase -o keylocation=file://$m/words $p/secret
        zfs create -u -o keyformat=raw -o keylocation=file://$m/key $p/secret/own
        zfs snapshot $p/once@kept; zfs hold tag $p/once@kept)sh");
    const std::vector<std::string> pools = {p, gone, other};
    const HostState saved = ReadHostState(pools, live::HostExecutor());
    OutputOf(shell + R"sh(
        zfs release tag $p/once@kept; zfs destroy -r $p/type; zfs create -s -V 8M $p/type
        for name in once got clone; do zfs destroy -r $p/$name; done; zfs create -u $p/once
        zfs promote $p/promoted; zfs umount $p/temporary; zfs set volsize=16M $p/volume
        zfs set version=5 $p/old; zfs change-key -o pbkdf2iters=400000 $p/secret
        zfs change-key -i $p/secret/own; zfs unload-key -r $p/secret)sh");
    OutputOf("zpool destroy " + gone + " && rm" + disks + " && zpool attach " + other +
             " $(zpool list -vHP -o name " + other + " | awk 'NR == 2 { print $1 }')" +
             host.Disks(1));

    const auto plan = [&] {
        return MakePlan(saved, ReadLiveState(saved, {}, live::HostExecutor()));
    };
    const Plan made = plan();
    std::set<std::string> said;
    for (const Cannot& cannot : made.cannot)
        said.insert(cannot.object + " " + cannot.property + ": " + cannot.reason);
    for (const std::string& line : {
             p + "/type type: what has its name is of another type",
             p + "/once@kept : a snapshot comes with the data; plan again when it is there",
             p + "/once casesensitivity: only creation can set it",
             p + "/once guid: guid, creation time and the like are always new",
             p + "/got quota: only a stream brings a received value: it is set here",
             p + "/got u:x: only a stream brings the received value that another covers",
             p + "/clone origin: a clone comes with its data: it is made as a dataset of its own",
             p + "/promoted origin: a clone comes with its data, or by `zfs promote`",
             p + "/temporary atime: a mount option covered what was stored",
             p + "/volume volsize: what is beyond its end would be lost; its reservation stays, "
                 "too",
             p + "/old version: a version only goes up",
             p + "/secret pbkdf2iters: only `zfs change-key`, with a new key, changes it",
             p + "/secret/own encryptionroot: only `zfs change-key`, with a new key, makes it",
             p + "/secret quotas of users: they cannot be read: its key is not loaded",
         })
        EXPECT_THAT(said, testing::Contains(line)) << Told(made);
    for (const auto& [object, reason] :
         {std::pair(gone, "its disks cannot all be had"),
          std::pair(other, "the devices of a pool that is there are left as they are")})
        EXPECT_THAT(said, testing::Contains(testing::AllOf(testing::StartsWith(object),
                                                           testing::HasSubstr(reason))));
    EXPECT_TRUE(Apply(made, live::HostExecutor()).IsComplete());
    EXPECT_TRUE(plan().IsEmpty()) << Told(plan());
}

} // namespace
