#!/usr/bin/env bash
# Writes N random points in the unit square (EPSG:4326, as bench/common.sh's
# files but without an R-tree, which GDAL takes longest over) with the double
# field VALUE = 100 x to a GeoPackage, through a CSV and ogr2ogr: 5·10^7
# points take about two minutes, where make_random_points takes half an hour.
#   bench/large_points.sh N OUTPUT.gpkg
set -euo pipefail
n=${1:?number of points}
out=${2:?output GeoPackage}
csv=$(mktemp --suffix=.csv)
trap 'rm -f "$csv"' EXIT
awk -v n="$n" 'BEGIN { srand(42); print "x,y,VALUE"
  for (i = 0; i < n; i++) { x = rand(); y = rand(); printf "%.9f,%.9f,%.9f\n", x, y, x * 100 } }' > "$csv"
ogr2ogr -f GPKG "$out" "$csv" -oo X_POSSIBLE_NAMES=x -oo Y_POSSIBLE_NAMES=y -oo KEEP_GEOM_COLUMNS=NO \
  -oo AUTODETECT_TYPE=YES -lco SPATIAL_INDEX=NO -nln points -a_srs EPSG:4326 -gt 1000000
