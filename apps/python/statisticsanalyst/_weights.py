"""Weights keyword arguments, named like zostat's weights options and turned
into the library's record by the same code as zostat's (through _core)."""
from . import _core, _validate

# The keywords every weight-based function takes, with zostat's defaults.
WEIGHTS_KEYWORDS = ("conceptualization", "distance_band", "exponent", "k", "row_standardize",
                    "distance_method", "weights_file", "snap_tolerance")


def _choice(value):
    """A named choice as it would be typed: underscores for hyphens, any case;
    other values (a conceptualization's number) as text."""
    return value.replace("_", "-").lower() if isinstance(value, str) else _validate.text(value)


def distance_method_code(value):
    with _validate.as_keywords("distance-method"):
        return _core.distance_method(_choice(value))


def patterns_information(field="", *, conceptualization="inverse-distance", distance_band=-1.0, exponent=1.0,
                         k=1, row_standardize=False, distance_method="euclidean", weights_file=None,
                         self_weight_field=None, fdr=False, snap_tolerance=0.0, permutations=0, seed=0):
    """The library's parameter record from keyword arguments. A weights file
    given alone implies ``conceptualization="weights-file"``. `permutations`
    and `seed` set the permutation test (0 permutations: none)."""
    options = {}
    if field != "":
        options["field"] = _validate.field(field)
    if weights_file is not None:
        options["weights-file"] = _validate.path(weights_file, "weights_file")
        if conceptualization == "inverse-distance":
            conceptualization = "weights-file"
    if self_weight_field:
        options["self-weight-field"] = _validate.field(self_weight_field, "self_weight_field")
    options.update({"conceptualization": _choice(conceptualization), "distance-band": _validate.text(distance_band),
                    "exponent": _validate.text(exponent), "snap-tolerance": _validate.text(snap_tolerance),
                    "k": _validate.text(k), "distance-method": _choice(distance_method)})
    if permutations != 0:
        options.update({"permutations": _validate.text(permutations), "seed": _validate.text(seed)})
    for flag, given in (("row-standardize", row_standardize), ("fdr", fdr)):
        if given:
            options[flag] = ""
    with _validate.as_keywords(*options):
        return _core.patterns_information(options)
