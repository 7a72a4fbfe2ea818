#!/usr/bin/env bash
# Building binary weights files for random points from a GeoPackage:
# k-nearest (k = 8) and a fixed band of about 8 neighbours, with time and
# peak memory from /usr/bin/time.
#   bench/weights_files.sh BUILD_DIR [N ...]   (default N: 10000 100000 1000000)
set -euo pipefail
build=${1:?build directory (configured with -DSA_BUILD_BENCH=ON)}
shift || true
sizes=("${@:-10000 100000 1000000}")
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
z="$build/apps/zostat/zostat"
for n in ${sizes[*]}; do
  "$build/bench/make_random_points" "$tmp/p$n.gpkg" "$n"
  band=$(python3 -c "import math; print(math.sqrt(8 / (math.pi * $n)))")
  for what in "k-nearest --k 8" "fixed-distance-band --distance-band $band"; do
    /usr/bin/time -f "%e s, %M KiB peak" -o "$tmp/time" \
      "$z" weights build --quiet --input "$tmp/p$n.gpkg" --id-field QlID --output "$tmp/w.swmb" \
      --conceptualization $what >/dev/null
    printf '%8d  %-22s %s, file %s bytes\n' "$n" "${what%% *}" "$(cat "$tmp/time")" "$(stat -c %s "$tmp/w.swmb")"
  done
done
