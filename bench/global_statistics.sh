#!/usr/bin/env bash
# Global Moran's I and General G end to end from a GeoPackage of random
# points: k-nearest (k = 8) and a fixed band of about 8 neighbours. Up to
# 10000 features the weights are in memory; above, they stream from a
# temporary weights file. Time and peak memory from /usr/bin/time.
#   bench/global_statistics.sh BUILD_DIR [N ...]   (default N: 10000 100000 1000000)
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
  for command in moran general-g; do
    for what in "k-nearest --k 8" "fixed-distance-band --distance-band $band"; do
      /usr/bin/time -f "%e s, %M KiB peak" -o "$tmp/time" \
        "$z" "$command" --json --input "$tmp/p$n.gpkg" --field VALUE --conceptualization $what >/dev/null
      printf '%8d  %-9s %-20s %s\n' "$n" "$command" "${what%% *}" "$(cat "$tmp/time")"
    done
  done
done
