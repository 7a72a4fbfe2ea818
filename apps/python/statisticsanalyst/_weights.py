"""Weights keyword arguments, named like zostat's weights options and turned
into the library's record by the same code as zostat's (through _core)."""
from __future__ import annotations

from typing import Any, Mapping, Optional, Union

from . import _core, _validate
from ._types import Conceptualization, DistanceMethod, PathLike

# The keywords every weight-based function takes, with zostat's defaults.
WEIGHTS_KEYWORDS = ("conceptualization", "distance_band", "exponent", "k", "row_standardize",
                    "distance_method", "weights_file", "snap_tolerance", "memory_budget")


def _choice(value: object) -> str:
    """A named choice as it would be typed: underscores for hyphens, any case;
    other values (a conceptualization's number) as text."""
    return value.replace("_", "-").lower() if isinstance(value, str) else _validate.text(value)


def distance_method_code(value: Union[DistanceMethod, str]) -> int:
    with _validate.as_keywords("distance-method"):
        return _core.distance_method(_choice(value))


def weights_of(given: Mapping[str, Any]) -> dict[str, Any]:
    """The weights keywords out of a function's arguments (its locals()), so
    each analysis spells them out in its signature once."""
    return {name: given[name] for name in WEIGHTS_KEYWORDS}


def patterns_information(field: str = "", *, conceptualization: Union[Conceptualization, str, int] = "inverse-distance",
                         distance_band: float = -1.0, exponent: float = 1.0, k: int = 1,
                         row_standardize: bool = False, distance_method: Union[DistanceMethod, str] = "euclidean",
                         weights_file: Optional[PathLike] = None, snap_tolerance: float = 0.0,
                         memory_budget: Optional[float] = None, self_weight_field: Optional[str] = None,
                         fdr: bool = False, permutations: int = 0, seed: int = 0) -> _core.PatternsInformation:
    """The library's parameter record from keyword arguments. A weights file
    given alone implies ``conceptualization="weights-file"``. `permutations`
    and `seed` set the permutation test (0 permutations: none);
    `memory_budget` (MB, None for a quarter of physical memory) is zostat's
    ``--memory-budget``."""
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
    if memory_budget is not None:
        options["memory-budget"] = _validate.text(memory_budget)
    if permutations != 0:
        options.update({"permutations": _validate.text(permutations), "seed": _validate.text(seed)})
    for flag, given in (("row-standardize", row_standardize), ("fdr", fdr)):
        if given:
            options[flag] = ""
    with _validate.as_keywords(*options):
        return _core.patterns_information(options)
