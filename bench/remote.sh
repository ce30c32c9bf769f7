#!/usr/bin/env bash
# A full job to a remote against `rclone copy` of the same files and against restic through the same
# remote, in turn in the same run: wall times, medians and ratios. The remote is a real object store
# in memory that scripts/remote.sh starts, plain for rclone and the job, encrypted by restic itself
# for restic and by rclone's crypt for the job beside it. A job has two channels, rclone copies four
# files at a time. A job's calls of rclone take some tenths of a second however large it is.
#   bench/remote.sh [--runs N] [--mb N]   N MB of large files, and 5,000 small ones
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

runs=5
mb=300
while [ $# -gt 0 ]; do
  case $1 in
    --runs) runs=$2; shift 2 ;;
    --mb) mb=$2; shift 2 ;;
    *) echo "usage: bench/remote.sh [--runs N] [--mb N]" >&2; exit 2 ;;
  esac
done

scratch
trap '"$root/scripts/remote.sh" down "$work/store" || true; rm -rf "$work"' EXIT
# The store keeps the room of deleted objects for hours.
REMOTE_BYTES=17179869184 "$root/scripts/remote.sh" up "$work/store" >"$work/up" || exit $?
export RCLONE_CONFIG=$work/store/rclone.conf RESTIC_PASSWORD=bench RESTIC_CACHE_DIR=$work/cache
unset AWS_CA_BUNDLE http_proxy https_proxy HTTP_PROXY HTTPS_PROXY

mkdir "$work/large"
for i in 1 2 3 4; do head -c "$((mb / 4))M" /dev/urandom >"$work/large/file$i"; done
small_tree "$work/small" 5000

empty() { rclone purge bucket: >/dev/null 2>&1 || true; rclone mkdir bucket:; rm -rf "$work/cache"; }
job() { # job REMOTE TREE
  seconds "$agent" full --quiet --channels 2 --source "$2" --storage "rclone:$1:jobs" --name bench \
    --tmp "$work/tmp"
}
copy() { seconds rclone copy "$1" bucket:copy; }
restic_backup() {
  restic -q -r rclone:bucket:restic init >/dev/null
  seconds restic -q -r rclone:bucket:restic backup "$1"
}

for tree in large small; do
  ours=() sealed=() copies=() restics=()
  for ((i = 0; i < runs; i++)); do
    empty; ours+=("$(job bucket "$work/$tree")")
    empty; copies+=("$(copy "$work/$tree")")
    empty; sealed+=("$(job sealed "$work/$tree")")
    empty; restics+=("$(restic_backup "$work/$tree")")
  done
  a=$(printf '%s\n' "${ours[@]}" | median)
  b=$(printf '%s\n' "${copies[@]}" | median)
  c=$(printf '%s\n' "${sealed[@]}" | median)
  d=$(printf '%s\n' "${restics[@]}" | median)
  echo "$tree: job $a s, rclone copy $b s, ratio $(ratio "$a" "$b")"
  echo "$tree: encrypted job $c s, restic $d s, ratio $(ratio "$c" "$d")"
done
