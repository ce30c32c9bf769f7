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
mkdir -p "$tree/link/below" "$tree/room" "$tree/many" "$tree/odd" "$tree/links" "$tree/nodes"
echo 'a small file' >"$tree/file"
: >"$tree/empty"
echo hidden >"$tree/.hidden"
echo linked >"$tree/hard1"
ln "$tree/hard1" "$tree/hard2"
ln "$tree/hard1" "$tree/link/below/hard3"
ln -s file "$tree/links/symbolic"
ln -s ../../../outside/directory "$tree/links/way-out"
ln -P "$tree/links/symbolic" "$tree/link/symbolic"
mkfifo "$tree/nodes/pipe"
# Only root makes them.
mknod "$tree/nodes/null" c 1 3 2>/dev/null || true
echo below >"$tree/link/below/file"
echo 'name' >"$tree/odd/$(printf 'back\\slash \377\357\201\234 tab\t')"
# Behind the 1024th byte a name has a stream of its own.
long=$(printf '%0200d' 7)
mkdir -p "$tree/long/$long/$long/$long/$long/$long"
echo deep >"$tree/long/$long/$long/$long/$long/$long/$long"
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

# agent COMMAND NAME SOURCES [OPTION...]: entries that are skipped are no failure. SOURCES are names in the
# tree, with spaces between them. Each job has few of them: what an input costs goes by its entries.
agent() {
  command=$1
  name=$2
  sources=
  for source in $3; do
    sources="$sources --source C:\\$source"
  done
  shift 3
  # shellcheck disable=SC2086 # no source has a space
  "$build/agent/mtf-agent" "$command" --quiet --storage "$work/storage" --name "$name" \
    --tmp "$work" --volume "C:=$tree" $sources "$@" >"$work/log" 2>&1 || [ $? -eq 3 ] || {
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

links='hard1 hard2 link links'
agent full names 'file empty .hidden odd room'
agent full links "$links"
agent full nodes 'nodes holes'
agent full long 'long'
echo 'a dump' >"$work/dump"
agent full plain 'file holes many' --plain --pre-action "$work/dump"
agent full lz4 'many holes' --compression lz4
agent full zstd 'many holes' --compression zstd
agent full two "$links" --channels 2
for name in names links nodes long plain lz4 zstd two; do
  pack $name 1
done
# A file that gives less than its size says is kept as corrupt.
short=/sys/devices/system/cpu/online
if [ -r "$short" ]; then
  agent full corrupt file --source "$short"
  pack corrupt 1
fi

# A chain, in which something changed, came and went.
agent full chain "$links many"
echo changed >"$tree/many/2"
echo new >"$tree/many/4"
rm "$tree/hard1"
agent incremental chain 'hard2 link links many'
pack chain 2
pack chain 1 2
