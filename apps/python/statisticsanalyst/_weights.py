"""Weights keyword arguments, named like zostat's weights options and
checked by the same code."""
from . import _core, _validate

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


def _name(value, table, option):
    """A named choice as its code: a name (underscores for hyphens) or, where
    the option takes them, its number."""
    key = value.replace("_", "-").lower() if isinstance(value, str) else value
    key = _validate.option("", option, key)
    return table[key] if isinstance(key, str) and key in table else int(key)


def distance_method_code(value):
    return _name(value, DISTANCE_METHODS, "distance-method")


def patterns_information(field="", *, conceptualization="inverse-distance", distance_band=-1.0, exponent=1.0,
                         k=1, row_standardize=False, distance_method="euclidean", weights_file=None,
                         self_weight_field=None, fdr=False, snap_tolerance=0.0):
    """The library's parameter record from keyword arguments. A weights file
    given alone implies ``conceptualization="weights-file"``."""
    info = _core.PatternsInformation()
    info.field = _validate.field(field) if field != "" else ""
    if weights_file is not None and conceptualization == "inverse-distance":
        conceptualization = "weights-file"
    info.conceptualization = _name(conceptualization, CONCEPTUALIZATIONS, "conceptualization")
    info.distance_band = _validate.number("", "distance-band", distance_band)
    info.exponent = _validate.number("", "exponent", exponent)
    info.snap_tolerance = _validate.number("", "snap-tolerance", snap_tolerance)
    info.k = _validate.count("", "k", k)
    info.row_standardize = bool(row_standardize)
    info.distance_method = distance_method_code(distance_method)
    info.weights_file = _validate.path(weights_file, "weights_file") if weights_file is not None else ""
    info.self_weight_field = _validate.field(self_weight_field, "self_weight_field") if self_weight_field else ""
    info.fdr = bool(fdr)
    return info
