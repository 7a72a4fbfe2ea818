# Shared setup of the command-line benchmarks; sourced, not run.
#   source "$(dirname "$0")/common.sh" "$@"
# Sets build, sizes (default 10000 100000 1000000), tmp (removed on exit) and
# z (zostat), and defines:
#   random_points N  writes $tmp/pN.gpkg (or takes $BENCH_INPUTS/pN.gpkg)
#                    with N random points in the unit
#                    square and sets points to it and band to the distance
#                    band giving about 8 neighbours (π band² N = 8);
#   timed CMD...     runs CMD with its output discarded and prints
#                    "S s, K KiB peak" from /usr/bin/time.
set -euo pipefail
build=${1:?build directory (configured with -DSA_BUILD_BENCH=ON)}
shift || true
sizes=("${@:-10000 100000 1000000}")
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
z="$build/apps/zostat/zostat"

random_points() {
  points="$tmp/p$1.gpkg"
  # BENCH_INPUTS: a folder of pN.gpkg made earlier by make_random_points.
  if [ -n "${BENCH_INPUTS:-}" ] && [ -f "$BENCH_INPUTS/p$1.gpkg" ]; then
    points="$BENCH_INPUTS/p$1.gpkg"
  else
    "$build/bench/make_random_points" "$points" "$1"
  fi
  band=$(python3 -c "import math; print(math.sqrt(8 / (math.pi * $1)))")
}

timed() {
  /usr/bin/time -f "%e s, %M KiB peak" -o "$tmp/time" "$@" >/dev/null
  cat "$tmp/time"
}
