#!/usr/bin/env bash
# Hot spots (Gi*) and clusters and outliers (local Moran's I) end to end,
# from a GeoPackage of random points to a GeoPackage, with a fixed band of
# about 8 neighbours. Time and peak memory from /usr/bin/time.
#   bench/local_statistics.sh BUILD_DIR [N ...]   (default N: 10000 100000 1000000)
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
  for command in hotspot cluster-outlier; do
    /usr/bin/time -f "%e s, %M KiB peak" -o "$tmp/time" \
      "$z" "$command" --json --input "$tmp/p$n.gpkg" --field VALUE --conceptualization fixed-distance-band \
      --distance-band "$band" --output "$tmp/out$n.gpkg" --overwrite >/dev/null
    printf '%8d  %-16s %s\n' "$n" "$command" "$(cat "$tmp/time")"
  done
done
