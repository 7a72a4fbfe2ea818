"""The analyses: each opens its input, runs one library call and wraps what
comes back. Two runners carry the shared road, so a new analysis is a
binding in core.cpp plus a few lines here:

* ``_statistic``: a global statistic, five numbers into a result class;
* ``_layer``: an analysis that writes a result layer, read back as a frame
  that knows which field its map shows.
"""
import contextlib
import os

from . import _core, _io
from ._errors import StatisticsAnalystError
from ._progress import reporter
from ._results import AnnResult, GeneralGResult, MoranResult
from ._weights import WEIGHTS_KEYWORDS, distance_method_code, patterns_information


@contextlib.contextmanager
def _library_errors():
    try:
        yield
    except _core.LibraryError as error:
        raise StatisticsAnalystError(str(error)) from None


def _call(function, *args, progress):
    with reporter(progress) as report, _library_errors():
        return function(*args, report)


def _weights(field, weights, **extra):
    unknown = set(weights) - set(WEIGHTS_KEYWORDS)
    if unknown:
        raise TypeError(f"unknown keyword argument(s): {', '.join(sorted(unknown))}")
    return patterns_information(field, **weights, **extra)


def _statistic(function, result_class, data, layer, info, progress):
    with _io.scratch() as folder, _io.input_layer(data, layer, folder) as (path, name):
        return result_class(*_call(function, path, name, info, progress=progress))


def _layer(function, data, layer, output, output_layer, overwrite, suffix, map_view, progress, *arguments):
    """Runs `function(path, layer, out_path, out_layer, overwrite, *arguments,
    progress)` and reads the result layer back."""
    with _io.scratch() as folder, _io.input_layer(data, layer, folder) as (path, name):
        out_path = os.fspath(output) if output is not None else os.path.join(folder, "result.gpkg")
        with _library_errors():
            out_layer = output_layer or _io.default_layer_name(data, layer, suffix)
        _call(function, path, name, out_path, out_layer, bool(overwrite), *arguments, progress=progress)
        frame = _io.read_layer(out_path, out_layer)
    if _io.is_frame(data) and _io.is_frame(frame):
        # The same geometries, in the caller's coordinate system.
        if data.crs is not None:
            frame = frame.set_crs(data.crs, allow_override=True)
        else:
            frame.crs = None
        if len(frame) == len(data) and getattr(arguments[0], "conceptualization", 0) != 8:
            frame.index = data.index  # rows keep the input's order unless a weights file reorders them
    return ResultFrame.wrap(frame, *map_view)


def moran(data, field, *, layer=None, progress=True, **weights):
    """Global Moran's I of `field`. `data` is a path (with `layer`) or a
    GeoDataFrame; weights as keywords named like zostat's options:
    ``conceptualization="k-nearest", k=8``, ``distance_band=``, ``exponent=``,
    ``row_standardize=True``, ``distance_method="manhattan"``, ``weights_file=``."""
    return _statistic(_core.moran, MoranResult, data, layer, _weights(field, weights), progress)


def general_g(data, field, *, layer=None, progress=True, **weights):
    """Getis-Ord General G of a non-negative `field`; keywords as for moran()."""
    return _statistic(_core.general_g, GeneralGResult, data, layer, _weights(field, weights), progress)


def ann(data, *, layer=None, area=0.0, distance_method="euclidean", width=None, progress=True):
    """Average nearest neighbour. `area` 0 takes the minimum-area rectangle
    around the features; `width` replaces the default width of degenerate
    layouts."""
    method = distance_method_code(distance_method)
    width = None if width is None else float(width)

    def run(path, name, report):
        return _core.ann(path, name, float(area), method, width, report)

    with _io.scratch() as folder, _io.input_layer(data, layer, folder) as (path, name):
        return AnnResult(*_call(run, path, name, progress=progress))


def hotspot(data, field, *, layer=None, self_weight_field=None, fdr=False, output=None, output_layer=None,
            overwrite=False, progress=True, **weights):
    """Hot spot analysis (Getis-Ord Gi*): a frame with "Gi_Zscore",
    "Gi_Pvalue" and the confidence bin "Gi_ConfInvl" (-3..3) per feature.
    With `output` the result layer is also kept in that datasource."""
    info = _weights(field, weights, self_weight_field=self_weight_field, fdr=fdr)
    return _layer(_core.hotspot, data, layer, output, output_layer, overwrite, "_hotspots",
                  ("Gi_ConfInvl", f"Hot spots of {field}"), progress, info)


def cluster_outlier(data, field, *, layer=None, fdr=False, output=None, output_layer=None, overwrite=False,
                    progress=True, **weights):
    """Cluster and outlier analysis (Anselin local Moran's I): "ALMI_MoranI",
    "ALMI_Zscore", "ALMI_Pvalue" and "ALMI_Type" (HH, LL, HL, LH or empty)."""
    info = _weights(field, weights, fdr=fdr)
    return _layer(_core.cluster_outlier, data, layer, output, output_layer, overwrite, "_clusters",
                  ("ALMI_Type", f"Clusters and outliers of {field}"), progress, info)


def weights_build(data, id_field, output, *, layer=None, text=False, flag_matrix=None, progress=True, **weights):
    """Writes a spatial weights file (.swmb, binary or `text`) for the
    features of `data`, numbered by the integer `id_field`; with k-nearest
    weights optionally the flag matrix too. Returns the output path."""
    info = _weights("", weights)
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
        _metadata = list(base._metadata) + ["map_field", "map_title"]

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


class _PlainFrame:
    @staticmethod
    def wrap(frame, map_field, map_title):
        frame.attrs.update(map_field=map_field, map_title=map_title)
        return frame


ResultFrame = _frame_class() or _PlainFrame
