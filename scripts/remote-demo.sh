#!/bin/bash
# Jobs on a real object store, encrypted: a full and two incremental ones of two channels, verified,
# restored and compared by rsync, copied back to a directory, and thrown away by a rule; nothing of
# names and content can be read in the store.
#   remote-demo.sh [--faults N]   also kills and stops the gateway at N places each of a job and of
#                                 a restore: nothing hangs, no job that counts is damaged, and the
#                                 next one goes well
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

fail() {
  echo "FAILED: $*" >&2
  exit 1
}
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
head -c 12000000 /dev/urandom >"$work/source/large"
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

echo "== the lock of a machine whose clock is an hour behind"
echo '{"host": "other", "machine": "-", "process": 1, "started": 1}' >"$work/lock"
touch -d '1 hour ago' "$work/lock"
rclone copyto "$work/lock" sealed:jobs/demo.lock.other
! save incremental 2>"$work/output" || fail "a lock that is held was passed by"
cat "$work/output"
grep -q "is running: host 'other'" "$work/output" || fail "the job failed for another reason"
rclone deletefile sealed:jobs/demo.lock.other

echo "== copied to a directory, and thrown away by a rule"
jobs_on copy --to "$work/directory" --quiet
"$agent" restore --storage "$work/directory" --name demo --to "$work/home"
[ -z "$(rsync -aHAXni --delete "$work/source/" "$work/home$work/source/")" ] ||
  fail "what was restored from the copy differs"
save full
jobs_on prune --keep-last 1
rm -rf "${work:?}/home" "${work:?}/directory"

milliseconds() { echo $(($(date +%s%N) / 1000000)); }

# Calls that give up soon, and parts small enough for a media to have several.
impatient() {
  RCLONE_TIMEOUT=1s RCLONE_CONTIMEOUT=1s RCLONE_LOW_LEVEL_RETRIES=1 RCLONE_S3_CHUNK_SIZE=5Mi \
    timeout 120 "$agent" "$@" --storage rclone:sealed:jobs --name demo
}
impatient_job() {
  renew_source
  impatient incremental --source "$work/source" --channels 2 --quiet
}
impatient_restore() {
  rm -rf "$work/back"
  impatient restore --to "$work/back"
}
renew_source() {
  head -c 12000000 /dev/urandom >"$work/source/large"
  date +%N >"$work/source/new"
}

# disturb HOW PLACE COMMAND: runs COMMAND, and at PLACE of its usual time kills the gateway and
# starts it anew (KILL), stops it until COMMAND has ended (STOP), or for three seconds (PAUSE).
# How COMMAND ended is in $code.
disturb() {
  local how=$1 place=$2 gateway begun signal=STOP
  shift 2
  [ "$how" != KILL ] || signal=KILL
  code=0
  gateway=$(cat "$work/store/gateway.id")
  begun=$(milliseconds)
  "$@" >"$work/output" 2>&1 &
  local command=$!
  sleep "$(awk -v ms=$((usual * place / 1000)) 'BEGIN {print ms / 1000}')"
  kill -"$signal" "$gateway"
  case $how in
    KILL) sleep 0.3; "$root/scripts/remote.sh" again "$work/store" ;;
    PAUSE) sleep 3; kill -CONT "$gateway" ;;
  esac
  wait "$command" || code=$?
  [ "$how" != STOP ] || kill -CONT "$gateway"
  local took=$(($(milliseconds) - begun))
  [ $took -le "$longest" ] || longest=$took
  ends[code]=$((${ends[code]:-0} + 1))
  echo "$how at $((place / 10)) %: exit $code in $took ms: $(grep -v ^note "$work/output" | tail -n 1)"
  [ "$code" -le 1 ] || fail "it ended with $code: $(cat "$work/output")"
}

# at_places COMMAND CHECK: disturbs COMMAND in each way at the places, with CHECK behind each.
at_places() {
  local how i begun
  longest=0 ends=()
  begun=$(milliseconds)
  "$1" >/dev/null 2>&1 || fail "it doesn't go well without a fault"
  usual=$(($(milliseconds) - begun))
  jobs=$(count_jobs)
  for how in KILL STOP; do
    for ((i = 0; i < faults; i++)); do
      if [ $how = STOP ] && [ $((i % 4)) -eq 1 ]; then
        disturb PAUSE $(((2 * i + 1) * 500 / faults)) "$1"
      else
        disturb $how $(((2 * i + 1) * 500 / faults)) "$1"
      fi
      "$2"
    done
  done
  echo "$1: ${ends[0]:-0} went well, ${ends[1]:-0} failed; the longest took $longest ms"
}

count_jobs() { echo $(($(jobs_on jobs --quick | wc -l) - 1)); }

# What was there is sound, the next job goes well, and nothing else is left.
after_job() {
  local before=$jobs
  jobs_on jobs >"$work/jobs" || fail "the jobs can't be listed"
  ! grep -qE 'incomplete|lacks|damaged' "$work/jobs" || fail "a job isn't whole: $(cat "$work/jobs")"
  jobs=$(($(wc -l <"$work/jobs") - 1))
  [ "$code" -ne 0 ] || [ "$jobs" -eq $((before + 1)) ] || fail "the job that went well isn't there"
  if [ "$code" -eq 1 ] && [ "$jobs" -ne "$before" ]; then
    echo "note: the job that ended with 1 is there, whole"
  fi
  jobs_on verify --all --quiet >"$work/output" || fail "a job is damaged: $(cat "$work/output")"
  renew_source
  save incremental || fail "the next job fails"
  rclone lsf sealed:jobs | awk '!/^demo\.[0-9]+\.[12]\.(mtf|cat)$/ {print; bad = 1} END {exit bad}' ||
    fail "something is left of a job that failed"
  jobs_on prune --keep-last 1 >"$work/output" || fail "prune: $(cat "$work/output")"
  jobs=$(count_jobs)
}

after_restore() {
  [ "$code" -eq 0 ] || return 0
  [ -z "$(rsync -aHAXni --delete "$work/source/" "$work/back$work/source/")" ] ||
    fail "a restore that ended with 0 differs"
}

if [ "$faults" -gt 0 ]; then
  echo "== a gateway that dies or hangs"
  at_places impatient_job after_job
  save incremental
  compare
  at_places impatient_restore after_restore
  compare
fi
echo "All of this went well."
