#!/bin/sh
# Makes the corpus from real jobs on a small nasty tree: make_corpus.sh BUILD_DIR CORPUS_DIR
set -eu

build=$1
corpus=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
tree=$work/tree
mkdir -p "$corpus/jobs" "$corpus/catalogs" "$tree" "$work/storage"
umask 022

# The system's own record of a tree: names, holes, links, attributes, dates. The names `link` and
# `file` are those that the restore finds links in place of.
mkdir -p "$tree/link/below" "$tree/room" "$tree/many"
echo 'a small file' >"$tree/file"
: >"$tree/empty"
echo hidden >"$tree/.hidden"
echo linked >"$tree/hard1"
ln "$tree/hard1" "$tree/hard2"
ln "$tree/hard1" "$tree/link/below/hard3"
ln -s file "$tree/symbolic"
ln -s ../../../outside/directory "$tree/way-out"
ln -P "$tree/symbolic" "$tree/many/symbolic"
mkfifo "$tree/pipe"
# Only root makes them.
mknod "$tree/null" c 1 3 2>/dev/null || true
echo below >"$tree/link/below/file"
echo 'name' >"$tree/$(printf 'back\\slash \377\357\201\234 tab\t')"
# Behind the 1024th byte a name has a stream of its own.
long=$(printf '%0200d' 7)
mkdir -p "$tree/$long/$long/$long/$long/$long"
echo deep >"$tree/$long/$long/$long/$long/$long/$long"
printf start >"$tree/holes"
truncate -s 12000 "$tree/holes"
printf end >>"$tree/holes"
truncate -s 24000 "$tree/holes"
chmod 4711 "$tree/empty"
chmod 0500 "$tree/room"
for i in 1 2 3; do seq "$i" 60 >"$tree/many/$i"; done
touch -d 1969-12-31T23:59:59Z "$tree/many/1"
touch -d 2020-02-29T12:34:56Z "$tree/many/2"
# Not every file system has them.
setfattr -n user.note -v 'an attribute' "$tree/file" 2>/dev/null || true
setfattr -n user.directory -v 'of a directory' "$tree/link" 2>/dev/null || true

# agent COMMAND NAME [OPTION...]: entries that are skipped are no failure.
agent() {
  command=$1
  name=$2
  shift 2
  "$build/agent/mtf-agent" "$command" --quiet --storage "$work/storage" --name "$name" \
    --tmp "$work" --volume "C:=$tree" --source 'C:' "$@" >"$work/log" 2>&1 || [ $? -eq 3 ] || {
    cat "$work/log" >&2
    exit 1
  }
}

# pack NAME SEQ...: one input of all pieces of these jobs, and one of the catalogs alone, in which
# every byte counts.
pack() {
  name=$1
  shift
  catalogs=
  medias=
  for seq in "$@"; do
    catalogs="$catalogs $(echo "$work/storage/$name.$seq."*.cat)"
    medias="$medias $(echo "$work/storage/$name.$seq."*.mtf)"
  done
  input=$name.$(echo "$@" | tr ' ' -)
  # shellcheck disable=SC2086 # no name of a piece has a space
  "$build/fuzz/fuzz_pack" "$corpus/jobs/$input" $catalogs $medias
  # shellcheck disable=SC2086
  "$build/fuzz/fuzz_pack" "$corpus/catalogs/$input" $catalogs
}

echo 'a dump' >"$work/dump"
agent full records
pack records 1
agent full plain --plain --pre-action "$work/dump"
pack plain 1
for method in lz4 zstd; do
  agent full $method --compression $method
  pack $method 1
done
agent full two --channels 2
pack two 1
# A file that gives less than its size says is kept as corrupt.
short=/sys/devices/system/cpu/online
if [ -r "$short" ]; then
  agent full corrupt --source "$short"
  pack corrupt 1
fi

# A chain, in which something changed, came and went.
agent full chain
echo changed >"$tree/many/2"
echo new >"$tree/many/4"
rm "$tree/hard1"
agent incremental chain
pack chain 1
pack chain 2
pack chain 1 2
