# Running zostat from the R checks: run(...) returns its stdout and stops on a
# failure; json_number() reads one number of its --json output. Expects
# `zostat` to be set.
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
