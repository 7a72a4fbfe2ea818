# Regenerates spdep_expected.csv: R's spdep values for the cases of
# tests/crosscheck/crosscheck.R, so the suite can compare against them where
# R is not installed (CrossCheckTable in tests/SpdepTableTest.cpp).
#   Rscript spdep_expected.R ZOSTAT DATA_DIR > spdep_expected.csv
# The weights are exported from zostat ("weights show"), as in the cross-check,
# so both sides use the same neighbours; every number here is spdep's.
# Columns: dataset, field, weights (zostat's options), statistic, expected.
# Global rows hold one value; local rows hold one value per feature in QlID
# order, separated by spaces. Statistics:
#   moran_I moran_E moran_V moran_z      moran.test, randomisation
#   g_G g_E g_V g_z                      globalG.test (binary weights only)
#   gi_z                                 localG with the feature among its own neighbours, weight 1
#   local_I local_I_z                    localmoran, mlvar = FALSE, conditional = FALSE (weights row-standardized)
#   local_I_mlvar                        localmoran's default, whose variance divides by n instead of n - 1
suppressPackageStartupMessages(library(spdep))
args <- commandArgs(trailingOnly = TRUE)
zostat <- args[1]
data <- args[2]

run <- function(...) {
  out <- suppressWarnings(system2(zostat, c(...), stdout = TRUE, stderr = FALSE))
  status <- attr(out, "status")
  if (!is.null(status) && status != 0) stop(paste("zostat failed:", paste(c(...), collapse = " ")))
  out
}

# The layer's QlIDs in order, from a relationship every feature has.
layer_ids <- function(input) {
  lines <- run("weights", "show", "--quiet", "--input", input, "--field", "QlID",
               "--conceptualization", "zone-of-indifference")
  sort(unique(read.table(text = lines, header = TRUE, sep = "\t")[[1]]))
}

zostat_listw <- function(input, field, weights) {
  lines <- run("weights", "show", "--quiet", "--input", input, "--field", field, weights)
  tab <- read.table(text = lines, header = TRUE, sep = "\t", col.names = c("id", "nb", "w"))
  ids <- layer_ids(input)
  nb <- vector("list", length(ids))
  glist <- vector("list", length(ids))
  for (i in seq_along(ids)) {
    rows <- tab[tab$id == ids[i], ]
    nb[[i]] <- if (nrow(rows) == 0) 0L else match(rows$nb, ids)
    glist[[i]] <- if (nrow(rows) == 0) numeric(0) else rows$w
  }
  class(nb) <- "nb"
  attr(nb, "region.id") <- as.character(ids)
  nb2listw(nb, glist = glist, style = "B", zero.policy = TRUE)
}

values <- function(input, field) {
  layer <- sf::st_read(input, quiet = TRUE)
  as.numeric(layer[order(as.integer(rownames(layer))), ][[field]])
}

rows <- character(0)
emit <- function(file, field, weights, statistic, value) {
  rows <<- c(rows, paste(file, field, paste(weights, collapse = " "), statistic,
                         paste(sprintf("%.17g", unname(value)), collapse = " "), sep = ","))
}

global_cases <- list(
  list(file = "columbus.gpkg", field = "CRIME", weights = c("--conceptualization", "contiguity-edges-corners", "--row-standardize")),
  list(file = "columbus.gpkg", field = "HOVAL", weights = c("--conceptualization", "contiguity-edges")),
  list(file = "columbus.gpkg", field = "INC", weights = c("--conceptualization", "inverse-distance", "--exponent", "2")),
  list(file = "baltim.gpkg", field = "PRICE", weights = c("--conceptualization", "k-nearest", "--k", "6")),
  list(file = "baltim.gpkg", field = "PRICE", weights = c("--conceptualization", "fixed-distance-band", "--row-standardize")),
  list(file = "baltim.gpkg", field = "AGE", weights = c("--conceptualization", "k-nearest", "--k", "4", "--row-standardize"))
)
for (case in global_cases) {
  input <- file.path(data, case$file)
  lw <- zostat_listw(input, case$field, case$weights)
  x <- values(input, case$field)
  mt <- moran.test(x, lw, randomisation = TRUE, zero.policy = TRUE)
  emit(case$file, case$field, case$weights, "moran_I", mt$estimate[1])
  emit(case$file, case$field, case$weights, "moran_E", mt$estimate[2])
  emit(case$file, case$field, case$weights, "moran_V", mt$estimate[3])
  emit(case$file, case$field, case$weights, "moran_z", mt$statistic)
  if (!("--row-standardize" %in% case$weights) && !("inverse-distance" %in% case$weights)) {
    gt <- globalG.test(x, lw, zero.policy = TRUE)
    emit(case$file, case$field, case$weights, "g_G", gt$estimate[1])
    emit(case$file, case$field, case$weights, "g_E", gt$estimate[2])
    emit(case$file, case$field, case$weights, "g_V", gt$estimate[3])
    emit(case$file, case$field, case$weights, "g_z", gt$statistic)
  }
}

local_cases <- list(
  list(file = "columbus.gpkg", field = "CRIME", weights = c("--conceptualization", "contiguity-edges-corners")),
  list(file = "baltim.gpkg", field = "PRICE", weights = c("--conceptualization", "k-nearest", "--k", "6")),
  list(file = "baltim.gpkg", field = "AGE", weights = c("--conceptualization", "fixed-distance-band"))
)
for (case in local_cases) {
  input <- file.path(data, case$file)
  lw <- zostat_listw(input, case$field, case$weights)
  x <- values(input, case$field)
  nb <- lw$neighbours
  gl <- lw$weights
  for (i in seq_along(x)) {
    nb[[i]] <- c(i, nb[[i]][nb[[i]] > 0])
    gl[[i]] <- c(1, gl[[i]])
  }
  attr(nb, "self.included") <- TRUE
  emit(case$file, case$field, case$weights, "gi_z", as.numeric(localG(x, nb2listw(nb, glist = gl, style = "B"))))
  standardized <- c(case$weights, "--row-standardize")
  lw_w <- zostat_listw(input, case$field, standardized)
  ref <- localmoran(x, lw_w, mlvar = FALSE, conditional = FALSE, zero.policy = TRUE)
  emit(case$file, case$field, standardized, "local_I", ref[, "Ii"])
  emit(case$file, case$field, standardized, "local_I_z", ref[, "Z.Ii"])
  emit(case$file, case$field, standardized, "local_I_mlvar", localmoran(x, lw_w, zero.policy = TRUE)[, "Ii"])
}

cat("dataset,field,weights,statistic,expected\n")
cat(rows, sep = "\n")
cat("\n")
