#!/bin/sh
# Puts back what was saved of files1, 2026-11-23T13:27:22Z. Made for what stood on files1, 2026-11-23T13:30:43Z, by zfsinspect 1.0.0
#
# sh FILE               all steps, one after the other, up to the first that fails
# sh FILE prepare       those before the data comes back
# sh FILE finish        those after it
# sh FILE ... from 17   go on with step 17
#
# 27 steps. What they do not mend stands behind them: 8 things that cannot be done, 0 to mind.

trap 'echo "$0 is cut short: nothing was run" >&2; exit 1' EXIT
PATH=${PATH:-/usr/bin:/bin}:/usr/sbin:/sbin LC_ALL=C
export PATH LC_ALL
nl='
'
count=27 rest=8

# The disks and files that pools are made of. Look at each before you run anything.
disk1='/disks/a'
disk2='/disks/d'

usage() {
    printf 'usage: sh %s [prepare|finish] [from STEP]\n' "$0" >&2
    exit 2
}
step() {
    number=$1
    shift
    [ "$number" -ge "$first" ] || return 0
    "$@" </dev/null && return 0
    failed "$?"
}
# A name that the host does not know makes the tool explain itself, and end with 0.
allow() {
    number=$1
    shift
    [ "$number" -ge "$first" ] || return 0
    said=$("$@" </dev/null) && [ -z "$said" ] && return 0
    printf '%s\n' "${said##*"$nl"}" >&2
    failed 1
}
ask() {
    number=$1
    [ "$number" -ge "$first" ] || return 0
    printf 'step %s asks for %s\n' "$number" "$2" >&2
    shift 2
    "$@" && return 0
    failed "$?"
}
failed() {
    printf '%s: step %s of %s failed with status %s:\n' "$0" "$number" "$count" "$1" >&2
    if [ -f "$0" ] && [ -r "$0" ]; then
        while IFS= read -r line; do
            case $line in "# $number: "*)
                printf '    %s\n' "$line" >&2
                break
                ;;
            esac
        done <"$0"
    fi
    printf 'No step behind it was run. Make the plan again; or mend it, and go on with\n' >&2
    printf '    sh %s%s from %s    to run this step again\n' "$0" "${part:+ $part}" "$number" >&2
    printf '    sh %s%s from %s    if you did by hand what it was to do\n' \
        "$0" "${part:+ $part}" "$((number + 1))" >&2
    exit 1
}

prepare() {
# 1: tank: create
step 1 zpool create -d -o feature@async_destroy=enabled -o feature@empty_bpobj=enabled -o feature@lz4_compress=enabled -o feature@multi_vdev_crash_dump=enabled -o feature@spacemap_histogram=enabled -o feature@enabled_txg=enabled -o feature@hole_birth=enabled -o feature@extensible_dataset=enabled -o feature@embedded_data=enabled -o feature@bookmarks=enabled -o feature@filesystem_limits=enabled -o feature@large_blocks=enabled -o feature@large_dnode=enabled -o feature@sha512=enabled -o feature@skein=enabled -o feature@edonr=enabled -o feature@userobj_accounting=enabled -o feature@encryption=enabled -o feature@project_quota=enabled -o feature@device_removal=enabled -o feature@obsolete_counts=enabled -o feature@zpool_checkpoint=enabled -o feature@spacemap_v2=enabled -o feature@allocation_classes=enabled -o feature@resilver_defer=enabled -o feature@bookmark_v2=enabled -o feature@redaction_bookmarks=enabled -o feature@redacted_datasets=enabled -o feature@bookmark_written=enabled -o feature@log_spacemap=enabled -o feature@livelist=enabled -o feature@device_rebuild=enabled -o feature@zstd_compress=enabled -o feature@draid=enabled -o feature@zilsaxattr=enabled -o feature@head_errlog=enabled -o feature@blake3=enabled -o feature@block_cloning=enabled -o feature@vdev_zaps_v2=enabled -o feature@redaction_list_spill=enabled -o feature@raidz_expansion=enabled -o feature@fast_dedup=enabled -o feature@longname=enabled -o feature@large_microzap=enabled -o ashift=9 -O utf8only=off -O normalization=none -O casesensitivity=sensitive -O canmount=noauto -m none tank mirror "$disk1" "$disk2"
# 2: tank: set ashift: - -> 0
step 2 zpool set ashift=0 tank
# 3: tank/db: create
step 3 zfs create -u -o utf8only=off -o normalization=none -o casesensitivity=mixed tank/db
# 4: tank/home: create
step 4 zfs create -u -o utf8only=off -o normalization=none -o casesensitivity=sensitive tank/home
# 5: tank/home/al: create
step 5 zfs create -u -o utf8only=off -o normalization=none -o casesensitivity=sensitive tank/home/al
# 6: tank/lun: create
step 6 zfs create -s -V 20004864 -o volblocksize=8192 tank/lun
# 7: tank/secret: create
ask 7 'a key for tank/secret' zfs create -u -o utf8only=off -o normalization=none -o casesensitivity=sensitive -o encryption=aes-256-gcm -o keyformat=passphrase -o keylocation=prompt -o pbkdf2iters=350000 tank/secret
# 8: tank/www: create
step 8 zfs create -u -o utf8only=off -o normalization=none -o casesensitivity=sensitive tank/www
# 9: tank: set compression: - -> lz4
step 9 zfs set compression=lz4 tank
# 10: tank: set com.example:policy: - -> gold
step 10 zfs set com.example:policy=gold tank
# 11: tank/db: set recordsize: - -> 16384
step 11 zfs set recordsize=16384 tank/db
# 12: tank/home: set atime: - -> off
step 12 zfs set atime=off tank/home
# 13: tank/home/al: set com.example:note: - -> it's Al's, 100%
step 13 zfs set 'com.example:note=it'\''s Al'\''s, 100%' tank/home/al
}

finish() {
# 14: tank/home: set quota: - -> 150000000
step 14 zfs set quota=150000000 tank/home
# 15: tank/db: set reservation: - -> 20000000
step 15 zfs set reservation=20000000 tank/db
# 16: tank/home: set userquota@1000: 0 -> 12345678
step 16 zfs set userquota@1000=12345678 tank/home
# 17: tank: set mountpoint: none -> /tank
step 17 zfs set -u mountpoint=/tank tank
# 18: tank/www: set mountpoint: /tank/www -> /srv/www
step 18 zfs set -u mountpoint=/srv/www tank/www
# 19: tank: inherit canmount: noauto -> on; was default
step 19 zfs inherit -S canmount tank
# 20: tank/www: mount
step 20 zfs mount tank/www
# 21: tank: mount
step 21 zfs mount tank
# 22: tank/db: mount
step 22 zfs mount tank/db
# 23: tank/home: mount
step 23 zfs mount tank/home
# 24: tank/home/al: mount
step 24 zfs mount tank/home/al
# 25: tank/secret: mount
step 25 zfs mount tank/secret
# 26: tank/www: set readonly: - -> on
step 26 zfs set readonly=on tank/www
# 27: tank/home: allow -u bob mount,snapshot
allow 27 zfs allow -u bob mount,snapshot tank/home
}

# cannot: tank, guid: saved 15316933675602694262: guid, creation time and the like are always new
# cannot: tank/db, guid: saved 14956682652279540330: guid, creation time and the like are always new
# cannot: tank/home, guid: saved 10547230313553466667: guid, creation time and the like are always new
# cannot: tank/home/al, guid: saved 14008091433438192760: guid, creation time and the like are always new
# cannot: tank/lun, guid: saved 1139898485639751420: guid, creation time and the like are always new
# cannot: tank/secret, guid: saved 6590487584946541157: guid, creation time and the like are always new
# cannot: tank/www, guid: saved 3596959911345340981: guid, creation time and the like are always new
# cannot: tank/db@monday: a snapshot comes with the data; plan again when it is there

{
trap - EXIT
part='' first=1
case ${1-} in prepare | finish)
    part=$1
    shift
    ;;
esac
if [ "$#" -eq 2 ] && [ "$1" = from ]; then
    case $2 in '' | 0* | *[!0-9]* | ??????????*) usage ;; esac
    first=$2
    [ "$first" -le "$((count + 1))" ] || usage
elif [ "$#" -ne 0 ]; then
    usage
fi
[ "$part" = finish ] || prepare
[ "$part" = prepare ] || finish
if [ "$part" = prepare ]; then
    printf 'Now the data comes back, and then: sh %s finish\n' "$0"
fi
if [ "$rest" -ne 0 ]; then
    printf 'Not all is as it was: %s things cannot be done, see the end of %s\n' "$rest" "$0" >&2
fi
exit 0
}
