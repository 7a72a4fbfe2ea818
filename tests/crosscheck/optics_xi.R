# The OPTICS ξ cluster extraction of zostat against R's dbscan::extractXi
# on the very same reachability plot.
#   Rscript optics_xi.R ZOSTAT DATA_DIR
# zostat writes each point's position in the ordering ("Order") and its
# reachability ("Reachability", -1 where undefined); the predecessor of a
# point, which extractXi's correction also reads, is the first point before
# it in the ordering that gives it its reachability (max of its core
# distance and the distance between the two), as both OPTICS implementations
# keep the first of equal reachabilities. With these an optics object is
# built and handed to extractXi with zostat's ξ and minimum points, and the
# clusters must be the same: the same noise points, and the same partition of
# the others (both number clusters their own way; noise is -1 here, 0 in R).
suppressPackageStartupMessages({
  library(dbscan)
  library(sf)
})
args <- commandArgs(trailingOnly = TRUE)
zostat <- args[1]
data <- args[2]
checks <- 0
failures <- 0

here <- dirname(sub("^--file=", "", grep("^--file=", commandArgs(trailingOnly = FALSE), value = TRUE)[1]))
source(file.path(here, "zostat.R"))  # run() and json_number()

same_partition <- function(a, b) {
  if (length(a) == 0) return(TRUE)
  t <- table(a, b)
  all(rowSums(t > 0) == 1) && all(colSums(t > 0) == 1)
}

check_true <- function(label, ok, detail = "") {
  checks <<- checks + 1
  if (!isTRUE(ok)) failures <<- failures + 1
  cat(sprintf("%-4s %-78s %s\n", if (isTRUE(ok)) "ok" else "FAIL", label, detail))
}

folder <- tempfile("optics_xi")
dir.create(folder)

# Runs zostat optics on the points xy (planar metres) and compares its
# Cluster_ID with extractXi on zostat's own plot.
compare_xi <- function(label, xy, minPts, xi, distance = 0) {
  input <- file.path(folder, "points.gpkg")
  out <- file.path(folder, "out.gpkg")
  unlink(c(input, out))
  points <- st_as_sf(data.frame(x = xy[, 1], y = xy[, 2]), coords = c("x", "y"), crs = 32630)
  st_write(points, input, layer = "points", quiet = TRUE)
  json <- run("optics", "--quiet", "--json", "--input", input, "--output", out, "--min-points", minPts,
              "--xi", xi, "--distance", distance)
  eps <- json_number(json, "distance")
  ours <- st_drop_geometry(st_read(out, quiet = TRUE))
  ours <- ours[order(ours$Source_ID), ]
  xy <- st_coordinates(st_read(input, quiet = TRUE))  # as stored, in QlID order
  n <- nrow(xy)
  stopifnot(nrow(ours) == n)

  ord <- order(ours$Order)
  reach <- ifelse(ours$Reachability < 0, Inf, ours$Reachability)
  # Core distance: the distance to the minPts-th point, the point itself
  # included, when it lies within eps.
  core <- if (minPts > 1) kNNdist(xy, k = minPts - 1) else rep(0, n)
  core[core > eps] <- Inf
  pos <- integer(n)
  pos[ord] <- seq_len(n)
  pred <- rep(NA_integer_, n)
  for (o in which(is.finite(reach))) {
    before <- ord[seq_len(pos[o] - 1)]
    d <- sqrt((xy[before, 1] - xy[o, 1])^2 + (xy[before, 2] - xy[o, 2])^2)
    given <- ifelse(d <= eps, pmax(core[before], d), Inf)
    pred[o] <- before[which(abs(given - reach[o]) <= 1e-9 * reach[o])[1]]
  }
  plot <- structure(list(order = ord, reachdist = reach, coredist = core, predecessor = pred, minPts = minPts,
                         eps = eps, eps_cl = NA, xi = NA), class = "optics")
  check_true(sprintf("%s: every reachability has its predecessor", label), !any(is.na(pred[is.finite(reach)])))
  theirs <- suppressWarnings(extractXi(plot, xi = xi / 100))$cluster
  if (is.null(theirs)) theirs <- rep(0, n)
  mine <- ours$Cluster_ID
  check_true(sprintf("%s: noise as extractXi's", label), identical(which(mine == -1), which(theirs == 0)),
             sprintf("%d noise here, %d in R", sum(mine == -1), sum(theirs == 0)))
  check_true(sprintf("%s: clusters as extractXi's", label), same_partition(mine[mine > 0], theirs[theirs > 0]),
             sprintf("%d clusters here, %d in R", length(unique(mine[mine > 0])), length(unique(theirs[theirs > 0]))))
}

# Fifteen points scattered over the square and two tight clusters: the plot
# has one ξ cluster over nearly all of it, which gives most scattered points
# its number, and nested clusters that leave it fewer than minPts points.
set.seed(20)
two <- rbind(cbind(runif(15, 0, 100), runif(15, 0, 100)),
             cbind(rnorm(30, 30, 1), rnorm(30, 30, 1)),
             cbind(rnorm(30, 70, 1), rnorm(30, 60, 1)))
compare_xi("15 scattered points, two tight clusters, minPts 5, xi 5%", two, 5, 5)
compare_xi("the same, minPts 4, xi 10%", two, 4, 10)
# A radius of 5: the scattered points have no reachability at all.
compare_xi("the same, radius 5", two, 5, 5, 5)

# Clusters of three densities, one with a denser core, and uniform noise.
set.seed(21)
nested <- rbind(cbind(rnorm(80, 20, 4), rnorm(80, 20, 4)),
                cbind(rnorm(40, 20, 0.5), rnorm(40, 20, 0.5)),
                cbind(rnorm(60, 70, 2), rnorm(60, 30, 2)),
                cbind(rnorm(40, 50, 8), rnorm(40, 80, 8)),
                cbind(runif(40, 0, 100), runif(40, 0, 100)))
compare_xi("nested clusters of three densities with noise, minPts 6, xi 5%", nested, 6, 5)
compare_xi("the same, minPts 10, xi 3%", nested, 10, 3)

# Real points: the London bike-hire docks, projected (many equal distances).
hire <- st_coordinates(st_transform(st_read(file.path(data, "cycle_hire.gpkg"), quiet = TRUE), 27700))
compare_xi("cycle hire docks, minPts 8, xi 5%", hire, 8, 5)
compare_xi("cycle hire docks, minPts 4, xi 20%, radius 1000 m", hire, 4, 20, 1000)

unlink(folder, recursive = TRUE)
cat(sprintf("%d passed, %d failed\n", checks - failures, failures))
quit(status = if (failures == 0) 0 else 1)
