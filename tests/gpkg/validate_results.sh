#!/usr/bin/env bash
# Result GeoPackages pass GDAL's own GeoPackage validator (validate_gpkg.py
# from Debian's python3-gdal): a new file, and a layer replaced inside an
# existing file beside another layer, both with their spatial index.
#   validate_results.sh ZOSTAT DATA_DIR [PYTHON]
set -euo pipefail
zostat=$1
data=$2
python=${3:-python3}
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
check() { "$python" -m osgeo_utils.samples.validate_gpkg "$1" || { echo "not valid: $1" >&2; exit 1; }; }
knn=(--conceptualization k-nearest --k 6 --quiet)

"$zostat" hotspot --input "$data/columbus.gpkg" --field CRIME "${knn[@]}" --output "$tmp/new.gpkg"
check "$tmp/new.gpkg"

cp "$data/ny8.gpkg" "$tmp/both.gpkg"
"$zostat" cluster-outlier --input "$data/baltim.gpkg" --field PRICE "${knn[@]}" --output "$tmp/both.gpkg" \
  --output-layer local
"$zostat" cluster-outlier --input "$data/baltim.gpkg" --field AGE "${knn[@]}" --output "$tmp/both.gpkg" \
  --output-layer local --overwrite
check "$tmp/both.gpkg"
echo "valid: a new result file and a replaced layer"
