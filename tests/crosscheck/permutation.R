# Cross-check of zostat's permutation inference against spdep, on the same
# weights (exported from zostat, as in crosscheck.R):
#   Rscript permutation.R ZOSTAT DATA_DIR
# - Local Moran's I: zostat's "ALMI_PseudoP" against the folded pseudo
#   p-value of spdep's localmoran_perm, both with 9999 permutations. Each is
#   a Monte Carlo estimate, so they must agree within three standard errors
#   of their difference for 99% of the features. spdep 1.2 draws the
#   neighbours' values with replacement, zostat without: the variance of a
#   draw differs by (N - 1) / (N - k) for k neighbours among N = n - 1
#   values, under 3% on baltim and ny8 (n over 200), far less than the
#   Monte Carlo error; on columbus (49 features, 12% with 6 neighbours) the
#   two tests genuinely differ, so it is checked for the global tests only.
# - The moments of the draws: zostat's unit tests check its simulated sums
#   against the closed form of sampling without replacement; here that closed
#   form, turned into local Moran's I, must equal spdep's conditional
#   randomization moments (localmoran, conditional = TRUE) to 1e-9. spdep
#   states them for I scaled by Σd²/n whatever mlvar says, so the closed form
#   is scaled alike here (zostat's I divides by Σd²/(n - 1)).
# - Gi*: zostat holds the feature's own value and draws its neighbours'; the
#   statistic is monotone in the neighbours' weighted sum, as spdep's Gi
#   (localG_perm without the feature among its neighbours) is, so both
#   pseudo p-values estimate the same probability.
# - Global Moran's I and General G: zostat's pseudo p-value, simulated mean
#   and variance against moran.mc's and the folded p-value of its simulated
#   values, within Monte Carlo error.
args <- commandArgs(trailingOnly = TRUE)
zostat <- args[1]
data <- args[2]
here <- dirname(sub("^--file=", "", grep("^--file=", commandArgs(trailingOnly = FALSE), value = TRUE)[1]))
source(file.path(here, "common.R"))
suppressPackageStartupMessages(library(sf))
failures <- 0
P <- 9999
tmp <- tempfile(fileext = ".gpkg")
on.exit(unlink(tmp), add = TRUE)

report <- function(label, ok, detail) {
  if (!ok) failures <<- failures + 1
  cat(sprintf("%-4s %-58s %s\n", if (ok) "ok" else "FAIL", label, detail))
}

# Folded pseudo p-values a and b, each from P permutations: the share of
# features within three standard errors of their difference.
agreement <- function(a, b) {
  p <- pmax((a + b) / 2, 1 / (P + 1))
  se <- sqrt(2 * p * (1 - p) / P) + 2 / (P + 1)
  mean(abs(a - b) <= 3 * se)
}

folded <- function(sims, observed) (min(sum(sims >= observed), sum(sims <= observed)) + 1) / (length(sims) + 1)

local_field <- function(command, input, field, weights, result) {
  run(command, "--quiet", "--input", input, "--field", field, weights, "--permutations", P, "--seed", "11",
      "--output", tmp, "--output-layer", "r", "--overwrite")
  layer <- st_read(tmp, layer = "r", quiet = TRUE)
  layer[[result]]
}

cases <- list(
  list(file = "baltim.gpkg", field = "PRICE", weights = c("--conceptualization", "k-nearest", "--k", "8")),
  list(file = "ny8.gpkg", field = "Cases", weights = c("--conceptualization", "contiguity-edges-corners")),
  list(file = "columbus.gpkg", field = "CRIME", weights = c("--conceptualization", "k-nearest", "--k", "6"),
       global_only = TRUE)
)
set.seed(1)
for (case in cases) {
  input <- file.path(data, case$file)
  x <- values(input, case$field)
  n <- length(x)
  standardized <- c(case$weights, "--row-standardize")
  lw_w <- zostat_listw(input, case$field, standardized)
  lw_b <- zostat_listw(input, case$field, case$weights)
  local <- is.null(case$global_only)

  # Local Moran's I.
  if (local) {
    ours <- local_field("cluster-outlier", input, case$field, standardized, "ALMI_PseudoP")
    theirs <- localmoran_perm(x, lw_w, nsim = P, mlvar = FALSE, zero.policy = TRUE)[, "Pr(folded) Sim"]
    share <- agreement(ours, theirs)
    report(paste("local Moran pseudo p,", case$file), share >= 0.99, sprintf("%.1f%% agree", 100 * share))
  }

  # The closed form of the draws' moments against spdep's conditional moments.
  d <- x - mean(x)
  m2 <- sum(d^2) / n
  closed <- t(sapply(seq_len(n), function(i) {
    w <- lw_w$weights[[i]]
    others <- d[-i]
    mu <- mean(others)
    sigma2 <- mean((others - mu)^2)
    N <- n - 1
    c(d[i] / m2 * mu * sum(w), (d[i] / m2)^2 * sigma2 * (N * sum(w^2) - sum(w)^2) / (N - 1))
  }))
  conditional <- localmoran(x, lw_w, conditional = TRUE, mlvar = FALSE, zero.policy = TRUE)
  rel <- max(abs(closed - cbind(conditional[, "E.Ii"], conditional[, "Var.Ii"])) /
             pmax(abs(cbind(conditional[, "E.Ii"], conditional[, "Var.Ii"])), 1e-12))
  report(paste("conditional moments, closed form = spdep,", case$file), rel <= 1e-9, sprintf("max rel %.2g", rel))

  # Gi* (binary weights, self weight 1).
  if (local) {
    ours <- local_field("hotspot", input, case$field, case$weights, "Gi_PseudoP")
    theirs <- attr(localG_perm(x, lw_b, nsim = P, zero.policy = TRUE), "internals")[, "Pr(folded) Sim"]
    share <- agreement(ours, theirs)
    report(paste("Gi* pseudo p,", case$file), share >= 0.99, sprintf("%.1f%% agree", 100 * share))
  }

  # Global Moran's I and General G.
  for (kind in c("moran", "general-g")) {
    json <- run(kind, "--quiet", "--json", "--input", input, "--field", case$field,
                if (kind == "moran") standardized else case$weights, "--permutations", P, "--seed", "3")
    if (kind == "general-g") {
      # spdep has no permutation test of G: shuffle here.
      g <- function(v) sum(v * lag.listw(lw_b, v, zero.policy = TRUE)) / (sum(v)^2 - sum(v^2))
      sims <- replicate(P, g(sample(x)))
      observed <- g(x)
    } else {
      mc <- moran.mc(x, lw_w, nsim = P, zero.policy = TRUE)
      sims <- mc$res[seq_len(P)]
      observed <- mc$statistic
    }
    mean_ok <- abs(json_number(json, "simulated_mean") - mean(sims)) <= 4 * sqrt(2 * var(sims) / P)
    var_ok <- abs(json_number(json, "simulated_variance") / var(sims) - 1) <= 0.06
    p_ok <- agreement(json_number(json, "pseudo_p_value"), folded(sims, observed)) == 1
    report(paste(kind, "permutation test,", case$file), mean_ok && var_ok && p_ok,
           sprintf("mean %.4g/%.4g var %.4g/%.4g p %.4g/%.4g", json_number(json, "simulated_mean"), mean(sims),
                   json_number(json, "simulated_variance"), var(sims), json_number(json, "pseudo_p_value"),
                   folded(sims, observed)))
  }
}
if (failures > 0) quit(status = 1)
