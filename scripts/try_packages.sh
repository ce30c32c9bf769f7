#!/bin/sh
# Installs the packages on a bare Debian 12, saves and restores a tree there, builds a host with either
# library, and takes the packages off again; what they leave behind fails the script. Needs root, for
# the new system's folder, and what package.sh made. Takes some minutes.
# shellcheck disable=SC2016 # what stands in single quotes is for the new system's shell
set -eu

. "$(dirname "$0")/common.sh"

packages=$root/build/release/packages
[ -d "$packages" ] || "$root/scripts/package.sh"
command -v debootstrap >/dev/null || quietly as_root apt-get install -y debootstrap
bare=$(mktemp -d)
trap 'umount "$bare/proc" 2>/dev/null; rm -rf --one-file-system "$bare"' EXIT
quietly debootstrap --variant=minbase bookworm "$bare"
mount -t proc proc "$bare/proc"
cp "$packages"/*.deb "$root/examples/embed.cpp" "$root/examples/run_embed.sh" "$bare/tmp"

# inside COMMAND: runs it in the new system.
inside() {
  chroot "$bare" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive sh -euc "$1"
}

# Every file but what apt, ldconfig and the agent's runs keep for themselves.
files() {
  (cd "$bare" && find etc usr var ! -path 'var/cache/*' ! -path 'var/lib/apt/*' \
    ! -path 'var/lib/dpkg/*' ! -path 'var/log/*' ! -path 'var/tmp/*' ! -name ld.so.cache | sort)
}

quietly inside 'apt-get update'
# What the packages need stands beside them, so that only they come and go between the two looks.
quietly inside 'apt-get install -y --no-install-recommends g++ cmake make pkg-config
  apt-get install -y --no-install-recommends $(for deb in /tmp/*.deb; do dpkg-deb -f "$deb" Depends; done |
    tr -d " " | sed "s/([^)]*)//g" | tr "," "\n" | grep -v "^libmtf")'
files >"$bare/tmp/before"
quietly inside 'apt-get install -y --no-install-recommends /tmp/*.deb'
quietly inside 'mtf-agent --version
  mtf-agent full --quiet --source /etc --storage /tmp/s --name etc --tmp /tmp/w
  mtf-agent verify --storage /tmp/s --name etc
  mtf-agent restore --storage /tmp/s --name etc --to /tmp/r
  diff -r --no-dereference /etc /tmp/r/etc'
quietly inside 'mkdir /tmp/host && cd /tmp/host && cat >CMakeLists.txt <<END
cmake_minimum_required(VERSION 3.25)
project(host LANGUAGES CXX)
find_package(mtf REQUIRED)
foreach(kind shared static)
  add_executable(\${kind} /tmp/embed.cpp)
  target_link_libraries(\${kind} PRIVATE mtf::mtf_\${kind})
endforeach()
END
  cmake -B build >/dev/null && cmake --build build >/dev/null
  ldd build/shared | grep -o "libmtf[^ ]*"
  /tmp/run_embed.sh build/shared
  /tmp/run_embed.sh build/static'
quietly inside 'apt-get purge -y mtf-agent libmtf0 libmtf-dev'
files | diff "$bare/tmp/before" - || {
  echo "The packages left files behind." >&2
  exit 1
}
echo "The packages install, work and come off again."
