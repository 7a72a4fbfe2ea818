#!/usr/bin/env bash
# Where the time of moran, general-g, hotspot and cluster-outlier (k-nearest 8)
# goes, stage by stage: each run is sampled by `perf record` with DWARF call
# chains and the samples are split by bench/perf_stages.py.
#   bench/profile_stages.sh BUILD_DIR [N ...]   (default N: 100000 1000000)
# Needs linux-perf and perf_event_paranoid <= 2. Also prints the run's elapsed
# and CPU time and peak memory without the profiler.
here=$(cd "$(dirname "$0")" && pwd)
source "$here/common.sh" "$1" "${@:2}"
[ $# -gt 1 ] || sizes=(100000 1000000)
for n in ${sizes[*]}; do
  random_points "$n"
  freq=$(( n > 200000 ? 199 : 999 ))
  for command in moran general-g hotspot cluster-outlier; do
    args=("$command" --json --quiet --input "$points" --field VALUE --conceptualization k-nearest --k 8)
    case $command in hotspot|cluster-outlier) args+=(--output "$tmp/out.gpkg" --overwrite) ;; esac
    /usr/bin/time -f "%e s elapsed, %U s user, %S s system, %M KiB peak" -o "$tmp/time" "$z" "${args[@]}" >/dev/null
    echo "== $n $command: $(cat "$tmp/time")"
    perf record -q -F "$freq" --call-graph dwarf,16384 -o "$tmp/run.data" -- "$z" "${args[@]}" >/dev/null 2>&1
    python3 "$here/perf_stages.py" "$tmp/run.data" "$freq"
    rm -f "$tmp/run.data" "$tmp/out.gpkg"
  done
done
