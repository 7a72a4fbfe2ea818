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
# - Incremental spatial autocorrelation: spdep builds its own neighbours here
#   (dnearneigh on the points, at most d apart), not zostat's. moran.test
#   runs with adjust.n = FALSE: zostat keeps a feature without neighbours in
#   n, while spdep's default drops it (at baltim's band 20, where one
#   feature has none, the default gives I 0.26394 for zostat's 0.26520).
args <- commandArgs(trailingOnly = TRUE)
zostat <- args[1]
data <- args[2]
here <- dirname(sub("^--file=", "", grep("^--file=", commandArgs(trailingOnly = FALSE), value = TRUE)[1]))
source(file.path(here, "common.R"))
failures <- 0
checks <- 0

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

# zostat's index, expectation, variance and z against an spdep htest.
compare_test <- function(label, json, test) {
  compare(label,
          list(index = json_number(json, "index"), E = json_number(json, "expected_index"),
               V = json_number(json, "variance"), z = json_number(json, "z_score")),
          list(index = unname(test$estimate[1]), E = unname(test$estimate[2]), V = unname(test$estimate[3]),
               z = unname(test$statistic)))
}

for (case in global_cases) {
  input <- file.path(data, case$file)
  label <- paste(case$file, case$field, paste(case$weights, collapse = " "))
  lw <- zostat_listw(input, case$field, case$weights)
  x <- values(input, case$field)

  mt <- moran.test(x, lw, randomisation = TRUE, zero.policy = TRUE)
  compare_test(paste("Moran", label), run("moran", "--json", "--input", input, "--field", case$field, case$weights),
               mt)

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
  if (binary_weights(case$weights)) {
    compare_test(paste("General G", label),
                 run("general-g", "--json", "--input", input, "--field", case$field, case$weights),
                 globalG.test(x, lw, zero.policy = TRUE))
  }
}

# ---- Incremental spatial autocorrelation: each band against spdep's
# fixed distance band weights built from the points at that distance.
for (case in incremental_cases) {
  input <- file.path(data, case$file)
  json <- run("incremental", "--json", "--input", input, "--field", case$field, case$options)
  tests <- incremental_spdep(input, case)
  ours <- lapply(c(distance = "distance", I = "index", E = "expected_index", V = "variance", z = "z_score"),
                 function(key) incremental_bands(json, key))
  stopifnot(all(lengths(ours) == length(case$distances)))
  for (b in seq_along(case$distances)) {
    t <- tests[[b]]
    compare(paste("Incremental", case$file, case$field, if ("--row-standardize" %in% case$options) "W" else "B",
                  "band", case$distances[b]),
            lapply(ours, `[`, b),
            list(distance = case$distances[b], I = unname(t$estimate[1]), E = unname(t$estimate[2]),
                 V = unname(t$estimate[3]), z = unname(t$statistic)))
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

for (case in local_cases) {
  input <- file.path(data, case$file)
  label <- paste(case$file, case$field, paste(case$weights, collapse = " "))
  lw <- zostat_listw(input, case$field, case$weights)
  x <- values(input, case$field)
  n <- length(x)
  out <- tempfile(fileext = ".gpkg")

  lw_self <- with_self(lw)
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
# Longitude/latitude layers are measured in metres: each group is projected
# by sf (PROJ) to an azimuthal equidistant plane about the direction of the
# mean of its points' unit vectors, and its centre projected back.
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
  longlat <- isTRUE(sf::st_is_longlat(layer))
  for (g in sort(unique(groups))) {
    k <- groups == g
    wk <- w[k]
    x <- xy[k, 1]
    y <- xy[k, 2]
    if (longlat) {
      r <- pi / 180
      v <- c(sum(cos(y * r) * cos(x * r)), sum(cos(y * r) * sin(x * r)), sum(sin(y * r)))
      aeqd <- sprintf("+proj=aeqd +lat_0=%.17g +lon_0=%.17g +x_0=0 +y_0=0 +datum=WGS84 +units=m",
                      atan2(v[3], sqrt(v[1]^2 + v[2]^2)) / r, atan2(v[2], v[1]) / r)
      p <- sf::st_coordinates(sf::st_transform(sf::st_as_sf(data.frame(x = x, y = y), coords = c("x", "y"),
                                                             crs = sf::st_crs(layer)), aeqd))
      x <- p[, 1]
      y <- p[, 2]
    }
    px <- sum(wk * x) / sum(wk)
    py <- sum(wk * y) / sum(wk)
    dx <- x - px
    dy <- y - py
    if (longlat) {
      back <- sf::st_coordinates(sf::st_transform(sf::st_sfc(sf::st_point(c(px, py)), crs = aeqd), sf::st_crs(layer)))
      px <- back[1, 1]
      py <- back[1, 2]
    }
    mx <- c(mx, px)
    my <- c(my, py)
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
source(file.path(here, "density.R"))

# ---- Regression.
# Ordinary least squares against lm, with the diagnostics written out from
# their textbook definitions; geographically weighted regression against a
# plain loop of weighted least squares per feature (GWmodel's formulas:
# AICc = n ln(RSS/n) + n ln(2 pi) + n (n + tr S) / (n - 2 - tr S),
# sigma^2 = RSS / (n - tr S), local standard errors from C C^T with
# C = (X^T W X)^-1 X^T W). Feature points are the centroids of the geometries.
compare_model <- function(label, ours, theirs, tolerance = 1e-8) {
  for (k in names(theirs)) {
    checks <<- checks + 1
    rel <- max(abs(ours[[k]] - theirs[[k]]) / pmax(abs(theirs[[k]]), 1e-12))
    ok <- is.finite(rel) && rel <= tolerance
    if (!ok) failures <<- failures + 1
    cat(sprintf("%-4s %-55s %-12s max rel %.2e\n", if (ok) "ok" else "FAIL", label, k, rel))
  }
}

json_array_numbers <- function(json, key) {
  m <- gregexpr(paste0('"', key, '": (null|[-+0-9.eE]+)'), json)
  v <- sub(".*: ", "", regmatches(json, m)[[1]])
  suppressWarnings(as.numeric(v))
}

ols_cases <- list(
  list(file = "columbus.gpkg", y = "CRIME", x = c("INC", "HOVAL"),
       weights = c("--conceptualization", "contiguity-edges-corners", "--row-standardize")),
  list(file = "baltim.gpkg", y = "PRICE", x = c("NROOM", "AGE", "SQFT"),
       weights = c("--conceptualization", "k-nearest", "--k", "6"))
)
for (case in ols_cases) {
  input <- file.path(data, case$file)
  label <- paste("OLS", case$file, case$y)
  layer <- sf::st_read(input, quiet = TRUE)
  d <- as.data.frame(layer)
  X <- cbind(1, as.matrix(d[, case$x]))
  y <- d[[case$y]]
  n <- length(y); p <- ncol(X)
  fit <- lm(y ~ X[, -1])  # with lm's own intercept, so that R² and F are the centred ones
  s <- summary(fit)
  e <- residuals(fit)
  out <- tempfile(fileext = ".gpkg")
  json <- run("ols", "--json", "--input", input, "--dependent", case$y, "--explanatory",
              paste(case$x, collapse = ","), "--output", out, case$weights)
  xtxi <- solve(crossprod(X))
  white <- xtxi %*% crossprod(X * e) %*% xtxi
  bp <- n * (1 - sum(residuals(lm(e^2 ~ X - 1))^2) / sum((e^2 - mean(e^2))^2))
  m2 <- mean(e^2); m3 <- mean(e^3); m4 <- mean(e^4)
  vif <- sapply(seq_along(case$x), function(j) 1 / (1 - summary(lm(X[, j + 1] ~ X[, -c(1, j + 1)]))$r.squared))
  z <- X / matrix(sqrt(colSums(X^2)), n, p, byrow = TRUE)
  sv <- svd(z)$d
  slopes <- coef(fit)[-1]
  compare_model(label,
    list(estimate = json_array_numbers(json, "estimate"), std_error = json_array_numbers(json, "std_error"),
         t = json_array_numbers(json, "t"), robust_se = json_array_numbers(json, "robust_std_error"),
         vif = json_array_numbers(json, "vif")[-1],
         r2 = json_number(json, "r2"), adjusted_r2 = json_number(json, "adjusted_r2"), f = json_number(json, "f"),
         aicc = json_number(json, "aicc"), wald = json_number(json, "wald"),
         koenker_bp = json_number(json, "koenker_bp"), jarque_bera = json_number(json, "jarque_bera"),
         condition = json_number(json, "condition_index")),
    list(estimate = unname(coef(fit)), std_error = unname(s$coefficients[, 2]), t = unname(s$coefficients[, 3]),
         robust_se = sqrt(diag(white)), vif = vif,
         r2 = s$r.squared, adjusted_r2 = s$adj.r.squared, f = unname(s$fstatistic[1]),
         aicc = AIC(fit) + 2 * (p + 1) * (p + 2) / (n - p - 2),
         wald = drop(t(slopes) %*% solve(white[-1, -1]) %*% slopes), koenker_bp = bp,
         jarque_bera = n * (m3^2 / m2^3 / 6 + (m4 / m2^2 - 3)^2 / 24), condition = sv[1] / sv[p]))
  # The residual Moran's I is Moran's I of lm's residuals under the same weights.
  lw <- zostat_listw(input, case$y, case$weights)
  mt <- moran.test(e, lw, randomisation = TRUE, zero.policy = TRUE)
  moran <- sub('.*"residual_moran": ', "", json)
  compare_model(label, list(residual_moran_I = json_number(moran, "index"), moran_z = json_number(moran, "z_score")),
                list(residual_moran_I = unname(mt$estimate[1]), moran_z = unname(mt$statistic)), 1e-9)
  r <- sf::st_read(out, quiet = TRUE)
  compare_model(label, list(residual = r$Residual, std_residual = r$StdResid),
                list(residual = unname(e), std_residual = unname(rstandard(fit))))
  unlink(out)
}

# The reference: every feature's weighted least squares, written plainly.
gwr_reference <- function(X, y, D, bandwidth, kernel, adaptive) {
  n <- nrow(X); p <- ncol(X)
  beta <- matrix(0, n, p); cct <- matrix(0, n, p); lev <- numeric(n); local_r2 <- numeric(n)
  for (i in seq_len(n)) {
    d <- D[i, ]
    b <- if (adaptive) sort(d)[bandwidth] else bandwidth
    w <- if (kernel == "gaussian") exp(-0.5 * (d / b)^2) else ifelse(d < b, (1 - (d / b)^2)^2, 0)
    C <- solve(t(X) %*% (X * w), t(X * w))
    beta[i, ] <- C %*% y
    lev[i] <- sum(X[i, ] * C[, i])
    cct[i, ] <- rowSums(C^2)
    fitted <- X %*% beta[i, ]
    gm <- sum(w * y) / sum(w)
    local_r2[i] <- 1 - sum(w * (y - fitted)^2) / sum(w * (y - gm)^2)
  }
  yhat <- rowSums(X * beta)
  rss <- sum((y - yhat)^2); tr <- sum(lev)
  sigma2 <- rss / (n - tr)
  aicc <- n * log(rss / n) + n * log(2 * pi) + n * (n + tr) / (n - 2 - tr)
  list(beta = beta, se = sqrt(cct * sigma2), local_r2 = local_r2, yhat = yhat, tr = tr, rss = rss,
       sigma = sqrt(sigma2), aicc = if (n - 2 - tr > 0) aicc else Inf, std = (y - yhat) / sqrt(sigma2 * (1 - lev)))
}

gwr_cases <- list(
  list(file = "columbus.gpkg", y = "CRIME", x = c("INC", "HOVAL"), kernel = "bisquare", type = "adaptive", bw = 20),
  list(file = "columbus.gpkg", y = "CRIME", x = c("INC", "HOVAL"), kernel = "gaussian", type = "fixed", bw = 1.5),
  list(file = "columbus.gpkg", y = "CRIME", x = c("INC", "HOVAL"), kernel = "bisquare", type = "adaptive", bw = NA),
  list(file = "columbus.gpkg", y = "CRIME", x = c("INC", "HOVAL"), kernel = "gaussian", type = "fixed", bw = NA),
  list(file = "baltim.gpkg", y = "PRICE", x = c("NROOM", "SQFT"), kernel = "bisquare", type = "fixed", bw = 35),
  list(file = "baltim.gpkg", y = "PRICE", x = c("NROOM", "SQFT"), kernel = "gaussian", type = "adaptive", bw = NA)
)
for (case in gwr_cases) {
  input <- file.path(data, case$file)
  label <- paste("GWR", case$file, case$kernel, case$type, if (is.na(case$bw)) "AICc" else case$bw)
  layer <- sf::st_read(input, quiet = TRUE)
  d <- as.data.frame(layer)
  X <- cbind(1, as.matrix(d[, case$x]))
  y <- d[[case$y]]
  n <- length(y); p <- ncol(X)
  xy <- sf::st_coordinates(suppressWarnings(sf::st_centroid(sf::st_geometry(layer))))[, 1:2]
  D <- as.matrix(dist(xy))
  adaptive <- case$type == "adaptive"
  aicc_at <- function(b) gwr_reference(X, y, D, b, case$kernel, adaptive)$aicc
  bw <- case$bw
  if (is.na(bw)) {
    # Adaptive: every whole number of neighbours; fixed: R's optimize over the same interval.
    if (adaptive) {
      ks <- (p + 2):n
      bw <- ks[which.min(sapply(ks, aicc_at))]
    } else {
      upper <- sqrt(diff(range(xy[, 1]))^2 + diff(range(xy[, 2]))^2)
      bw <- optimize(aicc_at, c(upper / 5000, upper), tol = 1e-10)$minimum
    }
  }
  out <- tempfile(fileext = ".gpkg")
  json <- run("gwr", "--json", "--input", input, "--dependent", case$y, "--explanatory", paste(case$x, collapse = ","),
              "--output", out, "--kernel", case$kernel, "--bandwidth-type", case$type,
              if (!is.na(case$bw)) c("--bandwidth", case$bw))
  ours_bw <- json_number(json, "bandwidth")
  if (is.na(case$bw) && !adaptive) {
    # The two searches stop at slightly different points of the same minimum.
    compare_model(label, list(search = ours_bw), list(search = bw), 1e-4)
    bw <- ours_bw
  }
  ref <- gwr_reference(X, y, D, bw, case$kernel, adaptive)
  r <- sf::st_read(out, quiet = TRUE)
  compare_model(label,
    list(bandwidth = ours_bw, aicc = json_number(json, "aicc"), trace = json_number(json, "effective_parameters"),
         rss = json_number(json, "rss"), sigma = json_number(json, "sigma"),
         coefficients = c(r$Coef_Intercept, r[[paste0("Coef_", case$x[1])]], r[[paste0("Coef_", case$x[2])]]),
         std_errors = c(r$SE_Intercept, r[[paste0("SE_", case$x[1])]], r[[paste0("SE_", case$x[2])]]),
         local_r2 = r$LocalR2, predicted = r$Predicted, std_residual = r$StdResid),
    list(bandwidth = bw, aicc = ref$aicc, trace = ref$tr, rss = ref$rss, sigma = ref$sigma,
         coefficients = c(ref$beta), std_errors = c(ref$se), local_r2 = ref$local_r2, predicted = ref$yhat,
         std_residual = ref$std))
  unlink(out)
}

cat(sprintf("%d passed, %d failed\n", checks - failures, failures))
quit(status = if (failures == 0) 0 else 1)
