# Density-based clustering against R's dbscan package, sourced by
# crosscheck.R (uses its run(), json_number(), checks, failures, zostat and
# data). The bike-hire points are projected to the British National Grid
# first and written to a planar layer, so both sides measure the very same
# coordinates; the layer's FIDs (QlIDs) follow R's row order.
#
# Conventions that differ and how they are accounted for:
# - Cluster numbers: both number clusters their own way, so partitions are
#   compared, not numbers; noise is -1 here and 0 in R.
# - DBSCAN border points between two clusters may join either, depending on
#   the visiting order, so only the noise set and the partition of the core
#   points are compared (core = at least minPts points within eps, itself
#   included, in both).
# - OPTICS and HDBSCAN: equal distances are common (see the cases below), and
#   the two break such ties differently, so the comparisons are built to be
#   independent of tie breaking.
suppressPackageStartupMessages(library(dbscan))

same_partition <- function(a, b) {
  # a and b label the same items; equal partitions have a one-to-one table
  t <- table(a, b)
  all(rowSums(t > 0) == 1) && all(colSums(t > 0) == 1)
}

check_true <- function(label, ok, detail = "") {
  checks <<- checks + 1
  if (!isTRUE(ok)) failures <<- failures + 1
  cat(sprintf("%-4s %-70s %s\n", if (isTRUE(ok)) "ok" else "FAIL", label, detail))
}

compare_abs <- function(label, ours, theirs, tol = 1e-9) {
  diff <- max(abs(ours - theirs))
  check_true(label, is.finite(diff) && diff <= tol, sprintf("max abs diff %.2e over %d", diff, length(ours)))
}

# Replays an OPTICS order: the reachability each point gets from the core
# points before it (-1 for none), and whether every step took a point of
# smallest reachability among those left (or, with none reachable, any).
replay_optics <- function(xy, ord, core, eps) {
  n <- nrow(xy)
  reach <- rep(Inf, n)
  done <- rep(FALSE, n)
  greedy <- TRUE
  for (o in ord) {
    left <- reach[!done]
    if (is.finite(min(left)) && reach[o] > min(left) * (1 + 1e-12)) greedy <- FALSE
    done[o] <- TRUE
    if (is.finite(core[o])) {
      d <- sqrt((xy[, 1] - xy[o, 1])^2 + (xy[, 2] - xy[o, 2])^2)
      near <- !done & d <= eps
      reach[near] <- pmin(reach[near], pmax(core[o], d[near]))
    }
  }
  # reach[] now holds the last value of each point when it was ordered
  list(reach = ifelse(is.finite(reach), reach, -1), greedy = greedy)
}

hire <- sf::st_transform(sf::st_read(file.path(data, "cycle_hire.gpkg"), quiet = TRUE), 27700)
hire <- hire[order(as.integer(rownames(hire))), ]
planar <- tempfile(fileext = ".gpkg")
sf::st_write(hire["nbikes"], planar, layer = "hire", quiet = TRUE)
xy <- sf::st_coordinates(sf::st_read(planar, layer = "hire", quiet = TRUE))
out <- tempfile(fileext = ".gpkg")

density_layer <- function(command, layer, ...) {
  json <- run(command, "--quiet", "--json", "--input", planar, "--output", out, "--output-layer", layer, ...)
  r <- sf::st_drop_geometry(sf::st_read(out, layer = layer, quiet = TRUE))
  r <- r[order(r$Source_ID), ]
  stopifnot(nrow(r) == nrow(xy), all(r$Source_ID == seq_len(nrow(xy))))
  attr(r, "json") <- json
  r
}

for (minPts in c(4, 8)) {
  # DBSCAN with the automatic distance, which R then gets as its eps.
  ours <- density_layer("dbscan", paste0("db", minPts), "--min-points", minPts)
  eps <- json_number(attr(ours, "json"), "distance")
  kth <- if (minPts > 1) kNNdist(xy, k = minPts - 1) else rep(0, nrow(xy))
  compare_abs(sprintf("DBSCAN automatic distance, minPts %d", minPts), eps, median(kth), 1e-6)
  ref <- dbscan(xy, eps = eps, minPts = minPts)
  core <- sapply(frNN(xy, eps = eps)$id, length) + 1 >= minPts
  check_true(sprintf("DBSCAN noise set, minPts %d eps %.1f", minPts, eps),
             identical(which(ours$Cluster_ID == -1), which(ref$cluster == 0)),
             sprintf("%d noise points", sum(ref$cluster == 0)))
  check_true(sprintf("DBSCAN partition of the %d core points, minPts %d", sum(core), minPts),
             same_partition(ours$Cluster_ID[core], ref$cluster[core]))

  # HDBSCAN. Mutual reachability distances tie often (an edge weighs the
  # larger core distance of its ends), and where a point joins two groups
  # at one and the same distance, the order of those equal merges decides
  # its side: R follows its Prim tree, ours the edges' indices. The spanning
  # tree weights must agree exactly; labels, probabilities and outlier scores
  # must agree for all but a few points.
  ours <- density_layer("hdbscan", paste0("hdb", minPts), "--min-points", minPts)
  ref <- hdbscan(xy, minPts = minPts)
  t <- table(ours$Cluster_ID, ref$cluster)
  agree <- sum(apply(t, 1, max))
  check_true(sprintf("HDBSCAN labels up to renumbering, minPts %d", minPts), agree >= 0.95 * nrow(xy),
             sprintf("%d of %d points agree; %d clusters in R, %d here", agree, nrow(xy),
                     sum(unique(ref$cluster) > 0), sum(unique(ours$Cluster_ID) > 0)))
  # A probability depends on the cluster's members only: compare it over the
  # clusters with the very same members on both sides.
  whole <- sapply(seq_len(nrow(xy)), function(i) {
    a <- ours$Cluster_ID == ours$Cluster_ID[i]
    b <- ref$cluster == ref$cluster[i]
    ours$Cluster_ID[i] > 0 && ref$cluster[i] > 0 && identical(a, b)
  })
  compare_abs(sprintf("HDBSCAN membership probabilities in the %d clusters found alike, minPts %d",
                      length(unique(ours$Cluster_ID[whole])), minPts), ours$Prob[whole], ref$membership_prob[whole])
  # A stability also depends on the levels at which the members leave, so a
  # tie below a cluster can change it while its members stay the same.
  alike <- unique(ref$cluster[whole])
  stable <- sapply(alike, function(k) {
    i <- which(ref$cluster == k)[1]
    abs(ours$Stability[i] - ref$cluster_scores[[as.character(k)]]) <= 1e-9 * ref$cluster_scores[[as.character(k)]]
  })
  check_true(sprintf("HDBSCAN stabilities of the clusters found alike, minPts %d", minPts), mean(stable) >= 0.8,
             sprintf("%d of %d equal", sum(stable), length(stable)))
  same <- abs(ours$Outlier - ref$outlier_scores) < 1e-9
  check_true(sprintf("HDBSCAN GLOSH outlier scores, minPts %d", minPts), mean(same) >= 0.9,
             sprintf("%d of %d equal", sum(same), nrow(xy)))

  # OPTICS with a radius that leaves some points without a core distance.
  # Equal reachabilities are common (every neighbour inside a core distance
  # gets that distance), and R takes the first of them in its KD tree's
  # visiting order, ours the lowest index; so instead of one order, both
  # orders are replayed under the OPTICS rules with R's core distances: each
  # point's reachability is the smallest max(core(p), d(p, o)) over the core
  # points p before it, and each next point has the smallest reachability
  # among those not yet ordered.
  eps <- 2 * median(kth)
  ours <- density_layer("optics", paste0("op", minPts), "--min-points", minPts, "--distance", eps)
  ref <- optics(xy, eps = eps, minPts = minPts)
  mine <- replay_optics(xy, order(ours$Order), ref$coredist, eps)
  check_true(sprintf("OPTICS order follows the OPTICS rules, minPts %d eps %.1f", minPts, eps), mine$greedy)
  compare_abs(sprintf("OPTICS reachability, minPts %d", minPts), ours$Reachability, mine$reach)
  theirs <- replay_optics(xy, ref$order, ref$coredist, eps)
  check_true(sprintf("(R's own OPTICS order passes the same replay, minPts %d)", minPts),
             theirs$greedy && max(abs(theirs$reach - ifelse(is.finite(ref$reachdist), ref$reachdist, -1))) < 1e-9)
}
unlink(c(planar, out))
