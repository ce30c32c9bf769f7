#!/bin/bash
# run_lister_host.sh LISTER_HOST MTF_AGENT: what standard input names is saved, and no more.
set -euo pipefail
host=$1 agent=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
mkdir -p tree/a/b tree/c storage
echo one >tree/a/one
echo two >$'tree/a/b/new\nline'
echo three >'tree/c/back\slash'
echo four >tree/z
echo no >tree/a/not-named
chmod 600 tree/a/one
touch -d @1000000000 tree/z tree/c
ln -s z tree/link
ln tree/z tree/a/further

restored() { # restored NAME
  "$agent" verify --storage storage --name "$1" >/dev/null
  "$agent" restore --storage storage --name "$1" --to "to-$1" >/dev/null
}

for channels in 1 2; do
  name=nul$channels
  find "$work/tree" ! -name not-named -print0 | "$host" -0 storage "$name" $channels >out 2>err
  restored "$name"
  if grep -v '^Summary: ' err; then exit 1; fi
  diff -r --no-dereference --exclude=not-named tree "to-$name$work/tree"
  [ "to-$name$work/tree/a/further" -ef "to-$name$work/tree/z" ]
  [ ! -e "to-$name$work/tree/a/not-named" ]
  [ "$(stat -c '%a %Y' "to-$name$work/tree/a/one")" = "$(stat -c '%a %Y' tree/a/one)" ]
  [ "$(stat -c %Y "to-$name$work/tree/c")" = 1000000000 ]
  # The list holds six names, and ends whole.
  [ "$(od -An -tu8 -j46 -N8 "storage/$name.list" | tr -d ' ')" = 6 ]
  [ "$(tail -c 64 "storage/$name.list" | head -c 6 | tail -c 4)" = FEND ]
done

printf '%s\n' "$work/tree/z" "$work/tree/a/one" "$work/tree/gone" "$work/tree/z" |
  "$host" storage lines >out 2>err
grep -q "left out: $work/tree/gone" err
restored lines
[ "$(cd "to-lines$work/tree" && find . -type f | LC_ALL=C sort | tr '\n' ' ')" = "./a/one ./z " ]

if echo relative | "$host" storage no 2>err; then exit 1; fi
grep -q "not an absolute path: relative" err
