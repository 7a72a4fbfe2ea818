#!/usr/bin/env python3
"""One analysis through statisticsanalyst.distributed on a local Dask
cluster, against the same analysis by zostat in one process, in one run:

    PYTHONPATH=build/apps/python python3 bench/dask_cluster.py build/apps/zostat/zostat /tmp/p1m.gpkg VALUE \\
        --analysis hotspot --k 8 --workers 2 --memory-limit 4GiB [--check]

Prints the wall time of both, their ratio, the peak resident memory of each
worker process (VmHWM) and of zostat, and with --check whether every value
and geometry of the two result layers is the same (moran/general-g: the
five numbers)."""
import argparse
import os
import re
import subprocess
import sys
import tempfile
import time


def peak_kib() -> int:
    with open("/proc/self/status") as status:
        return int(re.search(r"VmHWM:\s+(\d+)", status.read()).group(1))


def zostat(binary, analysis, path, field, k, band, output):
    weights = ["--conceptualization", "k-nearest", "--k", str(k)] if k else ["--conceptualization",
                                                                            "fixed-distance-band",
                                                                            "--distance-band", str(band)]
    command = ["/usr/bin/time", "-f", "%M", binary, analysis, "--input", path, "--field", field, "--quiet",
               *weights]
    command += ["--output", output] if output else ["--json"]
    start = time.perf_counter()
    run = subprocess.run(command, capture_output=True, text=True, check=True)
    return time.perf_counter() - start, int(run.stderr.strip().splitlines()[-1]), run.stdout


def same_layers(a, b):
    from osgeo import ogr
    da, db = ogr.Open(a), ogr.Open(b)  # the layers live as long as their datasources
    la, lb = da.GetLayer(0), db.GetLayer(0)
    if la.GetFeatureCount() != lb.GetFeatureCount():
        return False
    for fa, fb in zip(la, lb):
        if fa.GetGeometryRef().ExportToWkb() != fb.GetGeometryRef().ExportToWkb():
            return False
        if [fa.GetField(i) for i in range(fa.GetFieldCount())] != [fb.GetField(i) for i in range(fb.GetFieldCount())]:
            return False
    return True


def main():
    p = argparse.ArgumentParser()
    p.add_argument("zostat")
    p.add_argument("path")
    p.add_argument("field")
    p.add_argument("--analysis", default="hotspot", choices=["hotspot", "cluster-outlier", "moran", "general-g"])
    p.add_argument("--k", type=int, default=8, help="K nearest (0: a fixed band, --band)")
    p.add_argument("--band", type=float, default=0.0)
    p.add_argument("--workers", type=int, default=2)
    p.add_argument("--memory-limit", default="4GiB")
    p.add_argument("--partitions", type=int, default=None)
    p.add_argument("--check", action="store_true")
    a = p.parse_args()

    import statisticsanalyst.distributed as sad
    from dask.distributed import Client, LocalCluster

    weights = ({"conceptualization": "k-nearest", "k": a.k} if a.k else
               {"conceptualization": "fixed-distance-band", "distance_band": a.band})
    folder = tempfile.mkdtemp(prefix="sa-distributed-", dir=os.path.dirname(os.path.abspath(a.path)))
    local = a.analysis in ("hotspot", "cluster-outlier")
    try:
        one_out = os.path.join(folder, "one.gpkg") if local else None
        one_time, one_kib, one_json = zostat(a.zostat, a.analysis, a.path, a.field, a.k, a.band, one_out)
        with LocalCluster(n_workers=a.workers, threads_per_worker=1, processes=True, dashboard_address=None,
                          memory_limit=a.memory_limit) as cluster, Client(cluster) as client:
            function = getattr(sad, a.analysis.replace("-", "_"))
            start = time.perf_counter()
            if local:
                many = function(client, a.path, a.field, output=os.path.join(folder, "many.gpkg"),
                                partitions=a.partitions, scratch=folder, **weights)
            else:
                many = function(client, a.path, a.field, partitions=a.partitions, scratch=folder, **weights)
            many_time = time.perf_counter() - start
            peaks = sorted(client.run(peak_kib).values())
        print(f"{a.analysis} of {a.path} ({weights}), {a.workers} workers of {a.memory_limit}")
        print(f"  one process (zostat): {one_time:8.2f} s, peak {one_kib / 1024:8.0f} MiB")
        print(f"  distributed:          {many_time:8.2f} s, worker peaks "
              + ", ".join(f"{k / 1024:.0f} MiB" for k in peaks))
        print(f"  ratio distributed / one process: {many_time / one_time:.2f}")
        if a.check:
            if local:
                same = same_layers(one_out, many)
            else:
                import json
                values = json.loads(one_json)
                same = all(values[key] == getattr(many, attr) for key, attr in (
                    ("index", "index"), ("z_score", "z_score"), ("variance", "variance")))
            print(f"  identical results: {same}")
    finally:
        import shutil
        shutil.rmtree(folder, ignore_errors=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
