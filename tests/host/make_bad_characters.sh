#!/bin/sh
# Makes the damaged and oversized character files of the command-line tests in folder $1 from
# the sound binary glTF $2: an empty file, a text no reader takes, a copy cut short, a hierarchy 1001 levels deep and
# one of 100,000 nodes. Made at test time, so that no large file is checked in.
set -e
out=$1
mkdir -p "$out"
: > "$out/empty.glb"
echo "This is no character file." > "$out/text.glb"
head -c 6000 "$2" > "$out/cut.glb"
awk 'BEGIN {
  n = 1001
  printf "{\"asset\":{\"version\":\"2.0\"},\"scene\":0,\"scenes\":[{\"nodes\":[0]}],\"nodes\":["
  for (i = 0; i < n; i++) {
    if (i) printf ","
    if (i < n - 1) printf "{\"name\":\"n%d\",\"children\":[%d]}", i, i + 1
    else printf "{\"name\":\"n%d\"}", i
  }
  print "]}"
}' > "$out/deep.gltf"
awk 'BEGIN {
  n = 100000
  printf "{\"asset\":{\"version\":\"2.0\"},\"scene\":0,\"scenes\":[{\"nodes\":[0]}],\"nodes\":[{\"name\":\"r\",\"children\":["
  for (i = 1; i < n; i++) printf "%s%d", (i > 1 ? "," : ""), i
  printf "]}"
  for (i = 1; i < n; i++) printf ",{\"name\":\"n%d\"}", i
  print "]}"
}' > "$out/huge.gltf"
rm -f "$out/untouched.orvscene"
