#!/bin/bash
# Jobs on a real object store, encrypted: a full and two incremental ones of two channels, verified,
# restored and compared by rsync, copied back to a directory, and thrown away by a rule; nothing of
# names and content can be read in the store.
#   remote-demo.sh [--faults N]   also kills and stops the gateway at N places each of a job and of
#                                 a restore: nothing hangs, and no job that counts is damaged
# Ends with 77 where the store's packages can't be installed.
set -euo pipefail

. "$(dirname "$0")/common.sh"

faults=0
case $# in
  0) ;;
  2) [ "$1" = --faults ] && faults=$2 ;;
  *) sed -n '2,/^set/s/^# \{0,1\}//p' "$0" | sed '/^set/d' >&2; exit 2 ;;
esac

agent=${MTF_AGENT:-$root/build/release/agent/mtf-agent}
[ -x "$agent" ] || { echo "build the release preset first: ./scripts/run.sh --help" >&2; exit 2; }
work=$(mktemp -d)
trap '"$root/scripts/remote.sh" down "$work/store" || true; rm -rf "$work"' EXIT
"$root/scripts/remote.sh" up "$work/store" >"$work/up" || exit $?
export RCLONE_CONFIG=$work/store/rclone.conf
unset AWS_CA_BUNDLE http_proxy https_proxy HTTP_PROXY HTTPS_PROXY
mkdir "$work/tmp"
export TMPDIR=$work/tmp

fail() { echo "FAILED: $*" >&2; exit 1; }
jobs_on() { "$agent" "$@" --storage rclone:sealed:jobs --name demo; }
save() { jobs_on "$1" --source "$work/source" --channels 2 --quiet --tmp "$work/tmp"; }

# What is restored is what was saved, with rights, links and dates.
compare() {
  rm -rf "$work/back"
  jobs_on restore --to "$work/back"
  [ -z "$(rsync -aHAXni --delete "$work/source/" "$work/back$work/source/")" ] ||
    fail "what was restored differs"
}

echo "== a full and two incremental jobs of two channels, encrypted"
cp -a "$root/agent" "$work/source"
head -c 30000000 /dev/urandom >"$work/source/large"
ln -s large "$work/source/link"
ln "$work/source/large" "$work/source/second-name"
echo 'a-content-that-nobody-else-has' >"$work/source/a-name-that-nobody-else-has"
save full
sleep 1.1
echo new >"$work/source/new"
save incremental
rm "$work/source/new"
echo newer >"$work/source/newer"
sleep 1.1
save incremental
jobs_on jobs
jobs_on verify --all
compare
echo "restored and compared by rsync: the same"

echo "== what the store holds"
rclone ls store:backups | tee "$work/listing"
rclone copy store:backups "$work/objects" --retries 1
for word in demo jobs nobody-else-has; do
  if grep -q "$word" "$work/listing" || grep -rqa 'nobody-else-has' "$work/objects"; then
    fail "'$word' can be read in the store"
  fi
done
echo "neither names nor content can be read"

echo "== copied to a directory, and thrown away by a rule"
jobs_on copy --to "$work/directory" --quiet
"$agent" restore --storage "$work/directory" --name demo --to "$work/home"
[ -z "$(rsync -aHAXni --delete "$work/source/" "$work/home$work/source/")" ] ||
  fail "what was restored from the copy differs"
save full
jobs_on prune --keep-last 1
rm -rf "${work:?}/home" "${work:?}/directory"

# disturb HOW AFTER COMMAND...: kills the gateway AFTER milliseconds behind the start of COMMAND and
# starts it anew, or stops it until COMMAND has ended. Prints how that ended; five minutes at most.
disturb() {
  local how=$1 after=$2 gateway code=0 begun
  shift 2
  gateway=$(cat "$work/store/gateway.id")
  begun=$(date +%s)
  RCLONE_TIMEOUT=3s RCLONE_CONTIMEOUT=3s RCLONE_LOW_LEVEL_RETRIES=2 \
    timeout 300 "$@" >"$work/output" 2>&1 &
  local command=$!
  sleep "$(awk -v ms="$after" 'BEGIN {print ms / 1000}')"
  kill -"$how" "$gateway"
  if [ "$how" = KILL ]; then
    sleep 0.3
    "$root/scripts/remote.sh" again "$work/store"
  fi
  wait "$command" || code=$?
  [ "$how" = KILL ] || kill -CONT "$gateway"
  echo "$how after $after ms: exit $code in $(($(date +%s) - begun)) s: $(tail -n 1 "$work/output")"
  [ "$code" -le 1 ] || fail "it ended with $code"
}

if [ "$faults" -gt 0 ]; then
  echo "== a gateway that dies or hangs"
  for how in KILL STOP; do
    for ((i = 0; i < faults; i++)); do
      date +%N >"$work/source/new"
      disturb "$how" $((i * 150)) "$agent" incremental --source "$work/source" --channels 2 --quiet \
        --storage rclone:sealed:jobs --name demo --tmp "$work/tmp"
      jobs_on jobs >"$work/jobs" || fail "the jobs can't be listed"
      ! grep -q incomplete "$work/jobs" || fail "a job isn't complete"
      jobs_on verify >/dev/null || fail "the newest job is damaged"
    done
    for ((i = 0; i < faults; i++)); do
      rm -rf "$work/back"
      disturb "$how" $((i * 100)) "$agent" restore --storage rclone:sealed:jobs --name demo \
        --to "$work/back"
    done
  done
  save incremental
  compare
  rclone lsf sealed:jobs | awk '!/^demo\.[0-9]+\.[12]\.(mtf|cat)$/ {print; bad = 1} END {exit bad}' ||
    fail "something is left of a job that failed"
fi
echo "All of this went well."
