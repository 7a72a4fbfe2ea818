"""statisticsanalyst: spatial statistics over vector datasets.

Every analysis takes a path (with ``layer=``) or a GeoDataFrame. Weights are
keyword arguments named like zostat's options::

    import statisticsanalyst as sa
    sa.moran("data/columbus.gpkg", "CRIME", conceptualization="contiguity-edges-corners",
             row_standardize=True).to_dict()
    hot = sa.hotspot(frame, "PRICE", conceptualization="k-nearest", k=6)
    hot.plot(file="hotspots.png")

Global statistics return small result objects (attributes and ``to_dict()``);
per-feature analyses (local statistics, density clustering, geographic
distributions) return a GeoDataFrame (a pandas DataFrame without GeoPandas);
ols(), gwr() and incremental_spatial_autocorrelation() return a result
object whose ``frame`` is the layer or table they write; geodetector()
returns a GeoDetectorResult with a DataFrame per detector table and the
interaction matrix::

    gd = sa.geodetector("data/columbus.gpkg", "CRIME", ["CP", "EW", "INC"], categorical=["CP", "EW"])
    gd.factor[["field", "q", "p_value"]]
    gd.interaction_matrix()

Weights made with PySAL serve every analysis: ``weights_from_pysal(w,
"w.swmb", "POLYID")`` writes a ``libpysal.weights.W`` as a weights file for
``weights_file=``, and ``weights_to_pysal("w.swmb")`` reads one back as a W.

Failures raise StatisticsAnalystError with the message identifiers in
``.ids``; an argument zostat would refuse as an option is refused before the
run with the same identifier, as StatisticsAnalystUsageError (also a
ValueError and a TypeError). Progress shows through tqdm when it is installed
(``progress=False`` silences it, a callable(percent, title, message) takes
it); Ctrl-C cancels a run and raises KeyboardInterrupt.
"""
from ._analyses import (ResultFrame, ann, central_feature, cluster_outlier, dbscan, directional_mean, ellipse,
                        general_g, geodetector, gwr, hdbscan, hotspot, incremental_spatial_autocorrelation,
                        mean_center, median_center, moran, ols, optics, optimized_hotspot, standard_distance,
                        weights_build, weights_dump, weights_to_table)
from ._errors import StatisticsAnalystError, StatisticsAnalystUsageError
from ._plot import plot_map
from ._pysal import weights_from_pysal, weights_to_pysal
from ._results import (AnnResult, GeneralGResult, GeoDetectorResult, GwrResult, IncrementalResult, MoranResult,
                       OlsResult)
from ._types import Conceptualization, DistanceMethod

__all__ = ["AnnResult", "Conceptualization", "DistanceMethod", "GeneralGResult", "GeoDetectorResult", "GwrResult",
           "IncrementalResult", "MoranResult", "OlsResult", "ResultFrame", "StatisticsAnalystError",
           "StatisticsAnalystUsageError", "ann", "central_feature", "cluster_outlier", "dbscan", "directional_mean",
           "ellipse", "general_g", "geodetector", "gwr", "hdbscan", "hotspot", "incremental_spatial_autocorrelation",
           "mean_center", "median_center", "moran", "ols", "optics", "optimized_hotspot", "plot_map",
           "standard_distance", "weights_build", "weights_dump", "weights_from_pysal", "weights_to_pysal",
           "weights_to_table"]
