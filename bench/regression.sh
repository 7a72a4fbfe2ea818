#!/usr/bin/env bash
# Ordinary least squares and geographically weighted regression end to end
# from a GeoPackage of random points with five explanatory fields. Time and
# peak memory of:
#   ols      10^6 features, 5 fields (residual Moran's I skipped, then with
#            8 nearest neighbours);
#   gwr      10^5 features, 5 fields, adaptive bisquare, 100 neighbours given;
#   gwr-aicc 10^4 features, 5 fields, adaptive bisquare, bandwidth by AICc
#            search, and fixed Gaussian by AICc search.
#   bench/regression.sh BUILD_DIR
# Figures are elapsed seconds, CPU seconds (user + system) and peak memory.
# REGRESSION_INPUTS: a folder of rN.gpkg made earlier by make_regression_points.
source "$(dirname "$0")/common.sh" "$1"
make_points() {
  points="$tmp/r$1.gpkg"
  if [ -n "${REGRESSION_INPUTS:-}" ] && [ -f "$REGRESSION_INPUTS/r$1.gpkg" ]; then
    points="$REGRESSION_INPUTS/r$1.gpkg"
  else
    "$build/bench/make_regression_points" "$points" "$1"
  fi
}
timed() {
  /usr/bin/time -f "%e s elapsed, %U+%S s CPU, %M KiB peak" -o "$tmp/time" "$@" >/dev/null
  cat "$tmp/time"
}
model=(--dependent Y --explanatory X1,X2,X3,X4,X5 --overwrite --output "$tmp/out.gpkg")
make_points 1000000
printf '%8d  %-44s %s\n' 1000000 "ols (no residual Moran's I)" "$(timed "$z" ols --json --input "$points" "${model[@]}" --no-moran)"
printf '%8d  %-44s %s\n' 1000000 "ols (residual Moran's I, k-nearest 8)" \
  "$(timed "$z" ols --json --input "$points" "${model[@]}" --conceptualization k-nearest --k 8)"
make_points 100000
printf '%8d  %-44s %s\n' 100000 "gwr adaptive bisquare, 100 neighbours" \
  "$(timed "$z" gwr --json --input "$points" "${model[@]}" --bandwidth 100)"
make_points 10000
printf '%8d  %-44s %s\n' 10000 "gwr adaptive bisquare, AICc search" "$(timed "$z" gwr --json --input "$points" "${model[@]}")"
printf '%8d  %-44s %s\n' 10000 "gwr fixed gaussian, AICc search" \
  "$(timed "$z" gwr --json --input "$points" "${model[@]}" --kernel gaussian --bandwidth-type fixed)"
