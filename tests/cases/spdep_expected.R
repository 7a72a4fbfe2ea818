# Regenerates spdep_expected.csv: R's spdep values for the cases of
# tests/crosscheck/crosscheck.R, so the suite can compare against them where
# R is not installed (tests/crosscheck/CrossCheckTableTest.cpp).
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
#   incremental_d incremental_I          per band of zostat incremental (the weights column holds its options):
#   incremental_E incremental_V          the band's distance, and moran.test on dnearneigh's neighbours at that
#   incremental_z                        distance, adjust.n = FALSE (../crosscheck/common.R, incremental_spdep)
args <- commandArgs(trailingOnly = TRUE)
zostat <- args[1]
data <- args[2]
here <- dirname(sub("^--file=", "", grep("^--file=", commandArgs(trailingOnly = FALSE), value = TRUE)[1]))
source(file.path(here, "..", "crosscheck", "common.R"))

rows <- character(0)
emit <- function(file, field, weights, statistic, value) {
  rows <<- c(rows, paste(file, field, paste(weights, collapse = " "), statistic,
                         paste(sprintf("%.17g", unname(value)), collapse = " "), sep = ","))
}

for (case in global_cases) {
  input <- file.path(data, case$file)
  lw <- zostat_listw(input, case$field, case$weights)
  x <- values(input, case$field)
  mt <- moran.test(x, lw, randomisation = TRUE, zero.policy = TRUE)
  emit(case$file, case$field, case$weights, "moran_I", mt$estimate[1])
  emit(case$file, case$field, case$weights, "moran_E", mt$estimate[2])
  emit(case$file, case$field, case$weights, "moran_V", mt$estimate[3])
  emit(case$file, case$field, case$weights, "moran_z", mt$statistic)
  if (binary_weights(case$weights)) {
    gt <- globalG.test(x, lw, zero.policy = TRUE)
    emit(case$file, case$field, case$weights, "g_G", gt$estimate[1])
    emit(case$file, case$field, case$weights, "g_E", gt$estimate[2])
    emit(case$file, case$field, case$weights, "g_V", gt$estimate[3])
    emit(case$file, case$field, case$weights, "g_z", gt$statistic)
  }
}

for (case in local_cases) {
  input <- file.path(data, case$file)
  lw <- zostat_listw(input, case$field, case$weights)
  x <- values(input, case$field)
  emit(case$file, case$field, case$weights, "gi_z", as.numeric(localG(x, with_self(lw))))
  standardized <- c(case$weights, "--row-standardize")
  lw_w <- zostat_listw(input, case$field, standardized)
  ref <- localmoran(x, lw_w, mlvar = FALSE, conditional = FALSE, zero.policy = TRUE)
  emit(case$file, case$field, standardized, "local_I", ref[, "Ii"])
  emit(case$file, case$field, standardized, "local_I_z", ref[, "Z.Ii"])
  emit(case$file, case$field, standardized, "local_I_mlvar", localmoran(x, lw_w, zero.policy = TRUE)[, "Ii"])
}

for (case in incremental_cases) {
  tests <- incremental_spdep(file.path(data, case$file), case)
  emit(case$file, case$field, case$options, "incremental_d", case$distances)
  emit(case$file, case$field, case$options, "incremental_I", sapply(tests, function(t) t$estimate[1]))
  emit(case$file, case$field, case$options, "incremental_E", sapply(tests, function(t) t$estimate[2]))
  emit(case$file, case$field, case$options, "incremental_V", sapply(tests, function(t) t$estimate[3]))
  emit(case$file, case$field, case$options, "incremental_z", sapply(tests, function(t) t$statistic))
}

cat("dataset,field,weights,statistic,expected\n")
cat(rows, sep = "\n")
cat("\n")
