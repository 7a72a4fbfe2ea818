"""The types the package's signatures share."""
from __future__ import annotations

import os
from typing import Any, Callable, Literal, Union

# The weights' conceptualization by zostat's name (underscores and any case
# are taken too), or by its number 1 to 8.
Conceptualization = Literal["inverse-distance", "inverse-distance-squared", "fixed-distance-band",
                            "zone-of-indifference", "contiguity-edges", "contiguity-edges-corners", "k-nearest",
                            "weights-file"]
DistanceMethod = Literal["euclidean", "manhattan"]
PathLike = Union[str, "os.PathLike[str]"]
# A path, or a GeoDataFrame (GeoPandas has no type information of its own).
Data = Union[PathLike, Any]
# progress=: True a tqdm bar when tqdm is installed, False silence, or a
# callable(percent, title, message).
ProgressCallback = Callable[[float, str, str], object]
Progress = Union[bool, ProgressCallback]
