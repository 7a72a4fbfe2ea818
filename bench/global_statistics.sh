#!/usr/bin/env bash
# Global Moran's I and General G end to end from a GeoPackage of random
# points: k-nearest (k = 8) and a fixed band of about 8 neighbours. Up to
# 10000 features the weights are in memory; above, they stream from a
# temporary weights file. Time and peak memory.
#   bench/global_statistics.sh BUILD_DIR [N ...]   (default N: 10000 100000 1000000)
source "$(dirname "$0")/common.sh" "$@"
for n in ${sizes[*]}; do
  random_points "$n"
  for command in moran general-g; do
    for what in "k-nearest --k 8" "fixed-distance-band --distance-band $band"; do
      t=$(timed "$z" "$command" --json --input "$points" --field VALUE --conceptualization $what)
      printf '%8d  %-9s %-20s %s\n' "$n" "$command" "${what%% *}" "$t"
    done
  done
done
