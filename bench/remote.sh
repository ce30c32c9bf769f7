#!/usr/bin/env bash
# A full job to a remote against `rclone copy` of the same files and against restic through the same
# remote, in turn in the same run: wall times, medians and ratios. The remote is a real object store
# in memory that scripts/remote.sh starts, plain for rclone and the job, encrypted by restic itself
# for restic and by rclone's crypt for the job beside it. A job has two channels, rclone copies four
# files at a time. restic compresses by default; so does the encrypted job of the third tree.
#   bench/remote.sh [--runs N] [--mb N]   N MB of large files that can't be compressed, 5,000 small
#                                         ones, and copies of /usr/include and /usr/share/doc
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
mkdir "$work/usr"
cp -a /usr/include /usr/share/doc "$work/usr/"

empty() { rclone purge bucket: >/dev/null 2>&1 || true; rclone mkdir bucket:; rm -rf "$work/cache"; }
job() { # job REMOTE TREE [OPTION...]
  seconds "$agent" full --quiet --channels 2 --source "$2" --storage "rclone:$1:jobs" --name bench \
    --tmp "$work/tmp" "${@:3}"
}
copy() { seconds rclone copy "$1" bucket:copy; }
restic_backup() {
  restic -q -r rclone:bucket:restic init >/dev/null
  seconds restic -q -r rclone:bucket:restic backup "$1"
}

for tree in large small usr; do
  options=()
  [ $tree != usr ] || options=(--compression zstd)
  ours=() sealed=() copies=() restics=()
  for ((i = 0; i < runs; i++)); do
    if [ $tree != usr ]; then
      empty; ours+=("$(job bucket "$work/$tree")")
      empty; copies+=("$(copy "$work/$tree")")
    fi
    empty; sealed+=("$(job sealed "$work/$tree" "${options[@]}")")
    empty; restics+=("$(restic_backup "$work/$tree")")
  done
  if [ $tree != usr ]; then
    a=$(printf '%s\n' "${ours[@]}" | median)
    b=$(printf '%s\n' "${copies[@]}" | median)
    echo "$tree: job $a s, rclone copy $b s, ratio $(ratio "$a" "$b")"
  fi
  a=$(printf '%s\n' "${sealed[@]}" | median)
  b=$(printf '%s\n' "${restics[@]}" | median)
  echo "$tree: encrypted job $a s, restic $b s, ratio $(ratio "$a" "$b")"
done
