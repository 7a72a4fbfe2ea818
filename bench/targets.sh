#!/usr/bin/env bash
# The performance targets in one run: at N points (default 1000000),
# k-nearest 8, moran and general-g against `ogr2ogr -f CSV /vsistdout/` of
# the same file, hotspot and cluster-outlier against `ogr2ogr` copying the
# points to a new GeoPackage (hotspot once more replacing its layer in the
# file it wrote); ten incremental bands against one moran at the
# largest band, the optimized hot spot analysis against the copy; the
# geographical detector with three integer factors of 10 strata against the
# CSV dump of the same file. Elapsed and
# CPU (user + system) seconds, peak memory, and the ratios of both times. The
# copy without a spatial index (`-lco SPATIAL_INDEX=NO`) is the floor of any
# GeoPackage write, and a plain SQLite insert loop of as many rows that of
# the result's inserts.
#   bench/targets.sh BUILD_DIR [N]
here=$(cd "$(dirname "$0")" && pwd)
source "$here/common.sh" "$1"
n=${2:-1000000}
random_points "$n"
knn=(--field VALUE --conceptualization k-nearest --k 8 --quiet --json)

# "elapsed cpu peak-MB" of a command, output discarded.
measure() {
  /usr/bin/time -f "%e %U %S %M" -o "$tmp/t" "$@" >/dev/null 2>"$tmp/err" || { cat "$tmp/err" >&2; return 1; }
  read -r e u s m < "$tmp/t"
  python3 -c "print('$e', round($u + $s, 2), $m // 1024)"
}
csv=$(measure ogr2ogr -f CSV /vsistdout/ "$points")
copy=$(measure ogr2ogr -f GPKG "$tmp/copy.gpkg" "$points")
floor=$(measure ogr2ogr -f GPKG -lco SPATIAL_INDEX=NO "$tmp/floor.gpkg" "$points")
printf '%-18s %9s %9s %8s   %s\n' run "elapsed s" "CPU s" "peak MB" "ratio elapsed / CPU"
row() {  # name "e c m" reference
  read -r e c m <<< "$2"
  read -r re rc _ <<< "$3"
  printf '%-18s %9s %9s %8s   %s\n' "$1" "$e" "$c" "$m" \
    "$(python3 -c "print(f'{$e / $re:.2f}x / {$c / max($rc, 0.01):.2f}x of $4')")"
}
printf '%-18s %9s %9s %8s\n' "CSV dump" $csv
printf '%-18s %9s %9s %8s\n' "GeoPackage copy" $copy
printf '%-18s %9s %9s %8s\n' "copy, no index" $floor
# The same number of hot spot rows through SQLite alone: the floor of the
# result's insert stage.
printf '%-18s %9s\n' "SQLite insert loop" "$("$build/bench/sqlite_insert_floor" "$tmp/floor.db" "$n")"
row moran "$(measure "$z" moran --input "$points" "${knn[@]}")" "$csv" "the CSV dump"
row general-g "$(measure "$z" general-g --input "$points" "${knn[@]}")" "$csv" "the CSV dump"
row hotspot "$(measure "$z" hotspot --input "$points" "${knn[@]}" --output "$tmp/gi.gpkg" --overwrite)" "$copy" \
  "the GeoPackage copy"
# The same run again replaces the layer inside the file it just wrote.
row "hotspot, replaced" "$(measure "$z" hotspot --input "$points" "${knn[@]}" --output "$tmp/gi.gpkg" --overwrite)" \
  "$copy" "the GeoPackage copy"
row cluster-outlier "$(measure "$z" cluster-outlier --input "$points" "${knn[@]}" --output "$tmp/lm.gpkg" --overwrite)" \
  "$copy" "the GeoPackage copy"
row "moran (file path)" "$(measure "$z" moran --input "$points" "${knn[@]}" --memory-budget 0.001)" "$csv" "the CSV dump"
# Ten incremental bands against one fixed-band moran at the largest of them.
incremental=$(measure "$z" incremental --input "$points" --field VALUE --quiet)
largest=$("$z" incremental --input "$points" --field VALUE --quiet --json |
  python3 -c "import json, sys; print(json.load(sys.stdin)['bands'][-1]['distance'])")
fixed=$(measure "$z" moran --input "$points" --field VALUE --conceptualization fixed-distance-band \
  --distance-band "$largest" --quiet --json)
printf '%-18s %9s %9s %8s\n' "moran, last band" $fixed
row "incremental (10)" "$incremental" "$fixed" "one moran at the last band"
row "optimized-hotspot" "$(measure "$z" optimized-hotspot --input "$points" --output "$tmp/ohs.gpkg" --quiet)" \
  "$copy" "the GeoPackage copy"
factors="$tmp/factors.gpkg"
ogr2ogr -f GPKG "$factors" "$points" -nln points -sql "SELECT geom, VALUE, CAST(fid % 10 AS INTEGER) AS F1, \
  CAST((fid * 7919) % 10 AS INTEGER) AS F2, CAST(VALUE * 1000 AS INTEGER) % 10 AS F3 FROM points"
factors_csv=$(measure ogr2ogr -f CSV /vsistdout/ "$factors")
printf '%-18s %9s %9s %8s\n' "CSV dump, factors" $factors_csv
row geodetector "$(measure "$z" geodetector --input "$factors" --dependent VALUE --factors F1,F2,F3 --quiet --json)" \
  "$factors_csv" "the CSV dump of the same file"
