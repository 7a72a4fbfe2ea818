"""Weights keyword arguments, named like zostat's weights options."""
from . import _core

CONCEPTUALIZATIONS = {
    "inverse-distance": 1,
    "inverse-distance-squared": 2,
    "fixed-distance-band": 3,
    "zone-of-indifference": 4,
    "contiguity-edges": 5,
    "contiguity-edges-corners": 6,
    "k-nearest": 7,
    "weights-file": 8,
}
DISTANCE_METHODS = {"euclidean": 1, "manhattan": 2}

# The keywords every weight-based function takes, with zostat's defaults.
WEIGHTS_KEYWORDS = ("conceptualization", "distance_band", "exponent", "k", "row_standardize",
                    "distance_method", "weights_file", "snap_tolerance")


def _name(value, table, what):
    if isinstance(value, int) and not isinstance(value, bool) and value in table.values():
        return value
    key = str(value).replace("_", "-").lower()
    if key not in table:
        raise ValueError(f"unknown {what} {value!r}; use one of {', '.join(table)}")
    return table[key]


def distance_method_code(value):
    return _name(value, DISTANCE_METHODS, "distance method")


def patterns_information(field="", *, conceptualization="inverse-distance", distance_band=-1.0, exponent=1.0,
                         k=1, row_standardize=False, distance_method="euclidean", weights_file=None,
                         self_weight_field=None, fdr=False, snap_tolerance=0.0):
    """The library's parameter record from keyword arguments. A weights file
    given alone implies ``conceptualization="weights-file"``."""
    info = _core.PatternsInformation()
    info.field = field or ""
    if weights_file is not None and conceptualization == "inverse-distance":
        conceptualization = "weights-file"
    info.conceptualization = _name(conceptualization, CONCEPTUALIZATIONS, "conceptualization")
    info.distance_band = float(distance_band)
    info.exponent = float(exponent)
    info.snap_tolerance = float(snap_tolerance)
    if int(k) != k:
        raise ValueError(f"k must be a whole number, not {k!r}")
    info.k = int(k)
    info.row_standardize = bool(row_standardize)
    info.distance_method = distance_method_code(distance_method)
    info.weights_file = str(weights_file) if weights_file is not None else ""
    info.self_weight_field = self_weight_field or ""
    info.fdr = bool(fdr)
    return info
