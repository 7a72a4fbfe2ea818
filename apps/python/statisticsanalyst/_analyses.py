"""The analyses: each opens its input, runs one library call and wraps what
comes back. Two runners carry the shared road, so a new analysis is a
binding in core.cpp plus a few lines here:

* ``_statistic``: a global statistic, five numbers into a result class;
* ``_layer``: an analysis that writes a result layer, read back as a frame
  that knows which field its map shows.
"""
from __future__ import annotations

import contextlib
import os
from typing import Any, Callable, Iterable, Iterator, Literal, Mapping, Optional, Sequence, TypeVar, Union

from . import _core, _io, _validate
from ._errors import StatisticsAnalystError, StatisticsAnalystUsageError
from ._progress import reporter
from ._results import (AnnResult, GeneralGResult, GeoDetectorResult, GwrResult, IncrementalResult, MoranResult,
                       OlsResult)
from ._types import Conceptualization, Data, DistanceMethod, PathLike, Progress
from ._weights import distance_method_code, patterns_information, weights_of

R = TypeVar("R")
# Names given as one comma-separated string, as zostat takes them, or as a sequence.
Names = Union[str, Sequence[str]]
StatisticType = Literal["max", "min", "sum", "mean", "first", "last", "median"]
GlobalResultT = TypeVar("GlobalResultT", MoranResult, GeneralGResult)


@contextlib.contextmanager
def _library_errors() -> Iterator[None]:
    try:
        yield
    except _core.LibraryError as error:
        raise StatisticsAnalystError(str(error)) from None
    except _core.UsageError as error:  # refused as zostat refuses it (an output of no known format)
        raise StatisticsAnalystUsageError(str(error)) from None


def _call(function: Callable[..., R], *args: Any, progress: Progress) -> R:
    with reporter(progress) as report, _library_errors():
        return function(*args, report)


def _weights(field: str, arguments: Mapping[str, Any], **extra: Any) -> _core.PatternsInformation:
    """The record of a weight-based analysis from its arguments (locals())."""
    return patterns_information(field, **weights_of(arguments), **extra)


def _statistic(function: Callable[..., tuple[Any, ...]], result_class: type[GlobalResultT], data: Data,
               layer: Optional[str], info: _core.PatternsInformation, progress: Progress) -> GlobalResultT:
    with _io.scratch() as folder, _io.input_layer(data, layer, folder) as (path, name):
        return result_class(*_call(function, path, name, info, progress=progress))


def _run_layer(function: Callable[..., R], data: Data, layer: Optional[str], output: Optional[PathLike],
               output_layer: Optional[str], overwrite: bool, suffix: str, progress: Progress, *arguments: Any,
               same_rows: bool = False) -> tuple[Any, R]:
    """Runs `function(path, layer, out_path, out_layer, overwrite, *arguments,
    progress)`; returns the result layer as a frame and what the function
    returned. `same_rows`: the layer holds the input's features in order."""
    with _io.scratch() as folder, _io.input_layer(data, layer, folder) as (path, name):
        out_path = os.fspath(output) if output is not None else os.path.join(folder, "result.gpkg")
        with _library_errors():
            out_layer = output_layer or _io.default_layer_name(data, layer, suffix)
        returned = _call(function, path, name, out_path, out_layer, bool(overwrite), *arguments, progress=progress)
        frame = _io.read_layer(out_path, out_layer)
    if _io.is_frame(data) and _io.is_frame(frame):
        # The same geometries, in the caller's coordinate system.
        if data.crs is not None:
            frame = frame.set_crs(data.crs, allow_override=True)
        else:
            frame.crs = None
        if same_rows and len(frame) == len(data):
            frame.index = data.index
    return frame, returned


def _layer(function: Callable[..., None], data: Data, layer: Optional[str], output: Optional[PathLike],
           output_layer: Optional[str], overwrite: bool, suffix: str, map_view: tuple[str, str], progress: Progress,
           info: _core.PatternsInformation) -> Any:
    # Rows keep the input's order unless a weights file reorders them.
    frame, _ = _run_layer(function, data, layer, output, output_layer, overwrite, suffix, progress, info,
                          same_rows=info.conceptualization != 8)
    return ResultFrame.wrap(frame, *map_view)


def moran(data: Data, field: str, *, layer: str | None = None, conceptualization: Conceptualization | int = "inverse-distance",
        distance_band: float = -1.0, exponent: float = 1.0, k: int = 1, row_standardize: bool = False,
        distance_method: DistanceMethod = "euclidean", weights_file: PathLike | None = None, snap_tolerance: float = 0.0,
        memory_budget: float | None = None,
        permutations: int = 0, seed: int = 0, progress: Progress = True) -> MoranResult:
    """Global Moran's I of `field`. `data` is a path (with `layer`) or a
    GeoDataFrame; weights as keywords named like zostat's options:
    ``conceptualization="k-nearest", k=8``, ``distance_band=``, ``exponent=``,
    ``row_standardize=True``, ``distance_method="manhattan"``, ``weights_file=``,
    ``memory_budget=`` (MB; beyond it the weights of a large run go through a
    temporary file, as zostat's ``--memory-budget``).
    ``permutations=999`` adds a permutation test under `seed` (the same bits
    as zostat's ``--permutations 999 --seed S``)."""
    info = _weights(field, locals(), permutations=permutations, seed=seed)
    return _statistic(_core.moran, MoranResult, data, layer, info, progress)


def general_g(data: Data, field: str, *, layer: str | None = None, conceptualization: Conceptualization | int = "inverse-distance",
        distance_band: float = -1.0, exponent: float = 1.0, k: int = 1, row_standardize: bool = False,
        distance_method: DistanceMethod = "euclidean", weights_file: PathLike | None = None, snap_tolerance: float = 0.0,
        memory_budget: float | None = None,
        permutations: int = 0, seed: int = 0, progress: Progress = True) -> GeneralGResult:
    """Getis-Ord General G of a non-negative `field`; keywords as for moran()."""
    info = _weights(field, locals(), permutations=permutations, seed=seed)
    return _statistic(_core.general_g, GeneralGResult, data, layer, info, progress)


def incremental_spatial_autocorrelation(data: Data, field: str, *, layer: str | None = None,
                                        begin_distance: float | None = None, increment: float | None = None,
                                        bands: int = 10, row_standardize: bool = False,
                                        distance_method: DistanceMethod = "euclidean",
                                        output: PathLike | None = None, output_layer: str | None = None, overwrite: bool = False,
                                        progress: Progress = True) -> IncrementalResult:
    """Global Moran's I of `field` with fixed distance band weights at `bands`
    distances (1 to 50) from `begin_distance` in steps of `increment` (None:
    the largest and the mean nearest-neighbour distance). Returns an
    IncrementalResult: the values of ``zostat incremental --json`` and
    ``.frame``, the table of bands ("Distance", "MoransI", "ExpectedI",
    "Variance", "ZScore", "PValue", "Valid", "Peak": 1 the first peak, 2 the
    highest, 3 both, 0 neither), which `output` also keeps as a layer;
    ``plot()`` draws the z-scores against distance."""
    field = _validate.field(field)
    # None asks for the default; a given distance must be usable as it stands.
    begin = 0.0 if begin_distance is None else _validate.number("incremental", "begin-distance", begin_distance)
    step = 0.0 if increment is None else _validate.number("incremental", "increment", increment)
    count = _validate.count("incremental", "bands", bands)
    method = distance_method_code(distance_method)
    frame, values = _run_layer(_core.incremental, data, layer, output, output_layer, overwrite, "_incremental",
                               progress, field, begin, step, count, bool(row_standardize), method)
    return IncrementalResult(values, frame, field)


def _names(value: Names, what: str) -> list[str]:
    """Field or detector names: one string (comma-separated, as zostat takes
    them) or a sequence of strings."""
    if isinstance(value, str):
        return [name.strip() for name in value.split(",")]
    return [_validate.field(name, what) for name in value]


def geodetector(data: Data, dependent: str, factors: Names, *, layer: str | None = None, categorical: Names = (),
                discretize: Literal["quantile", "equal", "jenks", "stddev"] = "quantile", classes: int = 5,
                alpha: float = 0.05, detectors: Names = ("factor", "interaction", "risk", "ecological"),
                output: PathLike | None = None, output_layer: str | None = None, overwrite: bool = False, progress: Progress = True) -> GeoDetectorResult:
    """The geographical detector: how much of the variance of `dependent`
    the strata of each of the `factors` explain. Integer and text factors are
    categories; real factors are cut into `classes` (2 to 30) by
    `discretize` ("quantile", "equal", "jenks" or "stddev") unless named in
    `categorical`. `alpha` is the significance of the risk and ecological
    detectors; `detectors` chooses among "factor", "interaction", "risk" and
    "ecological". With `output` every feature is also written there with,
    per factor, "<factor>_Stratum" and "<factor>_Mean" (the stratum's mean of
    `dependent`). Returns a GeoDetectorResult."""
    command = "geodetector"
    dependent = _validate.field(dependent, "dependent")
    factor_names = _names(factors, "a factor")
    if not factor_names or not all(factor_names):
        _validate.refuse(_core.message("EUa059", [], "factors needs at least one name, and no empty names"))
    categories = _names(categorical, "a categorical field") if categorical else []
    _validate.option(command, "discretize", discretize)
    arguments: tuple[Any, ...] = (dependent, factor_names, categories, discretize, _validate.count(command, "classes", classes),
                 _validate.number(command, "alpha", alpha))
    with _validate.as_keywords("detectors"):
        arguments += (_core.detector_set(_names(detectors, "a detector")),)
    with _io.scratch() as folder, _io.input_layer(data, layer, folder) as (path, name):
        if output is None:
            if output_layer is not None or overwrite:
                _validate.refuse(_core.message("EUa058", [], "output_layer and overwrite need output"))
            values = _call(_core.geodetector, path, name, "", "", False, *arguments, progress=progress)
        else:
            with _library_errors():
                out_layer = output_layer or _io.default_layer_name(data, layer, "_strata")
            values = _call(_core.geodetector, path, name, os.fspath(output), out_layer, bool(overwrite), *arguments,
                           progress=progress)
    return GeoDetectorResult.from_values(values, _core.geodetector_columns())


def ann(data: Data, *, layer: str | None = None, area: float = 0.0, distance_method: DistanceMethod = "euclidean",
        width: float | None = None, progress: Progress = True) -> AnnResult:
    """Average nearest neighbour. `area` 0 takes the minimum-area rectangle
    around the features; `width` replaces the default width of degenerate
    layouts."""
    method = distance_method_code(distance_method)
    rectangle = 0.0 if area == 0 else _validate.number("ann", "area", area)  # 0: the minimum-area rectangle
    given_width = None if width is None else _validate.number("ann", "width", width)

    def run(path: str, name: str, report: Any) -> tuple[float, float, float, float, float]:
        return _core.ann(path, name, rectangle, method, given_width, report)

    with _io.scratch() as folder, _io.input_layer(data, layer, folder) as (path, name):
        return AnnResult(*_call(run, path, name, progress=progress))


def hotspot(data: Data, field: str, *, layer: str | None = None, conceptualization: Conceptualization | int = "inverse-distance",
        distance_band: float = -1.0, exponent: float = 1.0, k: int = 1, row_standardize: bool = False,
        distance_method: DistanceMethod = "euclidean", weights_file: PathLike | None = None, snap_tolerance: float = 0.0,
        memory_budget: float | None = None,
            self_weight_field: str | None = None, fdr: bool = False, permutations: int = 0, seed: int = 0,
            output: PathLike | None = None, output_layer: str | None = None, overwrite: bool = False, progress: Progress = True) -> Any:
    """Hot spot analysis (Getis-Ord Gi*): a frame with "Gi_Zscore",
    "Gi_Pvalue" and the confidence bin "Gi_ConfInvl" (-3..3) per feature.
    With ``permutations=999`` also "Gi_PseudoP" (conditional randomization
    under `seed`), which then decides the bins. With `output` the result
    layer is also kept in that datasource."""
    info = _weights(field, locals(), self_weight_field=self_weight_field, fdr=fdr, permutations=permutations,
                    seed=seed)
    return _layer(_core.hotspot, data, layer, output, output_layer, overwrite, "_hotspots",
                  ("Gi_ConfInvl", f"Hot spots of {field}"), progress, info)


def cluster_outlier(data: Data, field: str, *, layer: str | None = None, conceptualization: Conceptualization | int = "inverse-distance",
        distance_band: float = -1.0, exponent: float = 1.0, k: int = 1, row_standardize: bool = False,
        distance_method: DistanceMethod = "euclidean", weights_file: PathLike | None = None, snap_tolerance: float = 0.0,
        memory_budget: float | None = None,
                    fdr: bool = False, permutations: int = 0, seed: int = 0, output: PathLike | None = None, output_layer: str | None = None, overwrite: bool = False,
                    progress: Progress = True) -> Any:
    """Cluster and outlier analysis (Anselin local Moran's I): "ALMI_MoranI",
    "ALMI_Zscore", "ALMI_Pvalue" and "ALMI_Type" (HH, LL, HL, LH or empty).
    With ``permutations=999`` also "ALMI_PseudoP", which then decides the
    types."""
    info = _weights(field, locals(), fdr=fdr, permutations=permutations, seed=seed)
    return _layer(_core.cluster_outlier, data, layer, output, output_layer, overwrite, "_clusters",
                  ("ALMI_Type", f"Clusters and outliers of {field}"), progress, info)


def optimized_hotspot(data: Data, field: str | None = None, *, layer: str | None = None,
                      aggregation: Literal["grid", "integrate", "polygons"] = "grid", cell_size: float | None = None,
                      tolerance: float | None = None, polygons: Data | None = None, polygons_layer: str | None = None,
                      distance_method: DistanceMethod = "euclidean", permutations: int = 0, seed: int = 0,
                      output: PathLike | None = None, output_layer: str | None = None, overwrite: bool = False, progress: Progress = True) -> Any:
    """Optimized hot spot analysis: Gi* ("Gi_Zscore", "Gi_Pvalue",
    FDR-corrected "Gi_ConfInvl") over a distance band chosen from the data.
    Without `field` the points are incidents, counted first into "Count" per
    grid cell (`cell_size`), integrated point (`tolerance`) or polygon of
    `polygons` (a path or a GeoDataFrame); unset sizes take defaults from the
    incidents' spacing. The frame's ``summary`` reports every choice, under
    the keys of ``zostat optimized-hotspot --json``. ``permutations=`` and
    ``seed=`` add "Gi_PseudoP", as for hotspot()."""
    command = "optimized-hotspot"
    name = "" if field is None else _validate.field(field)
    _validate.option(command, "aggregation", aggregation)
    cell = None if cell_size is None else _validate.number(command, "cell-size", cell_size)
    integration = None if tolerance is None else _validate.number(command, "tolerance", tolerance)
    method = distance_method_code(distance_method)
    test = patterns_information(permutations=permutations, seed=seed)
    with _io.scratch() as folder, contextlib.ExitStack() as stack:
        polygons_path, polygons_name = "", ""
        if polygons is not None:
            polygons_path, polygons_name = stack.enter_context(_io.input_layer(polygons, polygons_layer, folder))
        frame, report = _run_layer(_core.optimized_hotspot, data, layer, output, output_layer, overwrite,
                                   "_optimized_hotspots", progress, name, aggregation, cell, integration,
                                   os.fspath(polygons_path), polygons_name, method, test, same_rows=bool(name))
    result = ResultFrame.wrap(frame, "Gi_ConfInvl", f"Optimized hot spots of {field or 'incidents'}")
    _set_summary(result, report)
    return result


def _density(method: int, suffix: str, title: str, data: Data, layer: Optional[str], min_points: int,
             distance: float, xi: int, output: Optional[PathLike], output_layer: Optional[str], overwrite: bool,
             progress: Progress) -> Any:
    command = suffix[1:]  # "dbscan", "hdbscan", "optics"
    frame, (clusters, noise, used) = _run_layer(_core.density, data, layer, output, output_layer, overwrite, suffix,
                                                progress, method, _validate.count(command, "min-points", min_points),
                                                _validate.number(command, "distance", distance),
                                                _validate.count(command, "xi", xi), same_rows=True)
    result = ResultFrame.wrap(frame, "Cluster_ID", title)
    _set_summary(result, dict(clusters=clusters, noise=noise, distance=used))
    return result


def dbscan(data: Data, *, layer: str | None = None, min_points: int = 5, distance: float = 0.0,
           output: PathLike | None = None, output_layer: str | None = None, overwrite: bool = False, progress: Progress = True) -> Any:
    """DBSCAN clustering of points: "Cluster_ID" per point (-1 noise).
    `distance` 0 takes the median distance to the (min_points - 1)-th
    nearest neighbour. The frame's ``summary`` holds clusters, noise and the
    distance used."""
    return _density(1, "_dbscan", "DBSCAN clusters", data, layer, min_points, distance, 5, output, output_layer,
                    overwrite, progress)


def hdbscan(data: Data, *, layer: str | None = None, min_points: int = 5, output: PathLike | None = None, output_layer: str | None = None, overwrite: bool = False,
            progress: Progress = True) -> Any:
    """HDBSCAN clustering of points: cluster, membership probability and
    outlier score per point; ``summary`` as for dbscan()."""
    return _density(2, "_hdbscan", "HDBSCAN clusters", data, layer, min_points, 0.0, 5, output, output_layer,
                    overwrite, progress)


def optics(data: Data, *, layer: str | None = None, min_points: int = 5, distance: float = 0.0, xi: int = 5,
           output: PathLike | None = None, output_layer: str | None = None, overwrite: bool = False, progress: Progress = True) -> Any:
    """OPTICS ordering with reachability distances and clusters extracted at
    steepness `xi` percent; `distance` 0 makes every point a core point."""
    return _density(3, "_optics", "OPTICS clusters", data, layer, min_points, distance, xi, output, output_layer,
                    overwrite, progress)


STATISTICS_TYPES = {"max": 1, "min": 2, "sum": 3, "mean": 4, "first": 5, "last": 6, "median": 7}


def _measure(function: Callable[..., None], suffix: str, title: str, data: Data, layer: Optional[str],
             output: Optional[PathLike], output_layer: Optional[str], overwrite: bool, progress: Progress, *,
             weight_field: Optional[str] = None, self_weight_field: Optional[str] = None,
             case_field: Optional[str] = None, stats: Iterable[tuple[str, StatisticType]] = (),
             tolerance: float = 0.0, ellipse_size: int = 1, distance_method: DistanceMethod = "euclidean",
             orientation_only: bool = False) -> Any:
    pairs = []
    for pair in stats:
        if isinstance(pair, str) or not isinstance(pair, (tuple, list)) or len(pair) != 2:
            _validate.refuse(_core.message("EUa059", [], f"stats holds (field, type) pairs, not {pair!r}"))
        field, kind = _validate.field(pair[0], "a stats field"), str(pair[1])
        _validate.option("", "stat", f"{field}:{kind}")
        pairs.append((field, STATISTICS_TYPES[kind.lower()]))
    size = _validate.count("", "ellipse-size", ellipse_size)
    relative = _validate.number("", "tolerance", tolerance)
    names = [_validate.field(name, what) if name else "" for name, what in
             ((weight_field, "weight_field"), (self_weight_field, "self_weight_field"), (case_field, "case_field"))]
    info = _core.measuring_information(names[0], names[1], names[2], pairs, relative, size,
                                       distance_method_code(distance_method), bool(orientation_only))
    frame, _ = _run_layer(function, data, layer, output, output_layer, overwrite, suffix, progress, info)
    if _io.is_frame(frame):
        frame = frame.reset_index(drop=True)  # one row per case group, not per input feature
    # The map colours the groups (the case field comes back as "<field>_Group").
    return ResultFrame.wrap(frame, f"{case_field}_Group" if case_field else None, title)


def mean_center(data: Data, *, layer: str | None = None, weight_field: str | None = None,
                case_field: str | None = None, stats: Iterable[tuple[str, StatisticType]] = (),
                output: PathLike | None = None, output_layer: str | None = None, overwrite: bool = False, progress: Progress = True) -> Any:
    """Weighted mean centre per case group: a frame of points. `stats` is a
    list of (field, type) summaries per group, type max, min, sum, mean,
    first, last or median."""
    return _measure(_core.mean_center, "_mean_center", "Mean centre", data, layer, output, output_layer, overwrite,
                    progress, weight_field=weight_field, case_field=case_field, stats=stats)


def median_center(data: Data, *, layer: str | None = None, weight_field: str | None = None,
                  case_field: str | None = None, stats: Iterable[tuple[str, StatisticType]] = (),
                  tolerance: float = 0.0, output: PathLike | None = None, output_layer: str | None = None, overwrite: bool = False,
                  progress: Progress = True) -> Any:
    """Weighted median centre (least total distance) per case group;
    `tolerance` is the relative convergence tolerance (0: 1e-6)."""
    return _measure(_core.median_center, "_median_center", "Median centre", data, layer, output, output_layer,
                    overwrite, progress, weight_field=weight_field, case_field=case_field, stats=stats,
                    tolerance=tolerance)


def central_feature(data: Data, *, layer: str | None = None, weight_field: str | None = None,
                    self_weight_field: str | None = None, distance_method: DistanceMethod = "euclidean",
                    case_field: str | None = None, stats: Iterable[tuple[str, StatisticType]] = (),
                    output: PathLike | None = None, output_layer: str | None = None, overwrite: bool = False, progress: Progress = True) -> Any:
    """The feature with the least weighted distance to the others, per case
    group, in the input's geometry type."""
    return _measure(_core.central_feature, "_central_feature", "Central feature", data, layer, output, output_layer,
                    overwrite, progress, weight_field=weight_field, self_weight_field=self_weight_field,
                    distance_method=distance_method, case_field=case_field, stats=stats)


def standard_distance(data: Data, *, layer: str | None = None, weight_field: str | None = None,
                      ellipse_size: Literal[1, 2, 3] = 1, case_field: str | None = None,
                      stats: Iterable[tuple[str, StatisticType]] = (), output: PathLike | None = None, output_layer: str | None = None, overwrite: bool = False,
                      progress: Progress = True) -> Any:
    """Standard distance circle around the mean centre per case group,
    spanning `ellipse_size` (1, 2 or 3) standard deviations."""
    return _measure(_core.standard_distance, "_standard_distance", "Standard distance", data, layer, output,
                    output_layer, overwrite, progress, weight_field=weight_field, ellipse_size=ellipse_size,
                    case_field=case_field, stats=stats)


def ellipse(data: Data, *, layer: str | None = None, weight_field: str | None = None,
            ellipse_size: Literal[1, 2, 3] = 1, case_field: str | None = None,
            stats: Iterable[tuple[str, StatisticType]] = (), output: PathLike | None = None, output_layer: str | None = None, overwrite: bool = False,
            progress: Progress = True) -> Any:
    """Standard deviational ellipse (directional distribution) per case group."""
    return _measure(_core.ellipse, "_ellipse", "Standard deviational ellipse", data, layer, output, output_layer,
                    overwrite, progress, weight_field=weight_field, ellipse_size=ellipse_size,
                    case_field=case_field, stats=stats)


def directional_mean(data: Data, *, layer: str | None = None, orientation_only: bool = False,
                     case_field: str | None = None, stats: Iterable[tuple[str, StatisticType]] = (),
                     output: PathLike | None = None, output_layer: str | None = None, overwrite: bool = False, progress: Progress = True) -> Any:
    """Linear directional mean of line features per case group;
    `orientation_only` counts opposite directions as one orientation."""
    return _measure(_core.directional_mean, "_directional_mean", "Directional mean", data, layer, output,
                    output_layer, overwrite, progress, orientation_only=orientation_only, case_field=case_field,
                    stats=stats)


def _explanatory(explanatory: Names) -> list[str]:
    names = [explanatory] if isinstance(explanatory, str) else list(explanatory)
    if not names:
        _validate.refuse(_core.message("EUf001", [], "explanatory is empty"))
    return [_validate.field(name, "an explanatory field") for name in names]


def ols(data: Data, dependent: str, explanatory: Names, *, layer: str | None = None, conceptualization: Conceptualization | int = "inverse-distance",
        distance_band: float = -1.0, exponent: float = 1.0, k: int = 1, row_standardize: bool = False,
        distance_method: DistanceMethod = "euclidean", weights_file: PathLike | None = None, snap_tolerance: float = 0.0,
        memory_budget: float | None = None,
        moran: bool = True, output: PathLike | None = None, output_layer: str | None = None, overwrite: bool = False,
        progress: Progress = True) -> OlsResult:
    """Ordinary least squares of `dependent` on the `explanatory` fields (an
    intercept is added). Returns an OlsResult: the values of ``zostat ols
    --json`` and ``.frame``, the per-feature "Predicted", "Residual" and
    "StdResid". Weights keywords (as for moran()) set the residual Moran's
    I; ``moran=False`` skips it."""
    info = _weights("", locals())
    frame, values = _run_layer(_core.ols, data, layer, output, output_layer, overwrite, "_ols", progress,
                               _validate.field(dependent, "dependent"), _explanatory(explanatory), bool(moran), info,
                               same_rows=info.conceptualization != 8)
    return OlsResult(values, ResultFrame.wrap(frame, "StdResid", f"Standardized residuals of {dependent}"))


KERNELS = {"gaussian": 1, "bisquare": 2}
BANDWIDTH_TYPES = {"fixed": 1, "adaptive": 2}


def gwr(data: Data, dependent: str, explanatory: Names, *, layer: str | None = None,
        kernel: Literal["gaussian", "bisquare"] = "bisquare", bandwidth_type: Literal["fixed", "adaptive"] = "adaptive",
        bandwidth: float | None = None, distance_method: DistanceMethod = "euclidean",
        output: PathLike | None = None, output_layer: str | None = None, overwrite: bool = False, progress: Progress = True) -> GwrResult:
    """Geographically weighted regression. `bandwidth` None chooses it by
    golden-section search on AICc. Returns a GwrResult: the values of
    ``zostat gwr --json`` and ``.frame`` with the local coefficients,
    standard errors, "LocalR2", "Predicted", "Residual", "StdResid" and
    "CondNumber"."""
    _validate.option("gwr", "kernel", kernel)
    _validate.option("gwr", "bandwidth-type", bandwidth_type)
    # None asks for the search; a given bandwidth must be usable as it stands.
    width = -1.0 if bandwidth is None else _validate.number("gwr", "bandwidth", bandwidth)
    frame, values = _run_layer(_core.gwr, data, layer, output, output_layer, overwrite, "_gwr", progress,
                               _validate.field(dependent, "dependent"), _explanatory(explanatory), KERNELS[kernel],
                               BANDWIDTH_TYPES[bandwidth_type], width, distance_method_code(distance_method),
                               same_rows=True)
    return GwrResult(values, ResultFrame.wrap(frame, "LocalR2", f"Local R² of {dependent}"))


def weights_build(data: Data, id_field: str, output: PathLike, *, layer: str | None = None,
                  conceptualization: Conceptualization | int = "inverse-distance",
        distance_band: float = -1.0, exponent: float = 1.0, k: int = 1, row_standardize: bool = False,
        distance_method: DistanceMethod = "euclidean", weights_file: PathLike | None = None, snap_tolerance: float = 0.0,
        memory_budget: float | None = None,
                  text: bool = False, flag_matrix: PathLike | None = None, progress: Progress = True) -> str:
    """Writes a spatial weights file (.swmb, binary or `text`) for the
    features of `data`, numbered by the integer `id_field`; with k-nearest
    weights optionally the flag matrix too. Returns the output path."""
    info = _weights("", locals())
    with _validate.as_keywords("flag-matrix", "text", "conceptualization"):
        _core.check_weights_build(info, bool(text), flag_matrix is not None)
    flags = os.fspath(flag_matrix) if flag_matrix is not None else ""

    def run(path: str, name: str, report: Any) -> None:
        _core.weights_build(path, name, id_field, os.fspath(output), info, bool(text), flags, report)

    with _io.scratch() as folder, _io.input_layer(data, layer, folder) as (path, name):
        _call(run, path, name, progress=progress)
    return os.fspath(output)


def weights_to_table(weights: PathLike, *, text: bool = False, output: PathLike | None = None, output_layer: str | None = None, overwrite: bool = False,
                     progress: Progress = True) -> Any:
    """A weights file as a table of "UniqueID", "NeighborsID" and "Weight"
    rows (a DataFrame); with `output` also kept as a layer there."""
    layer = output_layer or os.path.splitext(os.path.basename(os.fspath(weights)))[0] or "weights"

    def run(out_path: str, report: Any) -> None:
        _core.weights_to_table(os.fspath(weights), out_path, layer, bool(overwrite), bool(text), report)

    with _io.scratch() as folder:
        out_path = os.fspath(output) if output is not None else os.path.join(folder, "weights.gpkg")
        _call(run, out_path, progress=progress)
        return _io.read_layer(out_path, layer)


def weights_dump(weights: PathLike, *, text: bool = False) -> str:
    """The library's diagnostic dump of a weights file, as a string."""
    with _library_errors():
        return _core.weights_dump(os.fspath(weights), bool(text))


def _frame_class() -> Any:
    base: Any = _io.gpd.GeoDataFrame if _io.gpd is not None else None
    if base is None:
        return None

    class ResultFrame(base):  # type: ignore[misc]  # GeoPandas has no type information
        """A GeoDataFrame of per-feature results whose plot() draws the
        analysis's map (see statisticsanalyst.plot_map)."""
        _metadata = list(base._metadata) + ["map_field", "map_title", "summary"]

        @classmethod
        def wrap(cls, frame: Any, map_field: Optional[str], map_title: str) -> Any:
            if not isinstance(frame, base):
                return _PlainFrame.wrap(frame, map_field, map_title)
            result = cls(frame)
            result.map_field, result.map_title = map_field, map_title
            return result

        def plot(self, field: Optional[str] = None, *, title: Optional[str] = None, **kwargs: Any) -> Any:
            """The analysis's map (or `field`'s); keywords as for plot_map."""
            from ._plot import plot_map
            if field is None:
                field, title = getattr(self, "map_field", None), title or getattr(self, "map_title", None)
            return plot_map(self, field, title=title, **kwargs)

    return ResultFrame


def _set_summary(frame: Any, summary: Mapping[str, Any]) -> None:
    frame.attrs["summary"] = summary
    if "summary" in getattr(type(frame), "_metadata", ()):
        frame.summary = summary


class _PlainFrame:
    @staticmethod
    def wrap(frame: Any, map_field: Optional[str], map_title: str) -> Any:
        frame.attrs.update(map_field=map_field, map_title=map_title)
        return frame


ResultFrame: Any = _frame_class() or _PlainFrame
