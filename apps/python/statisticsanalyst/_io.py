"""Inputs (a path or a GeoDataFrame) and result layers (read back as frames)."""
from __future__ import annotations

import contextlib
import importlib
import os
import tempfile
from typing import Any, Iterator, Optional, TypeGuard

import pandas as pd

from . import _core, _validate
from ._types import Data, PathLike

gpd: Any
try:
    gpd = importlib.import_module("geopandas")
except ImportError:  # GeoPandas is optional: results then come as pandas DataFrames
    gpd = None


def is_frame(data: object) -> TypeGuard[Any]:
    """A GeoDataFrame (GeoPandas has no type information: Any to the checker)."""
    return gpd is not None and isinstance(data, gpd.GeoDataFrame)


@contextlib.contextmanager
def scratch() -> Iterator[str]:
    """A private temporary folder, removed on every exit (Ctrl-C included)."""
    with tempfile.TemporaryDirectory(prefix="statisticsanalyst-") as folder:
        yield folder


@contextlib.contextmanager
def input_layer(data: Data, layer: Optional[str], folder: str) -> Iterator[tuple[str, str]]:
    """(path, layer) the library can open: a path as given, or a GeoDataFrame
    written as a GeoPackage into the scratch folder."""
    if is_frame(data):
        missing = (data.geometry.isna() | data.geometry.is_empty).to_numpy().nonzero()[0]
        if len(missing):
            # Written out, the row would have this QlID: the library's own message for it.
            first = int(missing[0])
            _validate.refuse(_core.message("EUc002", [str(first + 1)], f"row {data.index[first]!r} of the GeoDataFrame"))
        path = os.path.join(folder, "input.gpkg")
        # An empty frame has no geometry kind to write; as points, every
        # analysis reports it as it reports an empty layer from a file.
        schema = None
        if len(data) == 0:
            schema = {"geometry": "Point", "properties": {c: "float" for c in data.columns if c != data.geometry.name}}
        data.to_file(path, layer="input", driver="GPKG", schema=schema)
        yield path, "input"
    else:
        yield _validate.path(data), layer or ""


def default_layer_name(data: Data, layer: Optional[str], suffix: str) -> str:
    if is_frame(data):
        return "result" + suffix
    if layer:
        return layer + suffix
    names = _core.layer_names(os.fspath(data))
    return (names[0] if names else "result") + suffix


def read_layer(path: PathLike, layer: str) -> Any:
    """A result layer as a GeoDataFrame, or a DataFrame without GeoPandas."""
    if gpd is not None:
        frame = gpd.read_file(path, layer=layer)
        if "geometry" not in frame or frame.geometry.isna().all():
            return pd.DataFrame(frame.drop(columns="geometry", errors="ignore"))
        return frame
    frame = pd.DataFrame(_core.read_attributes(os.fspath(path), layer))
    return frame.drop(columns=["QlID"], errors="ignore")
