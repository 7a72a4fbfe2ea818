"""Inputs (a path or a GeoDataFrame) and result layers (read back as frames)."""
import contextlib
import os
import tempfile

import pandas as pd

from . import _core

try:
    import geopandas as gpd
except ImportError:  # GeoPandas is optional: results then come as pandas DataFrames
    gpd = None


def is_frame(data):
    return gpd is not None and isinstance(data, gpd.GeoDataFrame)


@contextlib.contextmanager
def scratch():
    """A private temporary folder, removed on every exit (Ctrl-C included)."""
    with tempfile.TemporaryDirectory(prefix="statisticsanalyst-") as folder:
        yield folder


@contextlib.contextmanager
def input_layer(data, layer, folder):
    """(path, layer) the library can open: a path as given, or a GeoDataFrame
    written as a GeoPackage into the scratch folder."""
    if is_frame(data):
        if data.geometry.isna().any() or data.geometry.is_empty.any():
            raise ValueError("every feature of the GeoDataFrame needs a geometry")
        path = os.path.join(folder, "input.gpkg")
        data.to_file(path, layer="input", driver="GPKG")
        yield path, "input"
    elif isinstance(data, (str, os.PathLike)):
        yield os.fspath(data), layer or ""
    else:
        raise TypeError("data must be a path or a GeoDataFrame, not " + type(data).__name__)


def default_layer_name(data, layer, suffix):
    if is_frame(data):
        return "result" + suffix
    if layer:
        return layer + suffix
    names = _core.layer_names(os.fspath(data))
    return (names[0] if names else "result") + suffix


def read_layer(path, layer):
    """A result layer as a GeoDataFrame, or a DataFrame without GeoPandas."""
    if gpd is not None:
        frame = gpd.read_file(path, layer=layer)
        if "geometry" not in frame or frame.geometry.isna().all():
            return pd.DataFrame(frame.drop(columns="geometry", errors="ignore"))
        return frame
    frame = pd.DataFrame(_core.read_attributes(path, layer))
    return frame.drop(columns=["QlID"], errors="ignore")
