"""The analyses: each opens its input, runs one library call and wraps what
comes back. Two runners carry the shared road, so a new analysis is a
binding in core.cpp plus a few lines here:

* ``_statistic``: a global statistic, five numbers into a result class;
* ``_layer``: an analysis that writes a result layer, read back as a frame
  that knows which field its map shows.
"""
import contextlib
import os

from . import _core, _io, _validate
from ._errors import StatisticsAnalystError, StatisticsAnalystUsageError
from ._progress import reporter
from ._results import (AnnResult, GeneralGResult, GeoDetectorResult, GwrResult, IncrementalResult, MoranResult,
                       OlsResult)
from ._weights import WEIGHTS_KEYWORDS, distance_method_code, patterns_information


@contextlib.contextmanager
def _library_errors():
    try:
        yield
    except _core.LibraryError as error:
        raise StatisticsAnalystError(str(error)) from None
    except _core.UsageError as error:  # refused as zostat refuses it (an output of no known format)
        raise StatisticsAnalystUsageError(str(error)) from None


def _call(function, *args, progress):
    with reporter(progress) as report, _library_errors():
        return function(*args, report)


def _weights(field, weights, **extra):
    unknown = set(weights) - set(WEIGHTS_KEYWORDS)
    if unknown:
        _validate.refuse(_core.message("EUa052", [], f"unknown keyword argument(s): {', '.join(sorted(unknown))}"))
    return patterns_information(field, **weights, **extra)


def _statistic(function, result_class, data, layer, info, progress):
    with _io.scratch() as folder, _io.input_layer(data, layer, folder) as (path, name):
        return result_class(*_call(function, path, name, info, progress=progress))


def _run_layer(function, data, layer, output, output_layer, overwrite, suffix, progress, *arguments,
               same_rows=False):
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


def _layer(function, data, layer, output, output_layer, overwrite, suffix, map_view, progress, info):
    # Rows keep the input's order unless a weights file reorders them.
    frame, _ = _run_layer(function, data, layer, output, output_layer, overwrite, suffix, progress, info,
                          same_rows=info.conceptualization != 8)
    return ResultFrame.wrap(frame, *map_view)


def moran(data, field, *, layer=None, permutations=0, seed=0, progress=True, **weights):
    """Global Moran's I of `field`. `data` is a path (with `layer`) or a
    GeoDataFrame; weights as keywords named like zostat's options:
    ``conceptualization="k-nearest", k=8``, ``distance_band=``, ``exponent=``,
    ``row_standardize=True``, ``distance_method="manhattan"``, ``weights_file=``.
    ``permutations=999`` adds a permutation test under `seed` (the same bits
    as zostat's ``--permutations 999 --seed S``)."""
    info = _weights(field, weights, permutations=permutations, seed=seed)
    return _statistic(_core.moran, MoranResult, data, layer, info, progress)


def general_g(data, field, *, layer=None, permutations=0, seed=0, progress=True, **weights):
    """Getis-Ord General G of a non-negative `field`; keywords as for moran()."""
    info = _weights(field, weights, permutations=permutations, seed=seed)
    return _statistic(_core.general_g, GeneralGResult, data, layer, info, progress)


def incremental_spatial_autocorrelation(data, field, *, layer=None, begin_distance=None, increment=None, bands=10,
                                        row_standardize=False, distance_method="euclidean", output=None,
                                        output_layer=None, overwrite=False, progress=True):
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
    bands = _validate.count("incremental", "bands", bands)
    method = distance_method_code(distance_method)
    frame, values = _run_layer(_core.incremental, data, layer, output, output_layer, overwrite, "_incremental",
                               progress, field, begin, step, bands, bool(row_standardize), method)
    return IncrementalResult(values, frame, field)


def _names(value, what):
    """Field or detector names: one string (comma-separated, as zostat takes
    them) or a sequence of strings."""
    if isinstance(value, str):
        return [name.strip() for name in value.split(",")]
    return [_validate.field(name, what) for name in value]


def geodetector(data, dependent, factors, *, layer=None, categorical=(), discretize="quantile", classes=5,
                alpha=0.05, detectors=("factor", "interaction", "risk", "ecological"), output=None,
                output_layer=None, overwrite=False, progress=True):
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
    factors = _names(factors, "a factor")
    if not factors or not all(factors):
        _validate.refuse(_core.message("EUa059", [], "factors needs at least one name, and no empty names"))
    categorical = _names(categorical, "a categorical field") if categorical else []
    _validate.option(command, "discretize", discretize)
    classes = _validate.count(command, "classes", classes)
    alpha = _validate.number(command, "alpha", alpha)
    with _validate.as_keywords("detectors"):
        detector_set = _core.detector_set(_names(detectors, "a detector"))
    arguments = (dependent, factors, categorical, discretize, classes, alpha, detector_set)
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
    return GeoDetectorResult(values, _core.geodetector_columns())


def ann(data, *, layer=None, area=0.0, distance_method="euclidean", width=None, progress=True):
    """Average nearest neighbour. `area` 0 takes the minimum-area rectangle
    around the features; `width` replaces the default width of degenerate
    layouts."""
    method = distance_method_code(distance_method)
    area = 0.0 if area == 0 else _validate.number("ann", "area", area)  # 0: the minimum-area rectangle
    width = None if width is None else _validate.number("ann", "width", width)

    def run(path, name, report):
        return _core.ann(path, name, area, method, width, report)

    with _io.scratch() as folder, _io.input_layer(data, layer, folder) as (path, name):
        return AnnResult(*_call(run, path, name, progress=progress))


def hotspot(data, field, *, layer=None, self_weight_field=None, fdr=False, permutations=0, seed=0, output=None,
            output_layer=None, overwrite=False, progress=True, **weights):
    """Hot spot analysis (Getis-Ord Gi*): a frame with "Gi_Zscore",
    "Gi_Pvalue" and the confidence bin "Gi_ConfInvl" (-3..3) per feature.
    With ``permutations=999`` also "Gi_PseudoP" (conditional randomization
    under `seed`), which then decides the bins. With `output` the result
    layer is also kept in that datasource."""
    info = _weights(field, weights, self_weight_field=self_weight_field, fdr=fdr, permutations=permutations,
                    seed=seed)
    return _layer(_core.hotspot, data, layer, output, output_layer, overwrite, "_hotspots",
                  ("Gi_ConfInvl", f"Hot spots of {field}"), progress, info)


def cluster_outlier(data, field, *, layer=None, fdr=False, permutations=0, seed=0, output=None, output_layer=None,
                    overwrite=False, progress=True, **weights):
    """Cluster and outlier analysis (Anselin local Moran's I): "ALMI_MoranI",
    "ALMI_Zscore", "ALMI_Pvalue" and "ALMI_Type" (HH, LL, HL, LH or empty).
    With ``permutations=999`` also "ALMI_PseudoP", which then decides the
    types."""
    info = _weights(field, weights, fdr=fdr, permutations=permutations, seed=seed)
    return _layer(_core.cluster_outlier, data, layer, output, output_layer, overwrite, "_clusters",
                  ("ALMI_Type", f"Clusters and outliers of {field}"), progress, info)


def optimized_hotspot(data, field=None, *, layer=None, aggregation="grid", cell_size=None, tolerance=None,
                      polygons=None, polygons_layer=None, distance_method="euclidean", permutations=0, seed=0,
                      output=None, output_layer=None, overwrite=False, progress=True):
    """Optimized hot spot analysis: Gi* ("Gi_Zscore", "Gi_Pvalue",
    FDR-corrected "Gi_ConfInvl") over a distance band chosen from the data.
    Without `field` the points are incidents, counted first into "Count" per
    grid cell (`cell_size`), integrated point (`tolerance`) or polygon of
    `polygons` (a path or a GeoDataFrame); unset sizes take defaults from the
    incidents' spacing. The frame's ``summary`` reports every choice, under
    the keys of ``zostat optimized-hotspot --json``. ``permutations=`` and
    ``seed=`` add "Gi_PseudoP", as for hotspot()."""
    command = "optimized-hotspot"
    field = "" if field is None else _validate.field(field)
    _validate.option(command, "aggregation", aggregation)
    cell_size = None if cell_size is None else _validate.number(command, "cell-size", cell_size)
    tolerance = None if tolerance is None else _validate.number(command, "tolerance", tolerance)
    method = distance_method_code(distance_method)
    test = patterns_information(permutations=permutations, seed=seed)
    with _io.scratch() as folder, contextlib.ExitStack() as stack:
        polygons_path, polygons_name = "", ""
        if polygons is not None:
            polygons_path, polygons_name = stack.enter_context(_io.input_layer(polygons, polygons_layer, folder))
        frame, report = _run_layer(_core.optimized_hotspot, data, layer, output, output_layer, overwrite,
                                   "_optimized_hotspots", progress, field, aggregation, cell_size, tolerance,
                                   os.fspath(polygons_path), polygons_name, method, test, same_rows=bool(field))
    result = ResultFrame.wrap(frame, "Gi_ConfInvl", f"Optimized hot spots of {field or 'incidents'}")
    _set_summary(result, report)
    return result


def _density(method, suffix, title, data, layer, min_points, distance, xi, output, output_layer, overwrite,
             progress):
    command = suffix[1:]  # "dbscan", "hdbscan", "optics"
    min_points = _validate.count(command, "min-points", min_points)
    distance = _validate.number(command, "distance", distance)
    xi = _validate.count(command, "xi", xi)
    frame, (clusters, noise, used) = _run_layer(_core.density, data, layer, output, output_layer, overwrite, suffix,
                                                progress, method, min_points, distance, xi, same_rows=True)
    result = ResultFrame.wrap(frame, "Cluster_ID", title)
    _set_summary(result, dict(clusters=clusters, noise=noise, distance=used))
    return result


def dbscan(data, *, layer=None, min_points=5, distance=0.0, output=None, output_layer=None, overwrite=False,
           progress=True):
    """DBSCAN clustering of points: "Cluster_ID" per point (-1 noise).
    `distance` 0 takes the median distance to the (min_points - 1)-th
    nearest neighbour. The frame's ``summary`` holds clusters, noise and the
    distance used."""
    return _density(1, "_dbscan", "DBSCAN clusters", data, layer, min_points, distance, 5, output, output_layer,
                    overwrite, progress)


def hdbscan(data, *, layer=None, min_points=5, output=None, output_layer=None, overwrite=False, progress=True):
    """HDBSCAN clustering of points: cluster, membership probability and
    outlier score per point; ``summary`` as for dbscan()."""
    return _density(2, "_hdbscan", "HDBSCAN clusters", data, layer, min_points, 0.0, 5, output, output_layer,
                    overwrite, progress)


def optics(data, *, layer=None, min_points=5, distance=0.0, xi=5, output=None, output_layer=None, overwrite=False,
           progress=True):
    """OPTICS ordering with reachability distances and clusters extracted at
    steepness `xi` percent; `distance` 0 makes every point a core point."""
    return _density(3, "_optics", "OPTICS clusters", data, layer, min_points, distance, xi, output, output_layer,
                    overwrite, progress)


STATISTICS_TYPES = {"max": 1, "min": 2, "sum": 3, "mean": 4, "first": 5, "last": 6, "median": 7}


def _measure(function, suffix, title, data, layer, output, output_layer, overwrite, progress, *, weight_field=None,
             self_weight_field=None, case_field=None, stats=(), tolerance=0.0, ellipse_size=1,
             distance_method="euclidean", orientation_only=False):
    pairs = []
    for pair in stats:
        if isinstance(pair, str) or not isinstance(pair, (tuple, list)) or len(pair) != 2:
            _validate.refuse(_core.message("EUa059", [], f"stats holds (field, type) pairs, not {pair!r}"))
        field, kind = _validate.field(pair[0], "a stats field"), str(pair[1])
        _validate.option("", "stat", f"{field}:{kind}")
        pairs.append((field, STATISTICS_TYPES[kind.lower()]))
    ellipse_size = _validate.count("", "ellipse-size", ellipse_size)
    tolerance = _validate.number("", "tolerance", tolerance)
    names = [_validate.field(name, what) if name else "" for name, what in
             ((weight_field, "weight_field"), (self_weight_field, "self_weight_field"), (case_field, "case_field"))]
    info = _core.measuring_information(*names, pairs, tolerance, ellipse_size, distance_method_code(distance_method),
                                       bool(orientation_only))
    frame, _ = _run_layer(function, data, layer, output, output_layer, overwrite, suffix, progress, info)
    if _io.is_frame(frame):
        frame = frame.reset_index(drop=True)  # one row per case group, not per input feature
    # The map colours the groups (the case field comes back as "<field>_Group").
    return ResultFrame.wrap(frame, f"{case_field}_Group" if case_field else None, title)


def mean_center(data, *, layer=None, weight_field=None, case_field=None, stats=(), output=None, output_layer=None,
                overwrite=False, progress=True):
    """Weighted mean centre per case group: a frame of points. `stats` is a
    list of (field, type) summaries per group, type max, min, sum, mean,
    first, last or median."""
    return _measure(_core.mean_center, "_mean_center", "Mean centre", data, layer, output, output_layer, overwrite,
                    progress, weight_field=weight_field, case_field=case_field, stats=stats)


def median_center(data, *, layer=None, weight_field=None, case_field=None, stats=(), tolerance=0.0, output=None,
                  output_layer=None, overwrite=False, progress=True):
    """Weighted median centre (least total distance) per case group;
    `tolerance` is the relative convergence tolerance (0: 1e-6)."""
    return _measure(_core.median_center, "_median_center", "Median centre", data, layer, output, output_layer,
                    overwrite, progress, weight_field=weight_field, case_field=case_field, stats=stats,
                    tolerance=tolerance)


def central_feature(data, *, layer=None, weight_field=None, self_weight_field=None, distance_method="euclidean",
                    case_field=None, stats=(), output=None, output_layer=None, overwrite=False, progress=True):
    """The feature with the least weighted distance to the others, per case
    group, in the input's geometry type."""
    return _measure(_core.central_feature, "_central_feature", "Central feature", data, layer, output, output_layer,
                    overwrite, progress, weight_field=weight_field, self_weight_field=self_weight_field,
                    distance_method=distance_method, case_field=case_field, stats=stats)


def standard_distance(data, *, layer=None, weight_field=None, ellipse_size=1, case_field=None, stats=(),
                      output=None, output_layer=None, overwrite=False, progress=True):
    """Standard distance circle around the mean centre per case group,
    spanning `ellipse_size` (1, 2 or 3) standard deviations."""
    return _measure(_core.standard_distance, "_standard_distance", "Standard distance", data, layer, output,
                    output_layer, overwrite, progress, weight_field=weight_field, ellipse_size=ellipse_size,
                    case_field=case_field, stats=stats)


def ellipse(data, *, layer=None, weight_field=None, ellipse_size=1, case_field=None, stats=(), output=None,
            output_layer=None, overwrite=False, progress=True):
    """Standard deviational ellipse (directional distribution) per case group."""
    return _measure(_core.ellipse, "_ellipse", "Standard deviational ellipse", data, layer, output, output_layer,
                    overwrite, progress, weight_field=weight_field, ellipse_size=ellipse_size,
                    case_field=case_field, stats=stats)


def directional_mean(data, *, layer=None, orientation_only=False, case_field=None, stats=(), output=None,
                     output_layer=None, overwrite=False, progress=True):
    """Linear directional mean of line features per case group;
    `orientation_only` counts opposite directions as one orientation."""
    return _measure(_core.directional_mean, "_directional_mean", "Directional mean", data, layer, output,
                    output_layer, overwrite, progress, orientation_only=orientation_only, case_field=case_field,
                    stats=stats)


def _explanatory(explanatory):
    names = [explanatory] if isinstance(explanatory, str) else list(explanatory)
    if not names:
        _validate.refuse(_core.message("EUf001", [], "explanatory is empty"))
    return [_validate.field(name, "an explanatory field") for name in names]


def ols(data, dependent, explanatory, *, layer=None, moran=True, output=None, output_layer=None, overwrite=False,
        progress=True, **weights):
    """Ordinary least squares of `dependent` on the `explanatory` fields (an
    intercept is added). Returns an OlsResult: the values of ``zostat ols
    --json`` and ``.frame``, the per-feature "Predicted", "Residual" and
    "StdResid". Weights keywords (as for moran()) set the residual Moran's
    I; ``moran=False`` skips it."""
    info = _weights("", weights)
    frame, values = _run_layer(_core.ols, data, layer, output, output_layer, overwrite, "_ols", progress,
                               _validate.field(dependent, "dependent"), _explanatory(explanatory), bool(moran), info,
                               same_rows=info.conceptualization != 8)
    return OlsResult(values, ResultFrame.wrap(frame, "StdResid", f"Standardized residuals of {dependent}"))


KERNELS = {"gaussian": 1, "bisquare": 2}
BANDWIDTH_TYPES = {"fixed": 1, "adaptive": 2}


def gwr(data, dependent, explanatory, *, layer=None, kernel="bisquare", bandwidth_type="adaptive", bandwidth=None,
        distance_method="euclidean", output=None, output_layer=None, overwrite=False, progress=True):
    """Geographically weighted regression. `bandwidth` None chooses it by
    golden-section search on AICc. Returns a GwrResult: the values of
    ``zostat gwr --json`` and ``.frame`` with the local coefficients,
    standard errors, "LocalR2", "Predicted", "Residual", "StdResid" and
    "CondNumber"."""
    kernel = _validate.option("gwr", "kernel", kernel)
    bandwidth_type = _validate.option("gwr", "bandwidth-type", bandwidth_type)
    # None asks for the search; a given bandwidth must be usable as it stands.
    bandwidth = -1.0 if bandwidth is None else _validate.number("gwr", "bandwidth", bandwidth)
    frame, values = _run_layer(_core.gwr, data, layer, output, output_layer, overwrite, "_gwr", progress,
                               _validate.field(dependent, "dependent"), _explanatory(explanatory), KERNELS[kernel],
                               BANDWIDTH_TYPES[bandwidth_type], bandwidth, distance_method_code(distance_method),
                               same_rows=True)
    return GwrResult(values, ResultFrame.wrap(frame, "LocalR2", f"Local R² of {dependent}"))


def weights_build(data, id_field, output, *, layer=None, text=False, flag_matrix=None, progress=True, **weights):
    """Writes a spatial weights file (.swmb, binary or `text`) for the
    features of `data`, numbered by the integer `id_field`; with k-nearest
    weights optionally the flag matrix too. Returns the output path."""
    info = _weights("", weights)
    with _validate.as_keywords("flag-matrix", "text", "conceptualization"):
        _core.check_weights_build(info, bool(text), flag_matrix is not None)
    flags = os.fspath(flag_matrix) if flag_matrix is not None else ""

    def run(path, name, report):
        _core.weights_build(path, name, id_field, os.fspath(output), info, bool(text), flags, report)

    with _io.scratch() as folder, _io.input_layer(data, layer, folder) as (path, name):
        _call(run, path, name, progress=progress)
    return os.fspath(output)


def weights_to_table(weights, *, text=False, output=None, output_layer=None, overwrite=False, progress=True):
    """A weights file as a table of "UniqueID", "NeighborsID" and "Weight"
    rows (a DataFrame); with `output` also kept as a layer there."""
    layer = output_layer or os.path.splitext(os.path.basename(os.fspath(weights)))[0] or "weights"

    def run(out_path, report):
        _core.weights_to_table(os.fspath(weights), out_path, layer, bool(overwrite), bool(text), report)

    with _io.scratch() as folder:
        out_path = os.fspath(output) if output is not None else os.path.join(folder, "weights.gpkg")
        _call(run, out_path, progress=progress)
        return _io.read_layer(out_path, layer)


def weights_dump(weights, *, text=False):
    """The library's diagnostic dump of a weights file, as a string."""
    with _library_errors():
        return _core.weights_dump(os.fspath(weights), bool(text))


def _frame_class():
    base = _io.gpd.GeoDataFrame if _io.gpd is not None else None
    if base is None:
        return None

    class ResultFrame(base):
        """A GeoDataFrame of per-feature results whose plot() draws the
        analysis's map (see statisticsanalyst.plot_map)."""
        _metadata = list(base._metadata) + ["map_field", "map_title", "summary"]

        @classmethod
        def wrap(cls, frame, map_field, map_title):
            if not isinstance(frame, base):
                return _PlainFrame.wrap(frame, map_field, map_title)
            result = cls(frame)
            result.map_field, result.map_title = map_field, map_title
            return result

        def plot(self, field=None, *, title=None, **kwargs):
            """The analysis's map (or `field`'s); keywords as for plot_map."""
            from ._plot import plot_map
            if field is None:
                field, title = getattr(self, "map_field", None), title or getattr(self, "map_title", None)
            return plot_map(self, field, title=title, **kwargs)

    return ResultFrame


def _set_summary(frame, summary):
    frame.attrs["summary"] = summary
    if "summary" in getattr(type(frame), "_metadata", ()):
        frame.summary = summary


class _PlainFrame:
    @staticmethod
    def wrap(frame, map_field, map_title):
        frame.attrs.update(map_field=map_field, map_title=map_title)
        return frame


ResultFrame = _frame_class() or _PlainFrame
