# shellcheck shell=sh
# Shared by the scripts of this folder, which read it with `.`.
# Says what it does on standard error, so that standard output stays the program's.

root=$(cd "$(dirname "$0")/.." && pwd)

# with_usual_layout ARGUMENT...: starts the calling script again with the address space laid out as usual,
# where the machine allows to ask. The thread sanitizer needs that, and programs that clang-14 built with
# the address sanitizer hang now and then without it.
with_usual_layout() {
  if [ -z "${MTF_USUAL_LAYOUT:-}" ] && setarch "$(uname -m)" -R true 2>/dev/null; then
    MTF_USUAL_LAYOUT=1 exec setarch "$(uname -m)" -R "$0" "$@"
  fi
}

as_root() {
  if [ "$(id -u)" -eq 0 ]; then
    "$@"
  else
    sudo "$@"
  fi
}

# Prints those of the packages listed in the given files that aren't installed.
missing_packages() {
  cat "$@" | grep -v '^#' | while read -r package; do
    case $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) in
      installed) ;;
      *) echo "$package" ;;
    esac
  done
}

# Installs what is missing of the packages listed in the given files; asks nothing.
install_packages() {
  command -v dpkg-query >/dev/null || return 0
  missing=$(missing_packages "$@")
  [ -n "$missing" ] || return 0
  # shellcheck disable=SC2086 # one argument for each package
  echo Installing $missing >&2
  quietly as_root apt-get update
  # shellcheck disable=SC2086
  quietly as_root env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y --no-install-recommends $missing
}

# Runs a command and shows what it printed only if it fails; then the script ends.
quietly() {
  log=$(mktemp)
  if "$@" >"$log" 2>&1 </dev/null; then
    rm -f "$log"
  else
    status=$?
    cat "$log" >&2
    rm -f "$log"
    echo "Failed: $*" >&2
    exit "$status"
  fi
}

# configure PRESET [OPTION...]
configure() {
  if [ ! -f "$root/build/$1/build.ninja" ]; then
    echo "Building ($1); this takes a few minutes the first time" >&2
  fi
  (cd "$root" && quietly cmake --preset "$@")
}

# build PRESET [TARGET]: quick where nothing changed.
build() {
  (cd "$root" && quietly cmake --build --preset "$1" -j"$(nproc)" ${2:+--target "$2"})
}
