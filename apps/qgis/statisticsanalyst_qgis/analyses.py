"""The algorithm table: every analysis the statisticsanalyst module offers,
as one row each. A new analysis in the module becomes a Processing
algorithm by adding a row here; the one algorithm class reads the row for
its parameters, its call and what it hands back."""
from dataclasses import dataclass
from typing import Sequence

from .parameters import (ANY, LINES, POINTS, POLYGONS, Choice, Field, File, FileOutput, Flag, Number, Param,
                         Source, Stats)

CONCEPTUALIZATIONS = ["inverse-distance", "inverse-distance-squared", "fixed-distance-band", "zone-of-indifference",
                      "contiguity-edges", "contiguity-edges-corners", "k-nearest", "weights-file"]
DISTANCE_METHODS = ["euclidean", "manhattan"]


def _distance_method(**kw):
    return Choice("distance_method", "Distance method", DISTANCE_METHODS, **kw)


# The weights options every weight-based analysis shares, named and
# defaulted as zostat's. The snapping tolerance and the memory budget are
# passed only when set.
WEIGHTS = [
    Choice("conceptualization", "Conceptualization of spatial relationships", CONCEPTUALIZATIONS,
           help="How neighbours and their weights are found; weights-file reads them from the weights file"),
    Number("distance_band", "Distance band", default=-1.0, minimum=-1.0,
           help="In the layer's units; -1 gives every feature at least one neighbour, 0 means no limit"),
    Number("exponent", "Exponent of inverse distance", default=1.0, minimum=0.0),
    Number("k", "Number of neighbours (k-nearest)", integer=True, default=1, minimum=1),
    Flag("row_standardize", "Row standardize the weights", default=False),
    _distance_method(),
    File("weights_file", "Spatial weights file", "swmb", optional=True,
         help="A binary weights file (zostat weights build, or the Build spatial weights file algorithm)"),
    Number("snap_tolerance", "Contiguity snapping tolerance", minimum=0.0, optional=True, advanced=True,
           help="Boundaries closer than this distance (layer units) touch; default 1e-9 of the extent"),
    Number("memory_budget", "Memory budget of the weights (MB)", minimum=1.0, optional=True, advanced=True,
           help="Beyond it the weights go through a temporary file, with the same results"),
]
PERMUTATIONS = [
    Number("permutations", "Permutations (0: none, 999 is usual)", integer=True, default=0, minimum=0,
           maximum=1000000, advanced=True),
    Number("seed", "Seed of the permutations", integer=True, default=0, minimum=0, advanced=True),
]
FDR = Flag("fdr", "Correct for the false discovery rate", default=False)
INDEX_VALUES = ("index", "expected_index", "variance", "z_score", "p_value", "pseudo_p_value")


def _input(types=ANY):
    return Source("data", "Input layer", types)


def _numeric(keyword, label, **kw):
    return Field(keyword, label, **kw)


def _groups(weight=True):
    """Case groups, summaries and the weight field of the geographic distributions."""
    group = [Field("case_field", "Case field (groups of equal values)", numeric=False, optional=True),
             Stats("stats", "Summary fields (FIELD:TYPE, ...; max, min, sum, mean, first, last, median)",
                   optional=True)]
    return ([Field("weight_field", "Weight field", optional=True)] if weight else []) + group


@dataclass
class Analysis:
    """One algorithm. `function` is the module's function; `layer` says
    what it writes: "features" (a result layer, the output), "table" (a
    table without geometry), "optional" (a layer written only when asked
    for) or None; `values` are numbers of its result handed back as outputs
    (a dotted key reaches into a nested value)."""
    id: str
    name: str
    group: str
    function: str
    params: Sequence[Param]
    help: str
    layer: str = "features"
    values: Sequence[str] = ()
    report: bool = False
    text_output: bool = False


PATTERNS, CLUSTERS, DENSITY, DISTRIBUTIONS, MODELLING, WEIGHTS_GROUP = (
    "Analyzing patterns", "Mapping clusters", "Density-based clustering", "Measuring geographic distributions",
    "Modelling spatial relationships", "Spatial weights")

ANALYSES = [
    Analysis("ann", "Average nearest neighbour", PATTERNS, "ann",
             [_input(), Number("area", "Study area (0: the minimum-area rectangle)", default=0.0, minimum=0.0),
              _distance_method(), Number("width", "Width of degenerate layouts", minimum=0.0, optional=True,
                                         advanced=True)],
             "Whether the features are more clustered or more dispersed than at random: the ratio of the observed "
             "to the expected mean distance to the nearest neighbour, with its z-score and p-value.",
             layer=None, values=("ratio", "expected_mean_distance", "observed_mean_distance", "z_score", "p_value"),
             report=True),
    Analysis("moran", "Spatial autocorrelation (global Moran's I)", PATTERNS, "moran",
             [_input(), _numeric("field", "Analysis field"), *WEIGHTS, *PERMUTATIONS],
             "Global Moran's I of the analysis field under the randomization assumption: whether similar values "
             "cluster in space. Permutations add a pseudo p-value.",
             layer=None, values=INDEX_VALUES, report=True),
    Analysis("general_g", "High/low clustering (Getis-Ord General G)", PATTERNS, "general_g",
             [_input(), _numeric("field", "Analysis field (not negative)"), *WEIGHTS, *PERMUTATIONS],
             "Getis-Ord General G: whether high or low values of a non-negative field cluster.",
             layer=None, values=INDEX_VALUES, report=True),
    Analysis("incremental", "Incremental spatial autocorrelation", PATTERNS, "incremental_spatial_autocorrelation",
             [_input(), _numeric("field", "Analysis field"),
              Number("begin_distance", "Beginning distance (empty: the largest nearest-neighbour distance)",
                     minimum=0.0, optional=True),
              Number("increment", "Distance increment (empty: the mean nearest-neighbour distance)", minimum=0.0,
                     optional=True),
              Number("bands", "Number of distance bands", integer=True, default=10, minimum=1, maximum=50),
              Flag("row_standardize", "Row standardize the weights", default=False), _distance_method()],
             "Global Moran's I of the field with fixed distance band weights at a series of distances; the table "
             "holds one row per band (Peak 1 the first peak, 2 the highest, 3 both).",
             layer="table", values=("first_peak.distance", "max_peak.distance"), report=True),
    Analysis("geodetector", "Geographical detector", PATTERNS, "geodetector",
             [_input(), _numeric("dependent", "Dependent field"),
              Field("factors", "Factor fields", numeric=False, multiple=True),
              Field("categorical", "Real factors to take as categories", numeric=False, multiple=True,
                    optional=True),
              Choice("discretize", "Discretization of real factors", ["quantile", "equal", "jenks", "stddev"]),
              Number("classes", "Classes of real factors", integer=True, default=5, minimum=2, maximum=30),
              Number("alpha", "Significance level", default=0.05, minimum=0.0, maximum=1.0),
              Choice("detectors", "Detectors", ["factor", "interaction", "risk", "ecological"], multiple=True,
                     default=["factor", "interaction", "risk", "ecological"])],
             "How much of the variance of the dependent field the strata of each factor explain (q), with the "
             "interaction, risk and ecological detectors. The report holds every table; the optional layer "
             "every feature with its stratum and stratum mean per factor.",
             layer="optional", values=("count", "mean", "variance"), report=True),
    Analysis("hotspot", "Hot spot analysis (Getis-Ord Gi*)", CLUSTERS, "hotspot",
             [_input(), _numeric("field", "Analysis field"), FDR, *WEIGHTS, *PERMUTATIONS,
              Field("self_weight_field", "Self weight field", optional=True, advanced=True)],
             "Gi* z-score, p-value and confidence bin (Gi_ConfInvl, -3 cold spot at 99% to 3 hot spot at 99%) per "
             "feature."),
    Analysis("cluster_outlier", "Cluster and outlier analysis (Anselin local Moran's I)", CLUSTERS,
             "cluster_outlier", [_input(), _numeric("field", "Analysis field"), FDR, *WEIGHTS, *PERMUTATIONS],
             "Local Moran's I, z-score, p-value and type per feature (ALMI_Type: HH and LL clusters, HL and LH "
             "outliers, empty when not significant)."),
    Analysis("optimized_hotspot", "Optimized hot spot analysis", CLUSTERS, "optimized_hotspot",
             [_input(), _numeric("field", "Analysis field (empty: the points are incidents)", optional=True),
              Choice("aggregation", "Aggregation of incidents", ["grid", "integrate", "polygons"]),
              Number("cell_size", "Grid cell size (empty: from the incidents' spacing)", minimum=0.0, optional=True),
              Number("tolerance", "Integration tolerance (empty: from the incidents' spacing)", minimum=0.0,
                     optional=True),
              Source("polygons", "Polygons to count incidents in", POLYGONS, layer_keyword="polygons_layer",
                     optional=True),
              _distance_method(), *PERMUTATIONS],
             "Gi* over a distance band chosen from the data (the first peak of incremental autocorrelation), with "
             "false discovery rate correction; points without a field are counted per grid cell, integrated point "
             "or polygon first. The report names every choice.",
             values=("distance_band",), report=True),
    Analysis("dbscan", "DBSCAN clustering", DENSITY, "dbscan",
             [_input(POINTS), Number("min_points", "Minimum points (the point included)", integer=True, default=5,
                                     minimum=1),
              Number("distance", "Search distance (0: the median distance to the (min points - 1)-th neighbour)",
                     default=0.0, minimum=0.0)],
             "Density-based clusters of points: Cluster_ID per point, -1 for noise.",
             values=("clusters", "noise", "distance"), report=True),
    Analysis("hdbscan", "HDBSCAN clustering", DENSITY, "hdbscan",
             [_input(POINTS), Number("min_points", "Minimum points", integer=True, default=5, minimum=2)],
             "Hierarchical density-based clusters: Cluster_ID, membership probability, outlier score, exemplars "
             "and stability per point.", values=("clusters", "noise"), report=True),
    Analysis("optics", "OPTICS clustering", DENSITY, "optics",
             [_input(POINTS), Number("min_points", "Minimum points", integer=True, default=5, minimum=1),
              Number("distance", "Largest radius (0: every point a core point)", default=0.0, minimum=0.0),
              Number("xi", "Steepness xi (percent)", integer=True, default=5, minimum=1, maximum=99)],
             "OPTICS ordering with reachability distances and the xi clusters of the reachability plot.",
             values=("clusters", "noise", "distance"), report=True),
    Analysis("mean_center", "Mean centre", DISTRIBUTIONS, "mean_center", [_input(), *_groups()],
             "The weighted mean centre of the features, one point per case group."),
    Analysis("median_center", "Median centre", DISTRIBUTIONS, "median_center",
             [_input(), *_groups(), Number("tolerance", "Relative convergence tolerance (0: 1e-6)", default=0.0,
                                           minimum=0.0, advanced=True)],
             "The point of least total weighted distance to the features, per case group."),
    Analysis("central_feature", "Central feature", DISTRIBUTIONS, "central_feature",
             [_input(), *_groups(), Field("self_weight_field", "Self weight field", optional=True),
              _distance_method()],
             "The feature with the least weighted distance to the others, per case group."),
    Analysis("standard_distance", "Standard distance", DISTRIBUTIONS, "standard_distance",
             [_input(), *_groups(), Choice("ellipse_size", "Standard deviations", [1, 2, 3], labels=["1", "2", "3"])],
             "A circle around the mean centre whose radius is the standard distance, per case group."),
    Analysis("ellipse", "Standard deviational ellipse", DISTRIBUTIONS, "ellipse",
             [_input(), *_groups(), Choice("ellipse_size", "Standard deviations", [1, 2, 3], labels=["1", "2", "3"])],
             "The directional distribution of the features as an ellipse, per case group."),
    Analysis("directional_mean", "Linear directional mean", DISTRIBUTIONS, "directional_mean",
             [_input(LINES), *_groups(weight=False),
              Flag("orientation_only", "Orientation only (opposite directions are one)", default=False)],
             "The mean direction (or orientation) and length of line features, per case group."),
    Analysis("ols", "Ordinary least squares", MODELLING, "ols",
             [_input(), _numeric("dependent", "Dependent field"),
              Field("explanatory", "Explanatory fields", multiple=True),
              Flag("moran", "Test the residuals' spatial autocorrelation (Moran's I)", default=True), *WEIGHTS],
             "Least squares fit with an intercept: predicted values, residuals and standardized residuals per "
             "feature; coefficients with classical and robust standard errors, diagnostics and the residuals' "
             "Moran's I (under the weights) in the report.",
             values=("r2", "adjusted_r2", "aicc"), report=True),
    Analysis("gwr", "Geographically weighted regression", MODELLING, "gwr",
             [_input(), _numeric("dependent", "Dependent field"),
              Field("explanatory", "Explanatory fields", multiple=True),
              Choice("kernel", "Kernel", ["bisquare", "gaussian"]),
              Choice("bandwidth_type", "Bandwidth type", ["adaptive", "fixed"],
                     labels=["adaptive (a number of neighbours)", "fixed (a distance)"]),
              Number("bandwidth", "Bandwidth (empty: chosen by AICc)", minimum=0.0, optional=True),
              _distance_method()],
             "Local coefficients, their standard errors, local R², predictions and residuals per feature.",
             values=("bandwidth", "aicc", "r2"), report=True),
    Analysis("weights_build", "Build spatial weights file", WEIGHTS_GROUP, "weights_build",
             [_input(), Field("id_field", "Unique ID field (integer)"),
              FileOutput("output", "Spatial weights file", "Spatial weights (*.swmb)"), *WEIGHTS],
             "Writes the weights of the features under the chosen conceptualization to a binary .swmb file, for "
             "the weights-file conceptualization of the other algorithms.", layer=None),
    Analysis("weights_to_table", "Spatial weights file to table", WEIGHTS_GROUP, "weights_to_table",
             [File("weights", "Spatial weights file", "swmb", name="WEIGHTS")],
             "One row per neighbour: UniqueID, NeighborsID and Weight.", layer="table"),
    Analysis("weights_dump", "Describe spatial weights file", WEIGHTS_GROUP, "weights_dump",
             [File("weights", "Spatial weights file", "swmb", name="WEIGHTS")],
             "The file's index, row sums and records as text, after checking the whole file.", layer=None,
             text_output=True),
]
