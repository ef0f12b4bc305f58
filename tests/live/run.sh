#!/usr/bin/env bash
# run.sh [OUTPUT_FOLDER]: script/test-live runs this where the ZFS is, from a folder with the programs.
# For each program: what it wrote, its exit status, and the pools that it left behind.
here=$(cd "$(dirname "$0")" && pwd)
out=${1:-/out}
export PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C
export LD_LIBRARY_PATH=$here/lib ZFSINSPECT=$here/zfsinspect
while read -r variable; do export "${variable?}"; done <"$here/variables"

# In a machine of its own, what a share takes: without it the tools refuse to share.
if [ $# = 0 ] && [ ! -e /usr/sbin/exportfs ]; then
    printf '#!/bin/sh\n' >/usr/sbin/exportfs && chmod +x /usr/sbin/exportfs
fi

failed=0
while read -r program; do
    "$here/$program" --gtest_filter="$(cat "$here/pattern")" >"$out/$program.log" 2>&1 </dev/null
    status=$?
    zpool list -H -o name 2>&1 | grep '^zfslib-live-' >"$out/$program.left"
    echo $status >"$out/$program.status"
    [ $status = 0 ] || failed=1
done <"$here/programs"
exit $failed
