#!/usr/bin/env bash
# A full job to a remote against `rclone copy` of the same files and against restic through the same
# remote, in turn in the same run: wall times, medians and ratios. The remote is a real object store
# in memory that scripts/remote.sh starts, plain for rclone and the job, encrypted by restic itself
# for restic and by rclone's crypt for the job beside it. A job has two channels, rclone copies four
# files at a time. The large files are sent by two `rclone rcat` alone too, which a job can't beat.
# restic compresses by default; so does the encrypted job of the third tree.
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
REMOTE_BYTES=$(((mb * 3 + 2000) * 1000000)) "$root/scripts/remote.sh" up "$work/store" >"$work/up" || exit $?
export RCLONE_CONFIG=$work/store/rclone.conf RESTIC_PASSWORD=bench RESTIC_CACHE_DIR=$work/cache
unset AWS_CA_BUNDLE http_proxy https_proxy HTTP_PROXY HTTPS_PROXY

mkdir "$work/large"
for i in 1 2 3 4; do head -c "$((mb / 4))M" /dev/urandom >"$work/large/file$i"; done
small_tree "$work/small" 5000
mkdir "$work/usr"
cp -a /usr/include /usr/share/doc "$work/usr/"

# Empties the store, which else keeps the room of deleted objects for hours, and touches as much
# memory as the next run takes: a virtual machine gets its pages from its host when they are first
# used, which takes longer than all else.
empty() {
  rclone purge bucket: >/dev/null 2>&1 || true
  radosgw-admin -c "$work/store/ceph.conf" gc process --include-all
  rclone mkdir bucket:
  rm -rf "$work/cache"
  head -c "$((mb + 1000))M" /dev/zero >"$work/touched"
  rm "$work/touched"
}
# The programs, each of a tree: how long one took.
job() { # job REMOTE TREE
  local options=()
  [ "$2" != usr ] || options=(--compression zstd)
  seconds "$agent" full --quiet --channels 2 --source "$work/$2" --storage "rclone:$1:jobs" \
    --name bench --tmp "$work/tmp" "${options[@]}"
}
plain() { job bucket "$1"; }
sealed() { job sealed "$1"; }
stream() { cat "$work/large/file$1" "$work/large/file$2" | rclone rcat "bucket:stream$1"; }
streams() {
  stream 1 2 & stream 3 4 &
  wait %1 && wait %2
}
two_streams() { seconds streams; }
copy() { seconds rclone copy "$work/$1" bucket:copy; }
restic_backup() {
  restic -q -r rclone:bucket:restic init >/dev/null
  seconds restic -q -r rclone:bucket:restic backup "$work/$1"
}

for tree in large small usr; do
  order=(sealed restic_backup)
  [ $tree = usr ] || order+=(plain copy)
  [ $tree != large ] || order+=(two_streams)
  for program in "${order[@]}"; do : >"$work/$program"; done
  for ((i = 0; i < runs; i++)); do
    for program in "${order[@]}"; do
      empty
      $program $tree >>"$work/$program"
    done
    # The next round goes the other way: none runs always behind the same one.
    mapfile -t order < <(printf '%s\n' "${order[@]}" | tac)
  done
  if [ $tree != usr ]; then
    a=$(median <"$work/plain") b=$(median <"$work/copy")
    echo "$tree: job $a s, rclone copy $b s, ratio $(ratio "$a" "$b")"
  fi
  if [ $tree = large ]; then
    b=$(median <"$work/two_streams")
    echo "$tree: job $a s, two rclone rcat $b s, ratio $(ratio "$a" "$b")"
  fi
  a=$(median <"$work/sealed") b=$(median <"$work/restic_backup")
  echo "$tree: encrypted job $a s, restic $b s, ratio $(ratio "$a" "$b")"
done
