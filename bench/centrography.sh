#!/usr/bin/env bash
# Geographic distributions end to end, from a GeoPackage of random points:
# the linear measures at every size, the central feature (all pairs within
# its one group) at 10000 points only. Time and peak memory.
#   bench/centrography.sh BUILD_DIR [N ...]   (default N: 10000 100000 1000000)
source "$(dirname "$0")/common.sh" "$@"
for n in ${sizes[*]}; do
  random_points "$n"
  commands=(mean-center median-center standard-distance ellipse)
  [ "$n" -le 10000 ] && commands+=(central-feature)
  for command in "${commands[@]}"; do
    t=$(timed "$z" "$command" --json --weight-field VALUE --input "$points" --output "$tmp/out$n.gpkg" --overwrite)
    printf '%8d  %-18s %s\n' "$n" "$command" "$t"
  done
done
