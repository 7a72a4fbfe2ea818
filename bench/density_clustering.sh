#!/usr/bin/env bash
# Density-based clustering of random points (about 8 neighbours within the
# radius, minimum points 5) beside R's dbscan package on the same points.
# For each size and method: zostat end to end (GeoPackage in and out), the
# algorithm alone (density_bench, no dataset I/O), and R (reading the same
# GeoPackage with sf, then the algorithm; R's own timing of the algorithm in
# brackets). Each line gives time and peak memory.
#   bench/density_clustering.sh BUILD_DIR [N ...]   (default N: 10000 100000 1000000)
# R's hdbscan needs a full distance matrix (n² doubles), so it runs only up
# to HDBSCAN_R_MAX points (default 10000), and R's optics scans its whole
# seed list for every point, so it runs only up to OPTICS_R_MAX (default
# 100000); ours run up to HDBSCAN_MAX (default 1000000).
source "$(dirname "$0")/common.sh" "$@"
hdbscan_max=${HDBSCAN_MAX:-1000000}
hdbscan_r_max=${HDBSCAN_R_MAX:-10000}
optics_r_max=${OPTICS_R_MAX:-100000}
have_r=0
if command -v Rscript >/dev/null && Rscript -e 'quit(status = !requireNamespace("dbscan", quietly = TRUE))' 2>/dev/null; then
  have_r=1
fi
cat >"$tmp/peer.R" <<'RCODE'
args <- commandArgs(trailingOnly = TRUE)
suppressPackageStartupMessages(library(dbscan))
xy <- sf::st_coordinates(sf::st_read(args[1], quiet = TRUE))
eps <- as.numeric(args[3])
t <- system.time(switch(args[2],
  dbscan = dbscan(xy, eps = eps, minPts = 5),
  hdbscan = hdbscan(xy, minPts = 5),
  optics = extractXi(optics(xy, eps = eps, minPts = 5), xi = 0.05)))
cat(sprintf("%.2f", t[["elapsed"]]), file = args[4])
RCODE
for n in ${sizes[*]}; do
  random_points "$n"
  for method in dbscan hdbscan optics; do
    if [[ $method == hdbscan && $n -gt $hdbscan_max ]]; then continue; fi
    distance=()
    [[ $method != hdbscan ]] && distance=(--distance "$band")
    ours=$(timed "$z" "$method" --quiet --json --input "$points" --min-points 5 "${distance[@]}" \
             --output "$tmp/out$n.gpkg" --overwrite)
    alone=$(timed "$build/bench/density_bench" "$n" "$method")
    printf '%8d  %-8s zostat %-26s algorithm %s\n' "$n" "$method" "$ours" "$alone"
    if [[ $method == hdbscan && $n -gt $hdbscan_r_max ]] || [[ $method == optics && $n -gt $optics_r_max ]]; then
      continue
    fi
    if [[ $have_r == 1 ]]; then
      peer=$(timed Rscript "$tmp/peer.R" "$points" "$method" "$band" "$tmp/rtime")
      printf '%8d  %-8s R      %s (algorithm %s s)\n' "$n" "$method" "$peer" "$(cat "$tmp/rtime")"
    fi
  done
done
