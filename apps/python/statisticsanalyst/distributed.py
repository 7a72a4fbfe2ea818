"""Moran's I, General G, hot spots and clusters/outliers of one dataset on a
Dask cluster, partitioned by space::

    from dask.distributed import Client
    import statisticsanalyst.distributed as sad

    client = Client("tcp://scheduler:8786")      # or Client(LocalCluster(n_workers=2))
    sad.moran(client, "/shared/addresses.gpkg", "PRICE", conceptualization="k-nearest", k=8)
    sad.hotspot(client, "/shared/addresses.gpkg", "PRICE", distance_band=500.0,
                output="/shared/hotspots.gpkg")

The keywords are those of the single-machine functions, and so are the
results: a MoranResult / GeneralGResult equal to one process's to 1e-12
relative, and local results whose every value is one process's to the last
bit, written as one layer (its features keep their source feature ids,
where one process numbers them from 1).
The dataset is one file GDAL reads, or a folder of GeoPackage tiles read as
the one dataset they make tile after tile (in name order; a feature's id is
its id in its tile plus one more than the largest id of the tiles before).
The dataset, the output and the scratch folder (by default a hidden folder
beside the output, or beside the input for a global statistic) must lie on
storage every worker and the client see.

How a run goes: a sample of the features (from the GeoPackage spatial index
when there is one) is split by a KD tree into boxes, twice as many as the
cluster has workers unless `partitions=` says otherwise. Each task cuts its
box and a halo around it out of the dataset (GDAL's spatial filter: the
R-tree of a GeoPackage), and the library analyses that part: its own
features get rows and statistics, the halo only lends positions and values.
The halo holds every neighbour: the band for distance weights; for K
nearest, a width grown until the library finds every own feature's K-th
neighbour inside it; for contiguity, the largest feature's size. The whole
dataset's moments come from exact sums merged over the parts; a global
statistic's weights that point across parts are exchanged once (ARCHITECTURE.md).
Tasks are pure functions of the dataset and the plan, so a lost worker's
tasks are run again with the same result; output appears only once the
whole result is in, and the scratch folder goes on every exit.

With ``fdr=True`` each part first sends its candidates for the false
discovery rate (its features with p ≤ 0.1), which the client turns into the
whole dataset's levels. Not available across parts, since they need every
feature at once: permutations, weights files, zone of indifference
weights, weights without a band limit and geographic coordinates (project
the data first).
"""
from __future__ import annotations

import math
import os
import shutil
import uuid
from typing import Any, Callable, Optional, Sequence

import numpy as np
import numpy.typing as npt

from . import _core, _gpkg, _validate
from ._analyses import _library_errors
from ._errors import StatisticsAnalystError
from ._results import GeneralGResult, MoranResult
from ._types import Conceptualization, DistanceMethod, PathLike
from ._weights import patterns_information

Box = tuple[float, float, float, float]  # min x, min y, max x, max y
_Array = npt.NDArray[Any]
_INF = math.inf
_FAR = 1e300  # an edge beyond any coordinate, standing for an open side in GDAL's spatial filter
_SAMPLE = 100_000  # features sampled for the KD split
_PART_LAYER = "part"

# ---------------------------------------------------------------- the tasks
# Module-level functions of plain arguments: workers import them, and a
# task run again (after a worker is lost) gives the same file or numbers.


def _info(options: dict[str, Any], box: Box, width: float, whole: dict[str, Any],
          fdr: Optional[tuple[_Array, _Array, float]] = None) -> _core.PatternsInformation:
    """The library's record for the part of `box` cut with a halo of
    `width` (with the false discovery rate's levels of its candidates, when
    they are known)."""
    info = patterns_information(**options)
    return _core.with_partition(info, box, _halo_box(box, width), whole["count"], whole["sums"], whole["extent"], fdr)


def _halo_box(box: Box, width: float) -> Box:
    return (box[0] - width, box[1] - width, box[2] + width, box[3] + width)


# A source of features: (path, layer, id offset). A folder of GeoPackage
# tiles is read as one dataset, tile after tile: a feature's id is its
# tile's offset plus its id in the tile, in the order of one dataset merged
# from the tiles.
Tile = tuple[str, str, int]


def _cut(tiles: Sequence[Tile], fields: Sequence[str], box: Box, width: float, path: str) -> str:
    """The part's own box and its halo, cut out of the dataset into a
    GeoPackage: the features whose bounds meet the box grown by `width`,
    keeping their feature ids. Written under another name and renamed, so a
    file at `path` is always whole."""
    from osgeo import gdal
    gdal.UseExceptions()
    x0, y0, x1, y1 = (min(max(v, -_FAR), _FAR) for v in _halo_box(box, width))
    grown: Box = (x0, y0, x1, y1)
    partial = path + ".partial.gpkg"

    def translate(**options: Any) -> None:
        source, layer, _ = tiles[0]
        made = gdal.VectorTranslate(partial, source, options=gdal.VectorTranslateOptions(
            format="GPKG", layers=[layer], layerName=_PART_LAYER, options=["-preserve_fid"],
            selectFields=list(fields), layerCreationOptions=["SPATIAL_INDEX=NO"], **options))
        if made is None:
            raise StatisticsAnalystError(_core.message("EUa014", [], f"the part {path} could not be cut"))
        made = None  # closed: SQLite may write next

    try:
        # GeoPackages are cut by their spatial index in SQLite; anything else by GDAL.
        translate(limit=0)
        into = _gpkg.describe(partial, _PART_LAYER)
        tables = [(source, _gpkg.describe(source, layer), offset) for source, layer, offset in tiles]
        cut = into is not None and all(
            t is not None and _gpkg.cut_rows(partial, into, source, t, fields, grown, offset)
            for source, t, offset in tables)
        if not cut:
            if len(tiles) > 1:
                raise StatisticsAnalystError(_core.message(
                    "EUa004", [], "the tiles of a folder must be GeoPackages with a spatial index"))
            os.remove(partial)
            translate(spatFilter=list(grown))
        os.replace(partial, path)
    finally:
        if os.path.exists(partial):
            os.remove(partial)
    return path


def _scan(path: str, options: dict[str, Any], box: Box, width: float, whole: dict[str, Any], centre: float,
          reach: bool) -> dict[str, Any]:
    with _library_errors():
        info = _info(options, box, width, whole)
        return dict(_core.partition_scan(path, _PART_LAYER, info, centre, reach))


def _local(kind: str, path: str, options: dict[str, Any], box: Box, width: float, whole: dict[str, Any],
           output: str, output_layer: str, fdr: Optional[tuple[_Array, _Array, float]]) -> str:
    function = _core.hotspot if kind == "hotspot" else _core.cluster_outlier
    with _library_errors():
        info = _info(options, box, width, whole, fdr)
        function(path, _PART_LAYER, output, output_layer, True, info, None)
    return output


def _tests(kind: str, path: str, options: dict[str, Any], box: Box, width: float,
           whole: dict[str, Any]) -> tuple[_Array, _Array, list[float], int]:
    """The part's candidates for the false discovery rate."""
    with _library_errors():
        info = _info(dict(options, fdr=False), box, width, whole)
        return _core.partition_tests(path, _PART_LAYER, info, kind != "hotspot")


def _edges(path: str, options: dict[str, Any], box: Box, width: float, whole: dict[str, Any],
           general_g: bool) -> tuple[_Array, ...]:
    with _library_errors():
        return tuple(_core.partition_edges(path, _PART_LAYER, _info(options, box, width, whole),
                                           general_g))


def _sums(path: str, options: dict[str, Any], box: Box, width: float, whole: dict[str, Any], general_g: bool,
          incoming: tuple[_Array, _Array, _Array]) -> list[list[float]]:
    with _library_errors():
        return list(_core.partition_sums(path, _PART_LAYER, _info(options, box, width, whole),
                                         general_g, *incoming))


# ---------------------------------------------------------------- the plan (on the client)


class _Layer:
    """What the client reads of the dataset: name, count, extent and a sample."""

    def __init__(self, path: str, layer: Optional[str]) -> None:
        from osgeo import gdal, ogr
        gdal.UseExceptions()
        try:
            self.ds = ogr.Open(path)
        except RuntimeError as error:
            raise StatisticsAnalystError(_core.message("EUa004", [], str(error))) from None
        self.layer = self.ds.GetLayerByName(layer) if layer else self.ds.GetLayer(0)
        if self.layer is None:
            raise StatisticsAnalystError(_core.message("EUa006", [], repr(layer)))
        self.name: str = self.layer.GetName()
        self.count: int = self.layer.GetFeatureCount()
        x0, x1, y0, y1 = self.layer.GetExtent()
        self.extent: Box = (x0, y0, x1, y1)
        srs = self.layer.GetSpatialRef()
        if srs is not None and srs.IsGeographic() and "undefined" not in (srs.GetName() or "").lower():
            _validate.refuse(_core.message("ESa110", ["geographic coordinates"],
                                           "project the data to a planar coordinate system first"))

    def _index(self) -> Optional[str]:
        """The GeoPackage spatial index table, when there is one."""
        if self.ds.GetDriver().GetName() != "GPKG":
            return None
        name = f"rtree_{self.name}_{self.layer.GetGeometryColumn()}"
        found = self.ds.ExecuteSQL(f"SELECT name FROM sqlite_master WHERE name = '{name}'")
        try:
            return name if found is not None and found.GetFeatureCount() > 0 else None
        finally:
            if found is not None:
                self.ds.ReleaseResultSet(found)

    def _rows(self, sql: str) -> list[list[float]]:
        result = self.ds.ExecuteSQL(sql)
        try:
            return [[f.GetField(i) for i in range(f.GetFieldCount())] for f in result]
        finally:
            self.ds.ReleaseResultSet(result)

    def sample(self) -> _Array:
        """Centres of the bounds of about _SAMPLE features."""
        step = max(1, self.count // _SAMPLE)
        index = self._index()
        if index:
            rows = self._rows(f'SELECT (minx + maxx) / 2, (miny + maxy) / 2 FROM "{index}" WHERE id % {step} = 0')
            return np.array(rows, dtype=float).reshape(-1, 2)
        points = []
        self.layer.SetIgnoredFields([self.layer.GetLayerDefn().GetFieldDefn(i).GetName()
                                     for i in range(self.layer.GetLayerDefn().GetFieldCount())])
        self.layer.ResetReading()
        for i, feature in enumerate(self.layer):
            geometry = feature.GetGeometryRef()
            if i % step == 0 and geometry is not None and not geometry.IsEmpty():
                x0, x1, y0, y1 = geometry.GetEnvelope()
                points.append(((x0 + x1) / 2, (y0 + y1) / 2))
        self.layer.SetIgnoredFields([])
        return np.array(points, dtype=float).reshape(-1, 2)

    def id_span(self) -> int:
        """One more than the largest feature id: the next tile's offset."""
        result = self.ds.ExecuteSQL(f'SELECT MAX({self.layer.GetFIDColumn() or "fid"}) FROM "{self.name}"')
        try:
            row = result.GetNextFeature() if result is not None else None
            return int(row.GetField(0) or 0) + 1 if row is not None else 1
        finally:
            if result is not None:
                self.ds.ReleaseResultSet(result)

    def largest_feature(self) -> float:
        """The largest width or height of a feature's bounds (from the
        spatial index, whose bounds are rounded outwards, when there is one)."""
        index = self._index()
        if index:
            rows = self._rows(f'SELECT MAX(maxx - minx), MAX(maxy - miny) FROM "{index}"')
            return max(float(v or 0.0) for v in rows[0])
        largest = 0.0
        self.layer.ResetReading()
        for feature in self.layer:
            geometry = feature.GetGeometryRef()
            if geometry is not None and not geometry.IsEmpty():
                x0, x1, y0, y1 = geometry.GetEnvelope()
                largest = max(largest, x1 - x0, y1 - y0)
        return largest


class _Dataset:
    """One dataset, or a folder of GeoPackage tiles read as one."""

    def __init__(self, path: str, layer: Optional[str]) -> None:
        files = [os.path.join(path, f) for f in sorted(os.listdir(path)) if f.lower().endswith(".gpkg")] \
            if os.path.isdir(path) else [path]
        if not files:
            raise StatisticsAnalystError(_core.message("EUa002", [], "the folder holds no GeoPackage"))
        self.layers = [_Layer(f, layer) for f in files]
        self.tiles: list[Tile] = []
        offset = 0
        for f, tile in zip(files, self.layers):
            self.tiles.append((f, tile.name, offset))
            offset += tile.id_span() if len(files) > 1 else 0
        self.name = self.layers[0].name
        self.count = sum(tile.count for tile in self.layers)
        extents = np.array([tile.extent for tile in self.layers])
        self.extent: Box = (float(extents[:, 0].min()), float(extents[:, 1].min()), float(extents[:, 2].max()),
                            float(extents[:, 3].max()))

    def sample(self) -> _Array:
        return np.concatenate([tile.sample() for tile in self.layers])

    def largest_feature(self) -> float:
        return max(tile.largest_feature() for tile in self.layers)


def _kd_boxes(points: _Array, parts: int) -> list[Box]:
    """Boxes (half-open, open to infinity at the sides) holding about equal
    shares of the points: the wider side is cut at the share's quantile."""
    def split(pts: _Array, box: Box, count: int) -> list[Box]:
        if count <= 1 or len(pts) < 2:
            return [box]
        axis = 0 if np.ptp(pts[:, 0]) >= np.ptp(pts[:, 1]) else 1
        left = count // 2
        values = np.sort(pts[:, axis])
        cut = float(values[min(len(values) - 1, len(values) * left // count)])
        if cut <= values[0]:  # no point would fall below the cut
            return [box]
        low, high = list(box), list(box)
        low[2 + axis], high[axis] = cut, cut
        below = pts[:, axis] < cut
        return (split(pts[below], (low[0], low[1], low[2], low[3]), left) +
                split(pts[~below], (high[0], high[1], high[2], high[3]), count - left))
    return split(points, (-_INF, -_INF, _INF, _INF), parts)


def _owner(boxes: Sequence[Box], x: _Array, y: _Array) -> _Array:
    owner = np.full(len(x), -1, dtype=np.int64)
    for p, (x0, y0, x1, y1) in enumerate(boxes):
        owner[(x >= x0) & (x < x1) & (y >= y0) & (y < y1)] = p
    return owner


class _Run:
    """One distributed run: the plan, its scratch folder and its tasks."""

    def __init__(self, client: Any, path: PathLike, layer: Optional[str], field: str, options: dict[str, Any],
                 partitions: Optional[int], scratch: Optional[PathLike], beside: str) -> None:
        self.client = client
        self.source = os.path.abspath(_validate.path(path))
        self.data = _Dataset(self.source, layer)
        self.options = dict(options, field=_validate.field(field))
        self.info = patterns_information(**self.options)  # refuses what one machine would refuse
        band = self.options.get("distance_band", -1.0)
        if self.info.conceptualization == 4 or (self.info.conceptualization in (1, 2, 3) and 0 <= band < 1e-20):
            # Weights reaching every feature: a part would need the whole dataset as its halo.
            what = "zone of indifference weights" if self.info.conceptualization == 4 else "weights without a band"
            raise StatisticsAnalystError(_core.message("ESa110", [what], ""))
        workers = len(client.scheduler_info().get("workers", {})) or 1
        wanted = partitions if partitions is not None else 2 * workers
        if not isinstance(wanted, int) or wanted < 1:
            _validate.refuse(_core.message("EUa060", [], f"partitions must be a positive integer, not {wanted!r}"))
        self.boxes = _kd_boxes(self.data.sample(), wanted)
        self.token = uuid.uuid4().hex[:12]
        base = os.fspath(scratch) if scratch is not None else os.path.dirname(os.path.abspath(beside))
        self.folder = os.path.join(base, f".statisticsanalyst-{self.token}")
        os.makedirs(self.folder)
        self.fields = [f for f in (self.options["field"], self.options.get("self_weight_field")) if f]
        self.futures: list[Any] = []

    def close(self) -> None:
        if self.futures:
            self.client.cancel(self.futures)
        shutil.rmtree(self.folder, ignore_errors=True)

    def submit(self, function: Callable[..., Any], *args: Any) -> Any:
        future = self.client.submit(function, *args, pure=False)
        self.futures.append(future)
        return future

    def gather(self, futures: list[Any]) -> list[Any]:
        return list(self.client.gather(futures))

    def cut(self, p: int, width: float) -> Any:
        return self.submit(_cut, self.data.tiles, self.fields, self.boxes[p], width,
                           os.path.join(self.folder, f"part-{p}.gpkg"))

    def plan(self) -> tuple[list[Any], list[float], dict[str, Any]]:
        """Cuts every part with a halo holding its features' neighbours and
        merges the scans into the whole dataset's record: the parts' files,
        their halo widths and the record."""
        kind = self.info.conceptualization
        none = {"count": 0, "sums": (0.0, 0.0, 0.0, 0.0), "extent": (math.nan,) * 4}
        x0, y0, x1, y1 = self.data.extent
        spacing = math.sqrt(max((x1 - x0) * (y1 - y0), 1e-300) / max(self.data.count, 1)) or 1.0
        if kind in (5, 6):  # contiguity: every neighbour meets the own feature's bounds
            snap = max(self.options.get("snap_tolerance", 0.0), 1e-9 * max(x1 - x0, y1 - y0))
            widths = [1.001 * self.data.largest_feature() + 2 * snap + 1e-12 * max(abs(v) for v in self.data.extent)]
            widths *= len(self.boxes)
        elif kind == 7 or self.options.get("distance_band", -1.0) < 0:
            widths = [4.0 * spacing * math.sqrt(max(self.options.get("k", 1), 1))] * len(self.boxes)
        else:
            widths = [float(self.options["distance_band"])] * len(self.boxes)
        files = [self.cut(p, widths[p]) for p in range(len(self.boxes))]
        reach = kind == 7 or (kind in (1, 2, 3) and self.options.get("distance_band", -1.0) < 0)
        scans = self._scan_until_certain(files, widths, none, reach)
        if kind not in (5, 6, 7) and self.options.get("distance_band", -1.0) < 0:
            # The default band: the largest of the parts' defaults; the halo must hold it.
            band = max(s["default_band"] for s in scans)
            self.options["distance_band"] = band
            for p in range(len(self.boxes)):
                if widths[p] < band:
                    widths[p] = band
                    files[p] = self.cut(p, band)
        count = sum(int(s["features"]) for s in scans)
        if count != self.data.count:
            raise StatisticsAnalystError(_core.message(
                "ESa111", [], f"the parts hold {count} features, the layer {self.data.count}"))
        total = math.fsum(v for s in scans for v in s["sum"])
        squares = math.fsum(v for s in scans for v in s["squares"])
        extents = np.array([s["extent"] for s in scans if s["features"] > 0], dtype=float)
        extent = (float(np.nanmin(extents[:, 0])), float(np.nanmin(extents[:, 1])),
                  float(np.nanmax(extents[:, 2])), float(np.nanmax(extents[:, 3])))
        whole = {"count": count, "sums": (total, squares, 0.0, 0.0), "extent": extent}
        mean = total / count
        centred = self.gather([self.submit(_scan, files[p], self.options, self.boxes[p], widths[p], whole, mean, False)
                               for p in range(len(self.boxes))])
        whole["sums"] = (total, squares, math.fsum(v for s in centred for v in s["squares"]),
                         math.fsum(v for s in centred for v in s["fourth"]))
        return files, widths, whole

    def fdr_levels(self, kind: str, files: list[Any], widths: list[float],
                   whole: dict[str, Any]) -> list[Optional[tuple[_Array, _Array, float]]]:
        """The false discovery rate over the whole dataset: every part's
        candidates (p ≤ 0.1, few) put together into levels, each part given
        those of its own candidates."""
        tests = self.gather([self.submit(_tests, kind, files[p], self.options, self.boxes[p], widths[p], whole)
                             for p in range(len(self.boxes))])
        with _library_errors():
            ids, levels, mean = _core.partition_fdr(
                np.concatenate([t[0] for t in tests]), np.concatenate([t[1] for t in tests]),
                [v for t in tests for v in t[2]], sum(int(t[3]) for t in tests), int(whole["count"]))
        given: list[Optional[tuple[_Array, _Array, float]]] = []
        for t in tests:
            mine = np.isin(ids, t[0])
            given.append((ids[mine], levels[mine], mean))
        return given

    def _scan_until_certain(self, files: list[Any], widths: list[float], none: dict[str, Any],
                            reach: bool) -> list[dict[str, Any]]:
        """Scans every part; with `reach`, widens the halo of a part while one
        of its features may have a neighbour (its nearest, or its K-th)
        beyond it."""
        scans: list[Optional[dict[str, Any]]] = [None] * len(self.boxes)
        pending = list(range(len(self.boxes)))
        whole_span = max(self.data.extent[2] - self.data.extent[0], self.data.extent[3] - self.data.extent[1])
        while pending:
            futures = [self.submit(_scan, files[p], self.options, self.boxes[p], widths[p], none, 0.0, True)
                       for p in pending]
            again = []
            for p, future in zip(pending, futures):
                try:
                    scan = future.result()
                except StatisticsAnalystError as error:
                    # Too few features in the part for its K neighbours: widen it.
                    if not {"ESa014", "ESa042"} & set(error.ids) or widths[p] > 2 * whole_span:
                        raise
                    scan = None
                if scan is None or (reach and scan["uncertain"] > 0 and widths[p] <= 2 * whole_span):
                    widths[p] *= 2.0
                    files[p] = self.cut(p, widths[p])
                    again.append(p)
                else:
                    scans[p] = scan
            pending = again
        return [s for s in scans if s is not None]


def _options(arguments: dict[str, Any], **extra: Any) -> dict[str, Any]:
    keys = ("conceptualization", "distance_band", "exponent", "k", "row_standardize", "distance_method",
            "snap_tolerance", "memory_budget")
    return dict({k: arguments[k] for k in keys}, **extra)


def _global(client: Any, path: PathLike, layer: Optional[str], field: str, options: dict[str, Any],
            partitions: Optional[int], scratch: Optional[PathLike], general_g: bool) -> tuple[float, float, float, float, float]:
    run = _Run(client, path, layer, field, options, partitions, scratch, os.fspath(path))
    try:
        files, widths, whole = run.plan()
        edges = run.gather([run.submit(_edges, files[p], run.options, run.boxes[p], widths[p], whole, general_g)
                            for p in range(len(run.boxes))])
        incoming: list[list[tuple[_Array, ...]]] = [[] for _ in run.boxes]
        for source, (start, end, weight, x, y) in enumerate(edges):
            owner = _owner(run.boxes, x, y)
            for p in range(len(run.boxes)):
                chosen = owner == p
                if p != source and chosen.any():
                    incoming[p].append((start[chosen], end[chosen], weight[chosen]))
        def joined(p: int) -> tuple[_Array, _Array, _Array]:
            parts = incoming[p]
            if not parts:
                return (np.zeros(0, np.int64), np.zeros(0, np.int64), np.zeros(0, float))
            return tuple(np.concatenate([e[i] for e in parts]) for i in range(3))  # type: ignore[return-value]
        shares = run.gather([run.submit(_sums, files[p], run.options, run.boxes[p], widths[p], whole, general_g,
                                        joined(p)) for p in range(len(run.boxes))])
        # Each share is exact (an expansion): put together, in any order,
        # they round to one process's sums.
        total: list[list[float]] = [[] for _ in range(9)]
        for share in shares:
            for slot, expansion in zip(total, share):
                slot.extend(expansion)
        info = _info(run.options, run.boxes[0], 0.0, whole)
        with _library_errors():
            return _core.from_sums(total, info, general_g)
    finally:
        run.close()


def _local_layer(kind: str, client: Any, path: PathLike, layer: Optional[str], field: str, options: dict[str, Any],
                 output: PathLike, output_layer: Optional[str], overwrite: bool, partitions: Optional[int],
                 scratch: Optional[PathLike], suffix: str) -> str:
    target = os.path.abspath(_validate.path(output, "output"))
    source = os.path.abspath(_validate.path(path))
    run = _Run(client, source, layer, field, options, partitions, scratch, target)
    try:
        with _library_errors():
            name = output_layer or run.data.name + suffix
            _core.check_output(target, name, bool(overwrite), run.data.tiles[0][0])  # refused before any work
    except BaseException:
        run.close()
        raise
    try:
        files, widths, whole = run.plan()
        levels = run.fdr_levels(kind, files, widths, whole) if run.options.get("fdr") else [None] * len(run.boxes)
        results = run.gather([run.submit(_local, kind, files[p], run.options, run.boxes[p], widths[p], whole,
                                          os.path.join(run.folder, f"result-{p}.gpkg"), name, levels[p])
                              for p in range(len(run.boxes))])
        with _library_errors():
            _core.merge_parts(results, name, target, name, bool(overwrite))
        return target
    finally:
        run.close()


# ---------------------------------------------------------------- the analyses


def moran(client: Any, path: PathLike, field: str, *, layer: str | None = None,
          conceptualization: Conceptualization | int = "inverse-distance", distance_band: float = -1.0,
          exponent: float = 1.0, k: int = 1, row_standardize: bool = False,
          distance_method: DistanceMethod = "euclidean", snap_tolerance: float = 0.0,
          memory_budget: float | None = None, partitions: int | None = None,
          scratch: PathLike | None = None) -> MoranResult:
    """Global Moran's I of `field` over the dataset at `path`, computed by
    the workers of the Dask `client`; keywords as statisticsanalyst.moran's.
    `partitions`: the number of spatial parts (default twice the workers)."""
    return MoranResult(*_global(client, path, layer, field, _options(locals()), partitions, scratch, False))


def general_g(client: Any, path: PathLike, field: str, *, layer: str | None = None,
              conceptualization: Conceptualization | int = "inverse-distance", distance_band: float = -1.0,
              exponent: float = 1.0, k: int = 1, row_standardize: bool = False,
              distance_method: DistanceMethod = "euclidean", snap_tolerance: float = 0.0,
              memory_budget: float | None = None, partitions: int | None = None,
              scratch: PathLike | None = None) -> GeneralGResult:
    """Getis-Ord General G of a non-negative `field`; keywords as moran()."""
    return GeneralGResult(*_global(client, path, layer, field, _options(locals()), partitions, scratch, True))


def hotspot(client: Any, path: PathLike, field: str, *, output: PathLike, layer: str | None = None,
            conceptualization: Conceptualization | int = "inverse-distance", distance_band: float = -1.0,
            exponent: float = 1.0, k: int = 1, row_standardize: bool = False,
            distance_method: DistanceMethod = "euclidean", snap_tolerance: float = 0.0,
            memory_budget: float | None = None, self_weight_field: str | None = None, fdr: bool = False,
            output_layer: str | None = None, overwrite: bool = False, partitions: int | None = None,
            scratch: PathLike | None = None) -> str:
    """Hot spot analysis (Gi*) into the layer `output_layer` of `output`
    (any format zostat writes; written once whole, an existing layer
    replaced only with `overwrite`); returns the output's path. Fields and
    values are statisticsanalyst.hotspot's."""
    extra: dict[str, Any] = {"self_weight_field": self_weight_field} if self_weight_field else {}
    return _local_layer("hotspot", client, path, layer, field, _options(locals(), fdr=bool(fdr), **extra), output,
                        output_layer, overwrite, partitions, scratch, "_hotspots")


def cluster_outlier(client: Any, path: PathLike, field: str, *, output: PathLike, layer: str | None = None,
                    conceptualization: Conceptualization | int = "inverse-distance", distance_band: float = -1.0,
                    exponent: float = 1.0, k: int = 1, row_standardize: bool = False,
                    distance_method: DistanceMethod = "euclidean", snap_tolerance: float = 0.0,
                    memory_budget: float | None = None, fdr: bool = False, output_layer: str | None = None,
                    overwrite: bool = False, partitions: int | None = None, scratch: PathLike | None = None) -> str:
    """Cluster and outlier analysis (local Moran's I) into `output`, as
    hotspot(); fields as statisticsanalyst.cluster_outlier's."""
    return _local_layer("cluster_outlier", client, path, layer, field, _options(locals(), fdr=bool(fdr)), output,
                        output_layer, overwrite, partitions, scratch, "_clusters")


__all__ = ["cluster_outlier", "general_g", "hotspot", "moran"]
