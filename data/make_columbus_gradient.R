# Makes columbus_gradient.gpkg, the bundled line dataset, from columbus.gpkg:
# one line per pair of neighbouring Columbus neighbourhoods (polygons within
# 1e-6 of each other, corners included), drawn from the centroid of the one
# with less crime to the centroid of the one with more (pairs of equal crime
# are left out). Its directions show where crime rises between neighbours.
#   Rscript data/make_columbus_gradient.R [OUTPUT]   (needs R's sf package)
# Fields: FROM_POLY and TO_POLY (POLYID of the two ends), RISE (CRIME at the
# end minus CRIME at the start, > 0), CP (core 1 / periphery 0, of the start).
suppressPackageStartupMessages(library(sf))
args <- commandArgs(trailingOnly = TRUE)
script <- sub("^--file=", "", grep("^--file=", commandArgs(trailingOnly = FALSE), value = TRUE)[1])
here <- dirname(script)
output <- if (length(args) >= 1) args[1] else file.path(here, "columbus_gradient.gpkg")

columbus <- st_read(file.path(here, "columbus.gpkg"), quiet = TRUE)
columbus <- columbus[order(columbus$POLYID), ]
centres <- st_coordinates(suppressWarnings(st_centroid(st_geometry(columbus))))
near <- st_is_within_distance(columbus, columbus, dist = 1e-6)

lines <- list()
from <- to <- cp <- integer(0)
rise <- numeric(0)
for (i in seq_len(nrow(columbus))) {
  for (j in near[[i]]) {
    if (columbus$CRIME[j] <= columbus$CRIME[i]) next
    lines[[length(lines) + 1]] <- st_linestring(rbind(centres[i, 1:2], centres[j, 1:2]))
    from <- c(from, as.integer(columbus$POLYID[i]))
    to <- c(to, as.integer(columbus$POLYID[j]))
    rise <- c(rise, columbus$CRIME[j] - columbus$CRIME[i])
    cp <- c(cp, as.integer(columbus$CP[i]))
  }
}
gradient <- st_sf(FROM_POLY = from, TO_POLY = to, RISE = rise, CP = cp, geometry = st_sfc(lines))
if (file.exists(output)) file.remove(output)
st_write(gradient, output, layer = "columbus_gradient", quiet = TRUE)
cat(sprintf("%s: %d lines\n", output, nrow(gradient)))
