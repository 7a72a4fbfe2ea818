# What the cross-check (crosscheck.R) and the table of spdep's values
# (../cases/spdep_expected.R) share: running zostat, zostat's weights as an
# spdep listw with features in QlID order, a field's values in that order,
# and the weights cases both compare. Expects `zostat` to be set.
suppressPackageStartupMessages(library(spdep))

source(file.path(dirname(sys.frame(1)$ofile), "zostat.R"))  # run() and json_number()

# The layer's QlIDs in order, from a relationship every feature has.
layer_ids <- function(input) {
  n <- json_number(run("info", "--json", "--input", input), "record_count")
  lines <- run("weights", "show", "--quiet", "--input", input, "--field", "QlID",
               "--conceptualization", "zone-of-indifference")
  ids <- sort(unique(read.table(text = lines, header = TRUE, sep = "\t")[[1]]))
  stopifnot(length(ids) == n)
  ids
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

# The global cases: Moran's I for all, General G where the weights are binary.
global_cases <- list(
  list(file = "columbus.gpkg", field = "CRIME", weights = c("--conceptualization", "contiguity-edges-corners", "--row-standardize")),
  list(file = "columbus.gpkg", field = "HOVAL", weights = c("--conceptualization", "contiguity-edges")),
  list(file = "columbus.gpkg", field = "INC", weights = c("--conceptualization", "inverse-distance", "--exponent", "2")),
  list(file = "baltim.gpkg", field = "PRICE", weights = c("--conceptualization", "k-nearest", "--k", "6")),
  list(file = "baltim.gpkg", field = "PRICE", weights = c("--conceptualization", "fixed-distance-band", "--row-standardize")),
  list(file = "baltim.gpkg", field = "AGE", weights = c("--conceptualization", "k-nearest", "--k", "4", "--row-standardize"))
)
binary_weights <- function(weights) !("--row-standardize" %in% weights) && !("inverse-distance" %in% weights)

# The local cases: Gi* on these weights, local Moran's I on them row-standardized.
local_cases <- list(
  list(file = "columbus.gpkg", field = "CRIME", weights = c("--conceptualization", "contiguity-edges-corners")),
  list(file = "baltim.gpkg", field = "PRICE", weights = c("--conceptualization", "k-nearest", "--k", "6")),
  list(file = "baltim.gpkg", field = "AGE", weights = c("--conceptualization", "fixed-distance-band"))
)

# Gi*'s weights: the feature itself joins its neighbours with weight 1.
with_self <- function(lw) {
  nb <- lw$neighbours
  gl <- lw$weights
  for (i in seq_along(nb)) {
    nb[[i]] <- c(i, nb[[i]][nb[[i]] > 0])
    gl[[i]] <- c(1, gl[[i]])
  }
  attr(nb, "self.included") <- TRUE
  nb2listw(nb, glist = gl, style = "B", zero.policy = TRUE)
}

# The incremental cases: zostat's bands against spdep at the same distances,
# chosen so that each band is exactly one of them (pairs of baltim's points
# lie exactly 20, 25, 35 and 45 apart, so the bands' inclusive bound is
# checked too). At 20 one feature has no neighbour.
incremental_cases <- list(
  list(file = "baltim.gpkg", field = "PRICE", options = c("--begin-distance", "25", "--increment", "10", "--bands", "3"),
       distances = c(25, 35, 45)),
  list(file = "baltim.gpkg", field = "PRICE",
       options = c("--begin-distance", "25", "--increment", "10", "--bands", "3", "--row-standardize"),
       distances = c(25, 35, 45)),
  list(file = "baltim.gpkg", field = "PRICE", options = c("--begin-distance", "20", "--increment", "5", "--bands", "3"),
       distances = c(20, 25, 30))
)

# spdep's moran.test at each distance of a case, from the points themselves:
# dnearneigh's neighbours at most d apart (its default bounds, >= 0 and <= d,
# itself excluded), binary weights or, with --row-standardize, style "W".
# adjust.n = FALSE keeps every feature in n, those without neighbours too,
# as zostat does; it changes nothing where every feature has a neighbour.
incremental_spdep <- function(input, case) {
  layer <- sf::st_read(input, quiet = TRUE)
  stopifnot(all(sf::st_geometry_type(layer) == "POINT"))
  layer <- layer[order(as.integer(rownames(layer))), ]
  xy <- sf::st_coordinates(layer)
  x <- as.numeric(layer[[case$field]])
  style <- if ("--row-standardize" %in% case$options) "W" else "B"
  lapply(case$distances, function(d) {
    lw <- nb2listw(dnearneigh(xy, 0, d), style = style, zero.policy = TRUE)
    moran.test(x, lw, randomisation = TRUE, zero.policy = TRUE, adjust.n = FALSE)
  })
}

# The bands of `zostat incremental --json`: one number per band under `key`.
incremental_bands <- function(json, key) {
  bands <- sub('"first_peak".*', "", paste(json, collapse = ""))
  m <- regmatches(bands, gregexpr(paste0('"', key, '": [-+0-9.eE]+'), bands))[[1]]
  as.numeric(sub(".*: ", "", m))
}
