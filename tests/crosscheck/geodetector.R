# The geographical detector of zostat against base R on columbus: CRIME
# explained by CP and EW (categories) and INC cut at its quintiles.
#   Rscript geodetector.R ZOSTAT DATA_DIR
# zostat writes its detector tables as CSV files (--tables); every number
# is recomputed here with tapply, quantile(type = 7), pf(ncp =), t.test
# (Welch) and qf, and must agree to 1e-10 (relative where it is large).
suppressPackageStartupMessages(library(sf))
args <- commandArgs(trailingOnly = TRUE)
zostat <- args[1]
data <- args[2]
here <- dirname(sub("^--file=", "", grep("^--file=", commandArgs(trailingOnly = FALSE), value = TRUE)[1]))
source(file.path(here, "zostat.R"))  # run()

checks <- 0
failures <- 0
check <- function(label, got, want, tol = 1e-10) {
  checks <<- checks + 1
  ok <- length(got) == length(want) && all(abs(got - want) <= tol * pmax(1, abs(want)))
  if (!ok) failures <<- failures + 1
  cat(sprintf("%-4s %-60s %s\n", if (ok) "ok" else "FAIL", label,
              if (ok) "" else paste("got", paste(got, collapse = " "), "want", paste(want, collapse = " "))))
}

input <- file.path(data, "columbus.gpkg")
folder <- tempfile("geodetector")
dir.create(folder)
on.exit(unlink(folder, recursive = TRUE))
invisible(run("geodetector", "--quiet", "--input", input, "--dependent", "CRIME", "--factors", "CP,EW,INC",
    "--categorical", "CP,EW", "--tables", file.path(folder, "gd.csv")))
table <- function(name) read.csv(file.path(folder, paste0("gd_", name, ".csv")), stringsAsFactors = FALSE)
factor_t <- table("factor")
strata_t <- table("strata")
risk_t <- table("risk")
inter_t <- table("interaction")
eco_t <- table("ecological")

layer <- st_drop_geometry(st_read(input, quiet = TRUE))
y <- layer$CRIME
N <- length(y)
breaks <- quantile(layer$INC, probs = (0:5) / 5, type = 7)
factors <- list(CP = layer$CP, EW = layer$EW,
                INC = as.integer(cut(layer$INC, unique(breaks), include.lowest = TRUE, right = TRUE)))
check("INC breaks = quantile(type = 7)", as.numeric(strsplit(factor_t$breaks[3], "; ")[[1]]), unname(breaks))

ssw <- function(x) sum(tapply(y, x, function(v) sum((v - mean(v))^2)))
sst <- sum((y - mean(y))^2)
q_of <- function(x) 1 - ssw(x) / sst
for (f in names(factors)) {
  x <- factors[[f]]
  row <- factor_t[factor_t$field == f, ]
  Nh <- tapply(y, x, length)
  mh <- tapply(y, x, mean)
  L <- length(Nh)
  q <- q_of(x)
  Fv <- (N - L) / (L - 1) * q / (1 - q)
  lambda <- (sum(mh^2) - sum(sqrt(Nh) * mh)^2 / N) / (sst / N)
  check(paste(f, "q, F, lambda, p"), c(row$q, row$f, row$noncentrality, row$p_value),
        c(q, Fv, lambda, pf(Fv, L - 1, N - L, ncp = lambda, lower.tail = FALSE)))
  s <- strata_t[strata_t$field == f, ]
  check(paste(f, "stratum counts, means, variances"), c(s$count, s$mean, s$variance),
        c(Nh, mh, tapply(y, x, function(v) mean((v - mean(v))^2))))
  # Every pair of strata, in stratum order.
  r <- risk_t[risk_t$field == f, ]
  groups <- split(y, x)
  got <- want <- c()
  k <- 0
  for (a in seq_len(L - 1)) for (b in (a + 1):L) {
    k <- k + 1
    tt <- t.test(groups[[a]], groups[[b]], var.equal = FALSE)
    got <- c(got, r$t[k], r$df[k], r$critical[k], r$p_value[k], r$significant[k])
    want <- c(want, tt$statistic, tt$parameter, qt(0.975, tt$parameter), tt$p.value, abs(tt$statistic) > qt(0.975, tt$parameter))
  }
  check(paste(f, "risk: Welch t, df, qt, p, significance"), got, want)
}

qs <- sapply(factors, q_of)
for (k in seq_len(nrow(inter_t))) {
  a <- inter_t$first[k]
  b <- inter_t$second[k]
  q12 <- q_of(interaction(factors[[a]], factors[[b]], drop = TRUE))
  kind <- if (q12 < min(qs[a], qs[b])) "nonlinear-weaken" else if (q12 <= max(qs[a], qs[b])) "uni-weaken" else
    if (q12 < qs[a] + qs[b]) "bi-enhance" else if (q12 == qs[a] + qs[b]) "independent" else "nonlinear-enhance"
  check(paste("interaction", a, b, kind), c(inter_t$q[k], inter_t$relationship[k] == kind), c(q12, 1))
}
for (k in seq_len(nrow(eco_t))) {
  a <- eco_t$first[k]
  b <- eco_t$second[k]
  Fv <- (N * (N - 1) * ssw(factors[[a]])) / (N * (N - 1) * ssw(factors[[b]]))
  crit <- qf(0.95, N - 1, N - 1)
  check(paste("ecological", a, b), c(eco_t$f[k], eco_t$critical[k], eco_t$p_value[k], eco_t$significant[k]),
        c(Fv, crit, pf(Fv, N - 1, N - 1, lower.tail = FALSE), Fv > crit))
}
cat(sprintf("%d checks, %d failures\n", checks, failures))
quit(status = if (failures == 0 && checks > 0) 0 else 1)
