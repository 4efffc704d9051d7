#!/usr/bin/env bash
# Builds Quillarium and starts it on the bundled sample shoot. Until the window exists, the
# sample shoot is rendered headless into ./out instead.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/build.sh
app=build/app/quillarium
samples=resources/samples

"$app" "$samples"

mkdir -p out
rendered=0
failed=0
for photo in "$samples"/*.{jpg,jpeg,png,tif,tiff,heic,dng,cr2,cr3,nef,arw,raf,orf,rw2}; do
  [ -e "$photo" ] || continue
  name=$(basename "$photo")
  if "$app" --render "$photo" "out/${name%.*}.jpg"; then
    rendered=$((rendered + 1))
  else
    echo "  could not render $name" >&2
    failed=$((failed + 1))
  fi
done

echo "rendered $rendered of $((rendered + failed)) sample photos into $(pwd)/out"
[ "$failed" -eq 0 ]
