#!/usr/bin/env python3
"""Per-stage breakdown of a `perf record --call-graph dwarf` profile of zostat.

    perf record -F 999 --call-graph dwarf,16384 -o run.data -- zostat moran ...
    bench/perf_stages.py run.data

Each sample goes to the stage of the innermost frame of its call chain that
names a stage (so the neighbour search inside the weights-file writer counts
as neighbour search, not as file writing). Prints the share of the samples
and the CPU seconds of each stage (samples / frequency).
"""
import re
import subprocess
import sys
from collections import Counter

# (stage, pattern over the demangled frame name); first match from the leaf wins.
STAGES = [
    ("spatial index (R-tree)", r"rtree|CreateSpatialIndex|RunDeferredSpatialIndex|BuildSpatialIndex"),
    ("neighbour search", r"ZoKdTree::Search|searchLevel|KNearestRow|KNearestColumns|RadiusRow|NearestDistances|SearchSlots|"
                         r"NearestOfRange|NearestInLeaf|FillSpatialBlock"),
    ("kd-tree build", r"ZoKdTree::ZoKdTree|ZoKdTree::Build|buildIndex|divideTree|CoarseSpatialOrder|CollectLeaves|LazyTree"),
    ("statistic", r"MoranSums::|GeneralGSums::|local::GiStar|local::LocalMoran|local::Fdr|local::Confidence|"
                  r"local::ClusterOutlierTypes|MoranMoments|FeedUnits|NormalCdf|pnorm|HotSpot::|ClusterOutlier::|"
                  r"LocalStatistic|Classif"),
    ("in-memory weights (CSR) build", r"CsrWeights::AppendRows|CsrWeights::InFeatureOrder|CsrWeights::FindReverse|CsrWeights::Start|"
                                      r"BuildInMemory|FillInMemory"),
    ("in-memory weights (CSR) rows", r"CsrWeights::Row"),
    ("OpenMP wait", r"gomp_|GOMP_"),
    ("reading points", r"PickUpBaryCenters|GetBaryCenter|ReadPoints"),
    ("weights check (dataset unchanged)", r"CheckSWMFileValid"),
    ("weights re-read", r"WeightRows::Open|WeightRows::Next|ReadWeightMatrixBinarySparse"),
    ("unique-ID pass", r"PrepareBuild"),
    ("weights write", r"WriteBinaryRows|BuildBinary|WriteRows|WriteFileHead|WriteUniqueIDFieldSWMB"),
    ("reading values", r"ReadValues|ReadAnalysisValues|ReadFeatures|ReadFieldValues|ZoRecordset::GetFieldValue"),
    ("query (FID/order pass)", r"ZoDatasetVector::Query|QueryOrderedBy|OpenAnalysisRecords"),
    ("result write", r"AppendRecords|CreateFeature|ZoDatasetVector::Commit|WriteResult|ZoResultWriter|CopyFeatures"),
    ("open/close datasource (GDAL's deferred R-tree runs at close)", r"ZoDataSource|GDALOpen|GDALClose|OpenOrCreate|CreateDatasetVector"),
    ("local: values and rows", r"ZoClusteringDistributions::RunLocal"),
    ("start-up (dynamic loading)", r"_dl_start|_dl_init|dl_main|_dl_relocate"),
]
COMPILED = [(name, re.compile(p)) for name, p in STAGES]


def classify(frames):
    for frame in frames:  # leaf first
        for name, pattern in COMPILED:
            if pattern.search(frame):
                return name
    return "other"


def main():
    data = sys.argv[1]
    freq = float(sys.argv[2]) if len(sys.argv) > 2 else 999.0
    out = subprocess.run(["perf", "script", "-i", data, "-F", "ip,sym", "--demangle"],
                         capture_output=True, text=True, check=True).stdout
    counts = Counter()
    frames = []
    for line in out.splitlines() + [""]:
        line = line.strip()
        if not line:
            if frames:
                counts[classify(frames)] += 1
            frames = []
            continue
        parts = line.split(None, 1)
        frames.append(parts[1] if len(parts) > 1 else parts[0])
    total = sum(counts.values()) or 1
    for name, c in counts.most_common():
        print(f"{name:40s} {100.0 * c / total:5.1f} %  {c / freq:6.2f} s")
    print(f"{'total':40s} 100.0 %  {total / freq:6.2f} s")


if __name__ == "__main__":
    main()
