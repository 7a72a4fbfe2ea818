#!/usr/bin/env bash
# Hot spots (Gi*) and clusters and outliers (local Moran's I) end to end,
# from a GeoPackage of random points to a GeoPackage, with a fixed band of
# about 8 neighbours. Time and peak memory.
#   bench/local_statistics.sh BUILD_DIR [N ...]   (default N: 10000 100000 1000000)
source "$(dirname "$0")/common.sh" "$@"
for n in ${sizes[*]}; do
  random_points "$n"
  for command in hotspot cluster-outlier; do
    t=$(timed "$z" "$command" --json --input "$points" --field VALUE --conceptualization fixed-distance-band \
          --distance-band "$band" --output "$tmp/out$n.gpkg" --overwrite)
    printf '%8d  %-16s %s\n' "$n" "$command" "$t"
  done
done
