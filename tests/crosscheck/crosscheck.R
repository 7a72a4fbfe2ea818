# Cross-check of zostat against R: the global and local statistics against
# spdep, the geographic distributions against their definitions in base R.
#   Rscript crosscheck.R ZOSTAT DATA_DIR
# For each case the weights are exported from zostat ("weights show"), so
# both sides use exactly the same neighbours and weights; spdep then computes
# the statistic from them. Agreement is required to 1e-9 relative.
#
# Conventions that differ and how they are accounted for:
# - spdep's listw style "B" keeps weights exactly as given, so zostat's raw
#   or row-standardized weights are passed through unchanged.
# - spdep reports z and p for a one-sided alternative; only the index, its
#   expectation, variance and z-score are compared (z does not depend on it).
# - General G: zostat leaves features without neighbours out of the numerator,
#   the denominator and the value moments; spdep does not. The cases below
#   give every feature a neighbour, where the two definitions coincide.
# - Local Moran's I: zostat divides the sum of squared deviations by n - 1
#   and uses the total (not conditional) randomization moments. spdep's
#   localmoran does the same with mlvar = FALSE, conditional = FALSE; with its
#   defaults (mlvar = TRUE) its I is zostat's times n / (n - 1), checked too.
# - Gi*: spdep's localG with the feature itself among its neighbours
#   (weight 1, zostat's self weight) and binary weights is zostat's Gi* z-score.
suppressPackageStartupMessages(library(spdep))
args <- commandArgs(trailingOnly = TRUE)
zostat <- args[1]
data <- args[2]
failures <- 0
checks <- 0

run <- function(...) {
  out <- suppressWarnings(system2(zostat, c(...), stdout = TRUE, stderr = FALSE))
  status <- attr(out, "status")
  if (!is.null(status) && status != 0) stop(paste("zostat failed:", paste(c(...), collapse = " ")))
  out
}

json_number <- function(json, key) {
  m <- regmatches(json, regexpr(paste0('"', key, '": [-+0-9.eE]+'), json))
  as.numeric(sub(".*: ", "", m))
}

# zostat's weights as an spdep listw, features in QlID order.
zostat_listw <- function(input, field, weights) {
  lines <- run("weights", "show", "--quiet", "--input", input, "--field", field, weights)
  tab <- read.table(text = lines, header = TRUE, sep = "\t", col.names = c("id", "nb", "w"))
  ids <- sort(unique(as.integer(run_ids(input))))
  n <- length(ids)
  nb <- vector("list", n)
  glist <- vector("list", n)
  for (i in seq_len(n)) {
    rows <- tab[tab$id == ids[i], ]
    if (nrow(rows) == 0) {
      nb[[i]] <- 0L
      glist[[i]] <- numeric(0)
    } else {
      nb[[i]] <- match(rows$nb, ids)
      glist[[i]] <- rows$w
    }
  }
  class(nb) <- "nb"
  attr(nb, "region.id") <- as.character(ids)
  nb2listw(nb, glist = glist, style = "B", zero.policy = TRUE)
}

# QlIDs of the layer, from "weights show" with a relationship every feature has.
run_ids <- function(input) {
  info <- run("info", "--json", "--input", input)
  n <- json_number(info, "record_count")
  lines <- run("weights", "show", "--quiet", "--input", input, "--field", "QlID",
               "--conceptualization", "zone-of-indifference")
  tab <- read.table(text = lines, header = TRUE, sep = "\t")
  ids <- unique(tab[[1]])
  stopifnot(length(ids) == n)
  ids
}

values <- function(input, layer, field) {
  layer_sf <- sf::st_read(input, quiet = TRUE)
  layer_sf <- layer_sf[order(as.integer(rownames(layer_sf))), ]
  as.numeric(layer_sf[[field]])
}

compare <- function(label, ours, theirs) {
  for (k in names(theirs)) {
    checks <<- checks + 1
    rel <- abs(ours[[k]] - theirs[[k]]) / max(abs(theirs[[k]]), 1e-300)
    ok <- is.finite(rel) && rel <= 1e-9
    if (!ok) failures <<- failures + 1
    cat(sprintf("%-4s %-55s %-9s zostat %.15g spdep %.15g rel %.2e\n", if (ok) "ok" else "FAIL", label, k,
                ours[[k]], theirs[[k]], rel))
  }
}

cases <- list(
  list(file = "columbus.gpkg", field = "CRIME", weights = c("--conceptualization", "contiguity-edges-corners", "--row-standardize")),
  list(file = "columbus.gpkg", field = "HOVAL", weights = c("--conceptualization", "contiguity-edges")),
  list(file = "columbus.gpkg", field = "INC", weights = c("--conceptualization", "inverse-distance", "--exponent", "2")),
  list(file = "baltim.gpkg", field = "PRICE", weights = c("--conceptualization", "k-nearest", "--k", "6")),
  list(file = "baltim.gpkg", field = "PRICE", weights = c("--conceptualization", "fixed-distance-band", "--row-standardize")),
  list(file = "baltim.gpkg", field = "AGE", weights = c("--conceptualization", "k-nearest", "--k", "4", "--row-standardize"))
)

for (case in cases) {
  input <- file.path(data, case$file)
  label <- paste(case$file, case$field, paste(case$weights, collapse = " "))
  lw <- zostat_listw(input, case$field, case$weights)
  x <- values(input, NULL, case$field)

  mt <- moran.test(x, lw, randomisation = TRUE, zero.policy = TRUE)
  ours <- run("moran", "--json", "--input", input, "--field", case$field, case$weights)
  compare(paste("Moran", label),
          list(I = json_number(ours, "index"), E = json_number(ours, "expected_index"),
               V = json_number(ours, "variance"), z = json_number(ours, "z_score")),
          list(I = unname(mt$estimate[1]), E = unname(mt$estimate[2]), V = unname(mt$estimate[3]),
               z = unname(mt$statistic)))

  # The streamed path: the same weights through a weights file.
  swmb <- tempfile(fileext = ".swmb")
  run("weights", "build", "--quiet", "--input", input, "--id-field", "QlID", "--output", swmb, case$weights)
  streamed <- run("moran", "--json", "--input", input, "--field", case$field,
                  "--conceptualization", "weights-file", "--weights-file", swmb)
  unlink(swmb)
  compare(paste("Moran (weights file)", label),
          list(I = json_number(streamed, "index"), V = json_number(streamed, "variance")),
          list(I = unname(mt$estimate[1]), V = unname(mt$estimate[3])))

  # General G wants binary weights.
  if (!("--row-standardize" %in% case$weights) && !("inverse-distance" %in% case$weights)) {
    gt <- globalG.test(x, lw, zero.policy = TRUE)
    ours <- run("general-g", "--json", "--input", input, "--field", case$field, case$weights)
    compare(paste("General G", label),
            list(G = json_number(ours, "index"), E = json_number(ours, "expected_index"),
                 V = json_number(ours, "variance"), z = json_number(ours, "z_score")),
            list(G = unname(gt$estimate[1]), E = unname(gt$estimate[2]), V = unname(gt$estimate[3]),
                 z = unname(gt$statistic)))
  }
}

# ---- Local statistics, compared feature by feature.
compare_vectors <- function(label, ours, theirs) {
  checks <<- checks + 1
  rel <- max(abs(ours - theirs) / pmax(abs(theirs), 1e-12))
  ok <- is.finite(rel) && rel <= 1e-9
  if (!ok) failures <<- failures + 1
  cat(sprintf("%-4s %-70s max rel %.2e over %d features\n", if (ok) "ok" else "FAIL", label, rel, length(ours)))
}

result_layer <- function(output, layer) {
  r <- sf::st_read(output, layer = layer, quiet = TRUE)
  r
}

local_cases <- list(
  list(file = "columbus.gpkg", field = "CRIME", weights = c("--conceptualization", "contiguity-edges-corners")),
  list(file = "baltim.gpkg", field = "PRICE", weights = c("--conceptualization", "k-nearest", "--k", "6")),
  list(file = "baltim.gpkg", field = "AGE", weights = c("--conceptualization", "fixed-distance-band"))
)
for (case in local_cases) {
  input <- file.path(data, case$file)
  label <- paste(case$file, case$field, paste(case$weights, collapse = " "))
  lw <- zostat_listw(input, case$field, case$weights)
  x <- values(input, NULL, case$field)
  n <- length(x)
  out <- tempfile(fileext = ".gpkg")

  # Gi*: the feature itself joins its neighbours with weight 1.
  nb <- lw$neighbours
  gl <- lw$weights
  for (i in seq_len(n)) {
    nb[[i]] <- c(i, nb[[i]][nb[[i]] > 0])
    gl[[i]] <- c(1, gl[[i]])
  }
  attr(nb, "self.included") <- TRUE
  lw_self <- nb2listw(nb, glist = gl, style = "B", zero.policy = TRUE)
  run("hotspot", "--quiet", "--input", input, "--field", case$field, "--output", out, "--output-layer", "gi",
      case$weights)
  gi <- result_layer(out, "gi")
  compare_vectors(paste("Gi* z", label), gi$Gi_Zscore, as.numeric(localG(x, lw_self)))

  # Local Moran's I with row-standardized weights.
  lw_w <- zostat_listw(input, case$field, c(case$weights, "--row-standardize"))
  run("cluster-outlier", "--quiet", "--input", input, "--field", case$field, "--output", out, "--output-layer",
      "lm", case$weights, "--row-standardize")
  lm <- result_layer(out, "lm")
  ref <- localmoran(x, lw_w, mlvar = FALSE, conditional = FALSE, zero.policy = TRUE)
  compare_vectors(paste("local I", label), lm$ALMI_MoranI, ref[, "Ii"])
  compare_vectors(paste("local I z", label), lm$ALMI_Zscore, ref[, "Z.Ii"])
  ml <- localmoran(x, lw_w, zero.policy = TRUE)
  compare_vectors(paste("local I (spdep's n divisor)", label), lm$ALMI_MoranI * n / (n - 1), ml[, "Ii"])
  unlink(out)
}

# ---- Geographic distributions, recomputed from their definitions in R.
# zostat prints one JSON object per case group, groups in ascending case
# value. The ellipse is checked against the eigen decomposition of the
# weighted covariance matrix rather than the rotation formula zostat uses:
# its axes are sqrt(2 * eigenvalue) (the definition's factor 2), the first
# ("SemiMajorAxis") along the principal direction, whose angle
# counter-clockwise from east is "RotationAngle" (modulo 180).
json_numbers <- function(json, key) {
  m <- regmatches(json, gregexpr(paste0('"', key, '": [-+0-9.eE]+'), json))[[1]]
  as.numeric(sub(".*: ", "", m))
}

check_distributions <- function(file, case_field, weight_field, points) {
  input <- file.path(data, file)
  layer <- sf::st_read(input, quiet = TRUE)
  xy <- if (points) sf::st_coordinates(layer) else sf::st_coordinates(suppressWarnings(sf::st_centroid(layer)))
  w <- if (is.null(weight_field)) rep(1, nrow(layer)) else pmax(as.numeric(layer[[weight_field]]), 0)
  groups <- if (is.null(case_field)) rep(1, nrow(layer)) else layer[[case_field]]
  opts <- c("--input", input, if (!is.null(case_field)) c("--case-field", case_field),
            if (!is.null(weight_field)) c("--weight-field", weight_field))
  label <- paste(c(file, if (!is.null(case_field)) paste("by", case_field),
                   if (!is.null(weight_field)) paste("weighted by", weight_field)), collapse = " ")
  mean_json <- run("mean-center", "--json", opts)
  sd_json <- run("standard-distance", "--json", opts)
  ell_json <- run("ellipse", "--json", opts)
  # The mean centre is the result point, printed as "centroid": [x, y].
  centres <- gsub("\"centroid\": \\[([^,]+), ([^]]+)\\]", "\"cx\": \\1, \"cy\": \\2", mean_json)
  mx <- my <- sd <- major <- minor <- angle <- c()
  for (g in sort(unique(groups))) {
    k <- groups == g
    wk <- w[k]
    x <- xy[k, 1]
    y <- xy[k, 2]
    mx <- c(mx, sum(wk * x) / sum(wk))
    my <- c(my, sum(wk * y) / sum(wk))
    dx <- x - tail(mx, 1)
    dy <- y - tail(my, 1)
    sd <- c(sd, sqrt(sum(wk * (dx^2 + dy^2)) / sum(wk)))
    e <- eigen(matrix(c(sum(wk * dx^2), sum(wk * dx * dy), sum(wk * dx * dy), sum(wk * dy^2)), 2) / sum(wk),
               symmetric = TRUE)
    major <- c(major, sqrt(2 * e$values[1]))
    minor <- c(minor, sqrt(2 * e$values[2]))
    angle <- c(angle, atan2(e$vectors[2, 1], e$vectors[1, 1]) * 180 / pi)
  }
  compare_vectors(paste("mean centre x", label), json_numbers(centres, "cx"), mx)
  compare_vectors(paste("mean centre y", label), json_numbers(centres, "cy"), my)
  compare_vectors(paste("standard distance", label), json_numbers(sd_json, "StandardDistance"), sd)
  compare_vectors(paste("standard distance centre", label), json_numbers(sd_json, "CircleCenterX"), mx)
  compare_vectors(paste("ellipse first axis", label), json_numbers(ell_json, "SemiMajorAxis"), major)
  compare_vectors(paste("ellipse second axis", label), json_numbers(ell_json, "SemiMinorAxis"), minor)
  turn <- (json_numbers(ell_json, "RotationAngle") - angle) %% 180
  compare_vectors(paste("ellipse angle (mod 180)", label), 180 + pmin(turn, 180 - turn), rep(180, length(angle)))
}

check_distributions("baltim.gpkg", NULL, NULL, TRUE)
check_distributions("baltim.gpkg", "NSTOR", "PRICE", TRUE)
check_distributions("cycle_hire.gpkg", NULL, "nbikes", TRUE)
check_distributions("columbus.gpkg", "CP", "HOVAL", FALSE)

# Density-based clustering against R's dbscan package.
script <- sub("^--file=", "", grep("^--file=", commandArgs(trailingOnly = FALSE), value = TRUE)[1])
source(file.path(dirname(script), "density.R"))

cat(sprintf("%d passed, %d failed\n", checks - failures, failures))
quit(status = if (failures == 0) 0 else 1)
