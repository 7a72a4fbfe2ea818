"""Maps of result layers through matplotlib: the same colour schemes, legend,
title, scale bar and north arrow as ``zostat map``; and the incremental
analysis's chart in the colours of ``zostat incremental --chart``."""
from __future__ import annotations

import math
from typing import TYPE_CHECKING, Any, Optional

import pandas as pd

if TYPE_CHECKING:
    from ._results import IncrementalResult

# Where a figure may be saved: a path or a file object, as matplotlib takes it.
FigureFile = Any

# Confidence bins of the hot spot analysis: blues for cold, reds for hot.
HOTSPOT_BINS = [
    (-3, "Cold spot - 99% confidence", "#2166ac"),
    (-2, "Cold spot - 95% confidence", "#67a9cf"),
    (-1, "Cold spot - 90% confidence", "#d1e5f0"),
    (0, "Not significant", "#e0e0e0"),
    (1, "Hot spot - 90% confidence", "#fddbc7"),
    (2, "Hot spot - 95% confidence", "#ef8a62"),
    (3, "Hot spot - 99% confidence", "#b2182b"),
]
CLUSTER_TYPES = [
    ("HH", "High-high cluster", "#d7191c"),
    ("LL", "Low-low cluster", "#2c7bb6"),
    ("HL", "High-low outlier", "#fdae61"),
    ("LH", "Low-high outlier", "#abd9e9"),
    ("", "Not significant", "#d9d9d9"),
]
CATEGORICAL = ["#1f77b4", "#ff7f0e", "#2ca02c", "#d62728", "#9467bd", "#8c564b", "#e377c2", "#bcbd22",
               "#17becf", "#aec7e8", "#ffbb78", "#98df8a"]
NOISE = "#bdbdbd"
RAMP = ["#440154", "#3b528b", "#21918c", "#5ec962", "#fde725"]
MAX_LEGEND_CLASSES = 12


def classes(field: str, values: Any) -> Optional[list[tuple[Any, str, str]]]:
    """[(value, label, colour)] for a classified field, or None for a
    continuous one (numbers that are not bins, types or cluster ids)."""
    name = field.lower()
    if name.endswith("_confinvl"):
        return HOTSPOT_BINS
    if name == "almi_type":
        return CLUSTER_TYPES
    present = sorted(v for v in pd.unique(values) if not _missing(v))
    numeric = pd.api.types.is_numeric_dtype(values)
    if name.endswith("cluster_id") or not numeric:
        ordered = [v for v in present if v != -1]
        entries = [(v, str(v), CATEGORICAL[i % len(CATEGORICAL)]) for i, v in enumerate(ordered)]
        if -1 in present:
            entries.append((-1, "Noise", NOISE))
        return entries
    return None


def _missing(value: object) -> bool:
    return value is None or (isinstance(value, float) and math.isnan(value))


def _nice_length(span: float) -> float:
    """A round bar length near a fifth of the map's width."""
    target = span / 5.0
    power = 10 ** math.floor(math.log10(target))
    return float(max(m * power for m in (1, 2, 5) if m * power <= target))


def _scale_bar(ax: Any, frame: Any) -> None:
    xmin, ymin, xmax, ymax = frame.total_bounds
    length = _nice_length(xmax - xmin)
    unit = frame.crs.axis_info[0].unit_name if frame.crs.axis_info else "metre"
    metres = unit in ("metre", "meter")
    label = (f"{length / 1000:g} km" if metres and length >= 1000 else f"{length:g} {'m' if metres else unit}")
    x0, y0 = xmin, ymin - 0.06 * (ymax - ymin)
    ax.plot([x0, x0 + length], [y0, y0], color="black", linewidth=3, solid_capstyle="butt")
    ax.text(x0 + length / 2, y0 + 0.015 * (ymax - ymin), label, ha="center", va="bottom", fontsize=8)
    ax.annotate("N", xy=(0.96, 0.97), xytext=(0.96, 0.87), xycoords="axes fraction", ha="center", va="center",
                fontsize=10, fontweight="bold", arrowprops=dict(facecolor="black", width=3, headwidth=9))


def plot_map(frame: Any, field: Optional[str], *, ax: Any = None, title: Optional[str] = None,
             file: FigureFile = None) -> Any:
    """Draws `field` of a result frame: classes with a legend, or a colour
    ramp with a colour bar; a scale bar and north arrow for projected data.
    Returns the Axes; `file` also saves the figure (PNG, SVG, PDF...)."""
    import matplotlib.pyplot as plt
    from matplotlib.colors import LinearSegmentedColormap
    from matplotlib.lines import Line2D
    from matplotlib.patches import Patch

    import geopandas as gpd

    if field is None or field not in frame:
        raise ValueError(f"the frame has no field {field!r} to map")
    frame = gpd.GeoDataFrame(frame)  # GeoPandas' own plot, not a result frame's map
    if ax is None:
        _, ax = plt.subplots(figsize=(8, 6.5))
    points = frame.geom_type.isin(["Point", "MultiPoint"]).all()
    lines = frame.geom_type.isin(["LineString", "MultiLineString"]).all()
    style = dict(edgecolor="#555555", linewidth=0.4)
    if points:
        style.update(markersize=30)
    entries = classes(field, frame[field])
    if entries is None:
        cmap = LinearSegmentedColormap.from_list("statisticsanalyst", RAMP)
        frame.plot(column=field, ax=ax, cmap=cmap, legend=True, legend_kwds={"shrink": 0.6, "label": field},
                   **({} if lines else style))
    else:
        values = frame[field].where(frame[field].notna(), "")
        handles: list[Any] = []
        for value, label, colour in entries:
            subset = frame[values == value]
            if len(subset):
                if lines:
                    subset.plot(ax=ax, color=colour, linewidth=1.5)
                else:
                    subset.plot(ax=ax, facecolor=colour, **style)
            if len(handles) < MAX_LEGEND_CLASSES:
                handles.append(Line2D([], [], marker="o", linestyle="", markerfacecolor=colour,
                                      markeredgecolor="#555555", markersize=8, label=label) if points
                               else Patch(facecolor=colour, edgecolor="#555555", label=label))
        ax.legend(handles=handles, loc="upper left", bbox_to_anchor=(1.01, 1.0), fontsize=8, frameon=False,
                  title=field, title_fontsize=9)
    if frame.crs is not None and frame.crs.is_projected:
        _scale_bar(ax, frame)
    ax.set_title(title or f"{field}", fontsize=12)
    ax.set_aspect("equal")
    ax.set_xticks([])
    ax.set_yticks([])
    for spine in ax.spines.values():
        spine.set_visible(False)
    if file is not None:
        ax.figure.savefig(file, dpi=150, bbox_inches="tight")
    return ax


# The chart of the incremental analysis, as zostat draws it.
SERIES = "#1f77b4"
PEAKS = [(1, "first peak", "#ff7f0e"), (2, "highest peak", "#d62728"), (3, "first and highest peak", "#9467bd")]


def plot_incremental(result: IncrementalResult, *, ax: Any = None, title: Optional[str] = None,
                     file: FigureFile = None) -> Any:
    """The z-scores of an IncrementalResult against distance, from its table
    of bands: a line with a marker per band (broken where a band was not
    computed), the first peak orange, the highest red, a band that is both
    purple. Returns the Axes; `file` also saves the figure."""
    import matplotlib.pyplot as plt

    if ax is None:
        _, ax = plt.subplots(figsize=(8, 5))
    table = result.frame
    valid = table["Valid"] == 1
    z = table["ZScore"].where(valid)
    ax.plot(table["Distance"], z, color=SERIES, marker="o", markersize=5, linewidth=1.8,
            label="z-score of Moran's I")
    if not valid.all():
        floor = z.min() if valid.any() else 0.0
        ax.plot(table["Distance"][~valid], [floor] * int((~valid).sum()), linestyle="", marker="o",
                markerfacecolor="white", markeredgecolor="#8c8c8c", label="not computed")
    for code, label, colour in PEAKS:
        for distance, value in zip(table["Distance"][table["Peak"] == code], z[table["Peak"] == code]):
            ax.plot([distance], [value], linestyle="", marker="o", markersize=10, markerfacecolor=colour,
                    markeredgecolor="#222222", label=label)
            ax.annotate(f"{distance:.4g}", (distance, value), textcoords="offset points", xytext=(0, 9),
                        ha="center", fontsize=8, fontweight="bold")
    ax.set_xlabel("Distance")
    ax.set_ylabel("z-score of Moran's I")
    ax.set_title(title or f"Incremental spatial autocorrelation of {result.field}")
    ax.grid(True, color="#e3e3e3")
    ax.legend(loc="upper left", bbox_to_anchor=(1.01, 1.0), fontsize=8, frameon=False)
    if file is not None:
        ax.figure.savefig(file, dpi=150, bbox_inches="tight")
    return ax


def plot_interaction(matrix: Any, *, ax: Any = None, title: Optional[str] = None, file: FigureFile = None) -> Any:
    """The lower triangle of a geographical detector's interaction matrix as
    a heat map on the colour ramp of the maps, from 0 to 1 since q is a share
    of the variance, each cell labelled with its q. Returns the Axes; `file`
    also saves the figure."""
    import matplotlib.pyplot as plt
    import numpy as np
    from matplotlib.colors import LinearSegmentedColormap

    k = len(matrix)
    if ax is None:
        _, ax = plt.subplots(figsize=(1.2 * k + 3, 1.0 * k + 2))
    lower = matrix.to_numpy(dtype=float).copy()
    lower[np.triu_indices(k, 1)] = np.nan  # the matrix is symmetric: each pair once
    cmap = LinearSegmentedColormap.from_list("statisticsanalyst", RAMP)
    image = ax.imshow(lower, cmap=cmap, vmin=0.0, vmax=1.0)
    for (a, b), q in np.ndenumerate(lower):
        if not np.isnan(q):
            # Dark text on the light end of the ramp, light text on the dark end.
            ax.text(b, a, f"{q:.3f}", ha="center", va="center", fontsize=9,
                    color="black" if q > 0.6 else "white")
    ax.set_xticks(range(k), list(matrix.columns), rotation=45, ha="right")
    ax.set_yticks(range(k), list(matrix.index))
    ax.figure.colorbar(image, ax=ax, shrink=0.8, label="q")
    ax.set_title(title or "Interaction detector: q of each pair of factors")
    for spine in ax.spines.values():
        spine.set_visible(False)
    if file is not None:
        ax.figure.savefig(file, dpi=150, bbox_inches="tight")
    return ax
