#!/bin/sh
# run_embed.sh EMBED: the example saves a directory, and both pieces are there; of one that it can't
# save there is nothing.
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/source" "$work/storage"
echo "what must not be lost" >"$work/source/file.txt"
"$1" "$work/source" "$work/storage"
grep -q "what must not be lost" "$work/storage/demo.1.0.mtf"
[ "$(tail -c 64 "$work/storage/demo.1.0.cat" | head -c 6 | tail -c 4)" = FEND ]

mkdir "$work/empty"
! "$1" "$work/missing" "$work/empty" || exit 1
[ -z "$(ls "$work/empty")" ]
