#!/bin/bash
# run_archive_host.sh ARCHIVE_HOST MTF_AGENT FILES: an archive of as many files, saved as it is, and
# the same unpacked and saved from there, restore to the same bytes, modes and times.
set -euo pipefail
host=$1 agent=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
mkdir storage unpacked

# Trees: a large one for tar, a small one for the others.
make_tree() { # make_tree DIRECTORY FILES
  perl -e '
    use strict; my ($top, $count) = @ARGV; srand(1); mkdir $top or die;
    my $text = join "", map { chr(32 + int rand 95) } 1 .. 4096;
    for my $i (0 .. $count - 1) {
      my $dir = sprintf "%s/d%03d", $top, $i / 100;
      mkdir $dir; mkdir "$dir/sub" if $i % 100 == 50;
      my $name = $i % 100 < 50 ? sprintf("%s/%05d.c", $dir, $i) : sprintf("%s/sub/%05d.c", $dir, $i);
      open my $file, ">", $name or die; print $file substr $text, 0, int rand 4096; close $file;
      chmod $i % 3 ? 0644 : 0750, $name; utime 1e9 + $i, 1e9 + $i, $name;
    }
    utime 5e8, 5e8, glob "$top/* $top/*/sub";' "$1" "$2"
}
make_tree tree "$3"
printf 'odd' >'tree/a\b'
printf 'bytes' >$'tree/\xff\xc3\xa4'
: >tree/empty
ln tree/empty tree/d000/linked
ln -s empty tree/symbolic
ln -P tree/symbolic tree/d000/symbolic
mkfifo -m 640 tree/fifo
mkdir -m 711 tree/nothing
make_tree little 150
tar czf t.tgz tree
perl -MIO::Compress::Zip=zip,:constants -e '
  zip [grep { -f } glob "little/* little/*/* little/*/*/*"] => "little.zip" or die' 2>/dev/null || rm -f little.zip
(find little; echo TRAILER!!!) | perl -ne '
  chomp; my @s = lstat; @s = (0) x 13 unless @s; my $n = -f _ && $_ ne "TRAILER!!!" ? $s[7] : 0;
  printf "070701%08X%08X%08X%08X%08X%08X%08X%08X%08X%08X%08X%08X%08X", 0, $s[2], $s[4], $s[5], 1,
    $s[9], $n, 0, 0, 0, 0, length($_) + 1, 0;
  print $_, "\0" x (1 + (-(110 + length($_) + 1) & 3));
  if ($n) { open my $f, "<", $_ or die; local $/; print <$f>, "\0" x (-$n & 3) }' >little.cpio

# What a restored tree is held to: a directory stands for its time alone, as a plain job saves no
# more of it.
described() { # described DIRECTORY
  (cd "$1" && find . -mindepth 1 \( -type d -printf '%P %Ts\n' -o -type l -printf '%P %Ts %U %l\n' -o -printf '%P %m %Ts %U %G %s %n\n' \) | LC_ALL=C sort)
}
restored() { # restored NAME TO
  "$agent" verify --storage storage --name "$1" >/dev/null
  "$agent" list --storage storage --name "$1" >/dev/null
  "$agent" restore --storage storage --name "$1" --to "$2" >/dev/null
}
same() { # same DIRECTORY DIRECTORY
  diff -r --no-dereference --exclude=fifo "$1" "$2"
  diff <(described "$1") <(described "$2")
}

tar xf t.tgz -C unpacked
touch -d @500000000 unpacked/tree
touch -d @500000000 tree && tar czf t.tgz tree
"$agent" full --plain --quiet --source "$work/unpacked" --storage storage --name plain >/dev/null
restored plain from-plain
for channels in 1 3; do
  "$host" t.tgz storage "tar$channels" $channels >out 2>err
  if grep -v '^Summary: ' err; then exit 1; fi
  restored "tar$channels" "from-tar$channels"
  same "from-tar$channels" "from-plain$work/unpacked"
done

# In the order of names, too, and from other kinds of archives.
"$host" --walk little.cpio storage walk 2 >out
restored walk from-walk
same from-walk/little little
"$host" little.cpio storage cpio >out
restored cpio from-cpio
same from-cpio/little little
if [ -f little.zip ]; then
  "$host" little.zip storage zip 2 >out
  restored zip from-zip
  diff -r from-zip/little little
fi

# A damaged archive is told and leaves nothing.
head -c 5000 t.tgz >broken.tgz
if "$host" broken.tgz storage broken >out 2>err; then exit 1; fi
grep -q broken.tgz err
[ -z "$(find storage -name 'broken.*')" ]
