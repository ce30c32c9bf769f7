#!/bin/sh
# A real object store on this machine, for tests and for who wants to try one: a monitor, an object
# store in memory and an S3 gateway of Ceph, one of each, on the loopback address.
#   remote.sh up DIR     starts it in the new directory DIR, and prints what to set to use it
#   remote.sh again DIR  starts the gateway anew where it was killed
#   remote.sh down DIR   ends it, by the process ids that are kept in DIR, and removes DIR
# DIR/rclone.conf then has the remotes `store`, `bucket` in it, and `sealed`, which encrypts into that.
# Ends with 77 where the packages can't be installed.
set -eu

. "$(dirname "$0")/common.sh"

usage() {
  sed -n '2,/^set/s/^# \{0,1\}//p' "$0" | sed '/^set/d' >&2
  exit 2
}

[ $# -eq 2 ] || usage
case $2 in /*) dir=$2 ;; *) dir=$(pwd)/$2 ;; esac

free_port() {
  perl -MIO::Socket::INET -e \
    'print IO::Socket::INET->new(LocalAddr => "127.0.0.1", Listen => 1)->sockport'
}

write_config() {
  fsid=$(cat /proc/sys/kernel/random/uuid)
  monitor=127.0.0.1:$(free_port)
  cat >"$dir/ceph.conf" <<END
[global]
fsid = $fsid
mon host = v1:$monitor
auth cluster required = none
auth service required = none
auth client required = none
auth supported = none
ms bind msgr2 = false
public addr = 127.0.0.1
mon allow pool size one = true
mon warn on pool no redundancy = false
osd pool default size = 1
osd pool default min size = 1
osd pool default pg num = 8
osd pool default pg autoscale mode = off
osd crush chooseleaf type = 0
osd objectstore = memstore
memstore device bytes = ${REMOTE_BYTES:-4294967296}
mon data avail crit = 1
run dir = $dir
admin socket = $dir/\$name.asok
log file = $dir/\$name.log
pid file = $dir/\$name.pid
keyring = $dir/keyring
mon data = $dir/mon
osd data = $dir/osd
mgr data = $dir/mgr
rgw data = $dir/rgw
rgw dynamic resharding = false
[client.rgw]
rgw frontends = beast endpoint=127.0.0.1:$gateway
END
}

ceph_on() { ceph -c "$dir/ceph.conf" "$@" >>"$dir/log" 2>&1; }

start() { # start NAME COMMAND...: in the foreground of its own, so that its process id is known
  name=$1
  shift
  setsid "$@" -c "$dir/ceph.conf" -f >>"$dir/log" 2>&1 </dev/null &
  echo $! >"$dir/$name.id"
}

wait_for() { # wait_for COMMAND...: half a minute at most
  tries=0
  until "$@" >>"$dir/log" 2>&1; do
    tries=$((tries + 1))
    [ $tries -lt 150 ] || return 1
    sleep 0.2
  done
}

# runs NAME: whether that process is there. A number may have gone to another one since.
runs() {
  case $(tr '\0' ' ' 2>/dev/null <"/proc/$(cat "$dir/$1.id")/cmdline" || true) in
    *"$dir/ceph.conf"*) ;;
    *) return 1 ;;
  esac
}

osd_is_up() { timeout 20 ceph -c "$dir/ceph.conf" osd stat 2>>"$dir/log" | grep -q '1 up'; }

osd_is_up_or_ended() { osd_is_up || ! runs osd; }

# On a busy machine it may ask the monitor for its place before it has the monitor's map. Then it
# ends with "wrong fsid".
start_osd() {
  for _ in 1 2 3 4 5; do
    start osd ceph-osd -i 0
    wait_for osd_is_up_or_ended
    if osd_is_up; then return; fi
  done
  return 1
}

start_gateway() {
  start gateway radosgw -n client.rgw
  # shellcheck disable=SC2016 # Perl's, not the shell's
  wait_for perl -MIO::Socket::INET -e \
    'exit !IO::Socket::INET->new(PeerAddr => "127.0.0.1", PeerPort => $ARGV[0])' "$gateway"
}

start_store() {
  mkdir "$dir/mon" "$dir/osd" "$dir/mgr" "$dir/rgw"
  quietly monmaptool --create --fsid "$fsid" --addv a "[v1:$monitor]" "$dir/monmap"
  quietly ceph-mon -c "$dir/ceph.conf" --mkfs -i a --monmap "$dir/monmap"
  start mon ceph-mon -i a
  wait_for timeout 20 ceph -c "$dir/ceph.conf" -s
  id=$(cat /proc/sys/kernel/random/uuid)
  ceph_on osd new "$id" 0
  quietly ceph-osd -c "$dir/ceph.conf" -i 0 --mkfs --osd-uuid "$id"
  start_osd
  start_gateway
  wait_for timeout 20 radosgw-admin -c "$dir/ceph.conf" user create --uid tests \
    --display-name tests --access-key tests --secret-key tests-secret
}

write_remotes() {
  cat >"$dir/rclone.conf" <<END
[store]
type = s3
provider = Ceph
endpoint = http://127.0.0.1:$gateway
access_key_id = tests
secret_access_key = tests-secret
[bucket]
type = alias
remote = store:backups
[sealed]
type = crypt
remote = store:backups/sealed
password = $(rclone obscure 'a word for the tests')
END
  env -u AWS_CA_BUNDLE RCLONE_CONFIG="$dir/rclone.conf" rclone mkdir store:backups >>"$dir/log" 2>&1
}

down() {
  for name in gateway osd mon; do
    [ -f "$dir/$name.id" ] || continue
    if runs "$name"; then kill -9 "$(cat "$dir/$name.id")" 2>/dev/null || true; fi
  done
  if [ -f "$dir/ceph.conf" ]; then rm -rf "$dir"; fi
}

up() {
  unset AWS_CA_BUNDLE http_proxy https_proxy HTTP_PROXY HTTPS_PROXY
  (install_packages "$root/scripts/packages-remote.txt") || {
    echo "The packages of the store can't be installed here." >&2
    exit 77
  }
  mkdir -m 700 "$dir"
  trap 'status=$?; tail -n 20 "$dir/log" >&2 || true; down; exit $status' EXIT
  trap 'exit 1' INT TERM HUP
  gateway=$(free_port)
  write_config
  : >"$dir/keyring"
  start_store
  write_remotes
  trap - EXIT INT TERM HUP
  echo "export RCLONE_CONFIG='$dir/rclone.conf'; unset AWS_CA_BUNDLE http_proxy https_proxy"
}

again() {
  gateway=$(sed -n 's/^rgw frontends = .*:\([0-9]*\)$/\1/p' "$dir/ceph.conf")
  start_gateway
}

case $1 in
  up) up ;;
  again) again ;;
  down) down ;;
  *) usage ;;
esac
