#!/usr/bin/env bash
# zostat against R's spdep on the same random points (default 100000), with
# k-nearest (k = 8) binary weights: global Moran's I, General G, Gi* and local
# Moran's I. Prints each time and the ratio spdep / zostat.
#   bench/compare_peers.sh BUILD_DIR [N]
# zostat is timed as a whole process (reading the GeoPackage, neighbour
# search, statistic and, for the local statistics, writing the result
# GeoPackage). spdep is timed inside one R session, after its packages are
# loaded, for the same chain: st_read, knearneigh(use_kd_tree = TRUE),
# knn2nb, nb2listw(style = "B") and the test (moran.test and globalG.test
# with randomisation; localG over include.self for Gi*; localmoran). Each
# R timing re-reads the file and rebuilds the weights, as zostat does.
# The permutation rows run 999 conditional permutations per feature:
# zostat's --permutations 999 against spdep's localG_perm (over include.self)
# and localmoran_perm with nsim = 999 and their other defaults.
# PySAL: Debian packages libpysal (weights) but not esda (the statistics),
# so it is not part of the comparison.
here=$(cd "$(dirname "$0")" && pwd)
source "$here/common.sh" "$1"
n=${2:-100000}
random_points "$n"
knn=(--field VALUE --conceptualization k-nearest --k 8 --quiet --json)

zsec() {
  /usr/bin/time -f "%e" -o "$tmp/t" "$z" "$@" >/dev/null
  cat "$tmp/t"
}
declare -A zs
zs[moran]=$(zsec moran --input "$points" "${knn[@]}")
zs[general-g]=$(zsec general-g --input "$points" "${knn[@]}")
zs[hotspot]=$(zsec hotspot --input "$points" "${knn[@]}" --output "$tmp/gi.gpkg" --overwrite)
zs[cluster-outlier]=$(zsec cluster-outlier --input "$points" "${knn[@]}" --output "$tmp/lm.gpkg" --overwrite)
zs[hotspot-999]=$(zsec hotspot --input "$points" "${knn[@]}" --output "$tmp/gi.gpkg" --overwrite --permutations 999)
zs[cluster-outlier-999]=$(zsec cluster-outlier --input "$points" "${knn[@]}" --output "$tmp/lm.gpkg" --overwrite \
  --permutations 999)

Rscript - "$points" > "$tmp/r.txt" <<'RS'
suppressPackageStartupMessages({ library(sf); library(spdep) })
path <- commandArgs(trailingOnly = TRUE)[1]
weights <- function(self = FALSE) {
  d <- st_read(path, quiet = TRUE)
  nb <- knn2nb(knearneigh(st_coordinates(d), k = 8, use_kd_tree = TRUE))
  if (self) nb <- include.self(nb)
  list(x = d$VALUE, lw = nb2listw(nb, style = "B"))
}
run <- function(name, f) cat(name, system.time(f())[["elapsed"]], "\n")
run("moran", function() { w <- weights(); moran.test(w$x, w$lw, randomisation = TRUE) })
run("general-g", function() { w <- weights(); globalG.test(w$x, w$lw) })
run("hotspot", function() { w <- weights(TRUE); localG(w$x, w$lw) })
run("cluster-outlier", function() { w <- weights(); localmoran(w$x, w$lw) })
run("hotspot-999", function() { w <- weights(TRUE); localG_perm(w$x, w$lw, nsim = 999) })
run("cluster-outlier-999", function() { w <- weights(); localmoran_perm(w$x, w$lw, nsim = 999) })
RS

printf '%-20s %10s %10s %8s   (%d points, k-nearest 8)\n' statistic "zostat s" "spdep s" ratio "$n"
while read -r name seconds; do
  printf '%-20s %10s %10s %7.1fx\n' "$name" "${zs[$name]}" "$seconds" \
    "$(python3 -c "print($seconds / max(${zs[$name]}, 0.001))")"
done < "$tmp/r.txt"
