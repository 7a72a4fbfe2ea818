#!/usr/bin/env bash
# Building binary weights files for random points from a GeoPackage:
# k-nearest (k = 8) and a fixed band of about 8 neighbours, with time and
# peak memory.
#   bench/weights_files.sh BUILD_DIR [N ...]   (default N: 10000 100000 1000000)
source "$(dirname "$0")/common.sh" "$@"
for n in ${sizes[*]}; do
  random_points "$n"
  for what in "k-nearest --k 8" "fixed-distance-band --distance-band $band"; do
    t=$(timed "$z" weights build --quiet --input "$points" --id-field QlID --output "$tmp/w.swmb" \
          --conceptualization $what)
    printf '%8d  %-22s %s, file %s bytes\n' "$n" "${what%% *}" "$t" "$(stat -c %s "$tmp/w.swmb")"
  done
done
