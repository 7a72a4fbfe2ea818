"""The Python functions against the zostat binary on the bundled data."""
import os
import signal

import geopandas as gpd
import pandas as pd
import pytest
from shapely.geometry import LineString

import statisticsanalyst as sa
from statisticsanalyst import _io
from conftest import data, zostat

QUEEN = dict(conceptualization="contiguity-edges-corners", row_standardize=True)
QUEEN_CLI = ["--conceptualization", "contiguity-edges-corners", "--row-standardize"]


# The QGIS suite compares each analysis with zostat once (tests/apps/qgis);
# the cases here are the other options the keywords must carry.
@pytest.mark.parametrize("function, dataset, field, weights, cli", [
    (sa.moran, "ny8.gpkg", "Cases", dict(conceptualization="inverse-distance", distance_band=20000, exponent=2),
     ["moran", "--distance-band", "20000", "--exponent", "2"]),
    (sa.general_g, "baltim.gpkg", "PRICE", dict(distance_method="manhattan"),
     ["general-g", "--distance-method", "manhattan"]),
    (sa.moran, "columbus.gpkg", "CRIME", dict(QUEEN, permutations=999, seed=7),
     ["moran", *QUEEN_CLI, "--permutations", "999", "--seed", "7"]),
    (sa.general_g, "baltim.gpkg", "PRICE", dict(conceptualization="k-nearest", k=6, permutations=99, seed=2**64 - 1),
     ["general-g", "--conceptualization", "k-nearest", "--k", "6", "--permutations", "99", "--seed",
      str(2**64 - 1)]),
])
def test_global_statistics_equal_the_cli(function, dataset, field, weights, cli):
    result = function(data(dataset), field, progress=False, **weights)
    expected = zostat(*cli, "--input", data(dataset), "--field", field, "--json")
    assert result.to_dict() == expected
    assert result.z_score == expected["z_score"]


@pytest.mark.parametrize("dataset, options, cli", [
    ("baltim.gpkg", {}, []),
    ("baltim.gpkg", dict(area=250000, distance_method="manhattan"), ["--area", "250000", "--distance-method",
                                                                     "manhattan"]),
])
def test_ann_equals_the_cli(dataset, options, cli):
    result = sa.ann(data(dataset), progress=False, **options)
    assert result.to_dict() == zostat("ann", "--input", data(dataset), *cli, "--json")


@pytest.mark.parametrize("dataset, field, options, cli", [
    ("baltim.gpkg", "PRICE", {}, []),
    ("baltim.gpkg", "PRICE", dict(begin_distance=25, increment=10, bands=3, row_standardize=True),
     ["--begin-distance", "25", "--increment", "10", "--bands", "3", "--row-standardize"]),
    # Bands beyond the layer's extent, where Moran's I cannot be computed.
    ("columbus.gpkg", "CRIME", dict(bands=20, distance_method="manhattan"),
     ["--bands", "20", "--distance-method", "manhattan"]),
])
def test_incremental_equals_the_cli(tmp_path, dataset, field, options, cli):
    kept = tmp_path / "kept.gpkg"
    result = sa.incremental_spatial_autocorrelation(data(dataset), field, output=kept, progress=False, **options)
    out = tmp_path / "cli.gpkg"
    printed = zostat("incremental", "--input", data(dataset), "--field", field, *cli, "--output", out, "--json")
    assert result.to_dict() == printed
    def read(path):
        return pd.DataFrame(gpd.read_file(path, layer=f"{dataset[:-5]}_incremental")).drop(columns="geometry")

    table = read(out)
    pd.testing.assert_frame_equal(result.frame, table)
    pd.testing.assert_frame_equal(read(kept), table)  # output= keeps the table
    # The table holds the printed bands row for row; Peak marks the printed peaks.
    keys = ["distance", "index", "expected_index", "variance", "z_score", "p_value"]
    columns = ["Distance", "MoransI", "ExpectedI", "Variance", "ZScore", "PValue"]
    assert list(table.columns) == columns + ["Valid", "Peak"]
    peaks = {which: printed[which] and printed["bands"].index(printed[which]) for which in ("first_peak", "max_peak")}
    for k, (band, row) in enumerate(zip(printed["bands"], table.itertuples(index=False), strict=True)):
        valid = band["index"] is not None
        assert row.Valid == valid
        given = 6 if valid else 1
        assert [getattr(row, c) for c in columns[:given]] == [band[key] for key in keys[:given]]
        assert valid or table.loc[k, columns[1:]].isna().all()
        assert row.Peak == (k == peaks["first_peak"]) + 2 * (k == peaks["max_peak"])
    assert any(band["index"] is None for band in printed["bands"]) == (dataset == "columbus.gpkg")
    assert (peaks["first_peak"] != peaks["max_peak"]) == (dataset == "ny8.gpkg")


def test_geodetector_equals_the_cli(tmp_path):
    kept, out = tmp_path / "kept.gpkg", tmp_path / "cli.gpkg"
    result = sa.geodetector(data("columbus.gpkg"), "CRIME", ["CP", "EW", "INC"], categorical=["CP", "EW"],
                            output=kept, progress=False)
    printed = zostat("geodetector", "--input", data("columbus.gpkg"), "--dependent", "CRIME", "--factors",
                     "CP,EW,INC", "--categorical", "CP,EW", "--output", out, "--json")
    assert result.to_dict() == printed
    assert (result.count, result.mean, result.variance) == (printed["count"], printed["mean"], printed["variance"])
    for name in ("factor", "strata", "risk", "interaction", "ecological"):
        frame = getattr(result, name)
        assert len(frame) == len(printed[name]) > 0
        assert list(frame.columns) == list(printed[name][0])
    # INC is cut into five quantile classes; CP and EW are taken as they are.
    assert result.factor.set_index("field")["strata"].to_dict() == {"CP": 2, "EW": 2, "INC": 5}
    matrix = result.interaction_matrix()
    assert list(matrix.index) == list(matrix.columns) == ["CP", "EW", "INC"]
    assert matrix.loc["CP", "CP"] == result.factor.q[0] and matrix.loc["INC", "EW"] == matrix.loc["EW", "INC"]
    assert matrix.loc["EW", "INC"] == result.interaction.set_index(["first", "second"]).q[("EW", "INC")]
    ax = result.plot(file=tmp_path / "q.png")  # each pair once: the lower triangle, labelled with its q
    assert sorted(t.get_text() for t in ax.texts) == sorted(f"{matrix.iloc[a, b]:.3f}" for a in range(3)
                                                            for b in range(a + 1))
    # output= keeps every feature with its strata, as zostat --output writes them.
    layer = gpd.read_file(kept, layer="columbus_strata")
    assert len(layer) == result.count == 49
    assert {f"{f}_{kind}" for f in ("CP", "EW", "INC") for kind in ("Stratum", "Mean")} <= set(layer.columns)
    pd.testing.assert_frame_equal(layer, gpd.read_file(out, layer="columbus_strata"))
    # A detector not asked for leaves its table out; the factor table comes with the risk detector.
    risk_only = sa.geodetector(data("columbus.gpkg"), "CRIME", "INC", detectors=("risk",), progress=False)
    assert risk_only.interaction is None and risk_only.ecological is None
    assert set(risk_only.to_dict()) == {"count", "mean", "variance", "factor", "strata", "risk"}
    single = sa.geodetector(data("columbus.gpkg"), "CRIME", ["INC"], detectors="interaction", progress=False)
    assert single.interaction.empty and "relationship" in single.interaction


def line_layer(tmp_path):
    """The bundled data holds no lines: the tracts' outlines as lines, left open (the
    last vertex dropped), since a closed line has no direction."""
    path = tmp_path / "lines.gpkg"
    frame = gpd.read_file(data("columbus.gpkg"))
    frame.geometry = gpd.GeoSeries([LineString(polygon.exterior.coords[:-1]) for polygon in frame.geometry])
    frame.to_file(path, layer="outlines")
    return str(path)


@pytest.mark.parametrize("function, args, options, command, dataset, cli", [
    (sa.hotspot, ["Cases"], dict(fdr=True), "hotspot", "ny8.gpkg", ["--field", "Cases", "--fdr"]),
    (sa.cluster_outlier, ["CRIME"], QUEEN, "cluster-outlier", "columbus.gpkg", ["--field", "CRIME", *QUEEN_CLI]),
    (sa.cluster_outlier, ["CRIME"], dict(QUEEN, fdr=True, permutations=999, seed=5), "cluster-outlier",
     "columbus.gpkg", ["--field", "CRIME", *QUEEN_CLI, "--fdr", "--permutations", "999", "--seed", "5"]),
    (sa.hotspot, ["CRIME"], dict(conceptualization="k-nearest", k=4, permutations=499), "hotspot", "columbus.gpkg",
     ["--field", "CRIME", "--conceptualization", "k-nearest", "--k", "4", "--permutations", "499"]),
    (sa.optimized_hotspot, ["PRICE"], dict(permutations=99, seed=1), "optimized-hotspot", "baltim.gpkg",
     ["--field", "PRICE", "--permutations", "99", "--seed", "1"]),
    (sa.optimized_hotspot, [], dict(aggregation="integrate", tolerance=150), "optimized-hotspot", "cycle_hire.gpkg",
     ["--aggregation", "integrate", "--tolerance", "150"]),
    (sa.optimized_hotspot, ["PRICE"], {}, "optimized-hotspot", "baltim.gpkg", ["--field", "PRICE"]),
    (sa.optics, [], dict(min_points=5, distance=1000, xi=5), "optics", "cycle_hire.gpkg",
     ["--min-points", "5", "--distance", "1000", "--xi", "5"]),
    (sa.mean_center, [], dict(weight_field="PRICE", case_field="AC", stats=[("AGE", "mean"), ("PRICE", "max")]),
     "mean-center", "baltim.gpkg", ["--weight-field", "PRICE", "--case-field", "AC", "--stat", "AGE:mean",
                                    "--stat", "PRICE:max"]),
    (sa.median_center, [], dict(weight_field="PRICE", tolerance=1e-9), "median-center", "baltim.gpkg",
     ["--weight-field", "PRICE", "--tolerance", "1e-9"]),
    (sa.central_feature, [], dict(self_weight_field="HOVAL", distance_method="manhattan"), "central-feature",
     "columbus.gpkg", ["--self-weight-field", "HOVAL", "--distance-method", "manhattan"]),
    (sa.standard_distance, [], dict(ellipse_size=2, stats=[("Cases", "sum")]), "standard-distance", "ny8.gpkg",
     ["--ellipse-size", "2", "--stat", "Cases:sum"]),
    (sa.ellipse, [], dict(weight_field="PRICE", case_field="CITCOU"), "ellipse", "baltim.gpkg",
     ["--weight-field", "PRICE", "--case-field", "CITCOU"]),
    (sa.directional_mean, [], dict(orientation_only=True), "directional-mean", line_layer, ["--orientation-only"]),
    (sa.gwr, ["CRIME", ["INC", "HOVAL"]], dict(kernel="gaussian", bandwidth_type="fixed"), "gwr", "columbus.gpkg",
     ["--dependent", "CRIME", "--explanatory", "INC,HOVAL", "--kernel", "gaussian", "--bandwidth-type", "fixed"]),
])
def test_layer_analyses_equal_the_cli(tmp_path, function, args, options, command, dataset, cli):
    source = dataset(tmp_path) if callable(dataset) else data(dataset)
    kept = tmp_path / "kept.gpkg"
    result = function(source, *args, output=kept, output_layer="mine", progress=False, **options)
    out = tmp_path / "cli.gpkg"
    printed = zostat(command, "--input", source, *cli, "--output", out, "--output-layer", "r", "--json")
    expected = gpd.read_file(out, layer="r")
    frame = getattr(result, "frame", result)
    assert isinstance(frame, gpd.GeoDataFrame)
    pd.testing.assert_frame_equal(pd.DataFrame(frame.drop(columns="geometry")).reset_index(drop=True),
                                  pd.DataFrame(expected.drop(columns="geometry")))
    assert frame.geometry.reset_index(drop=True).to_wkb().equals(expected.geometry.to_wkb())
    assert frame.crs == expected.crs
    assert len(gpd.read_file(kept, layer="mine")) == len(expected)  # output= keeps the layer
    if hasattr(result, "frame"):  # regressions: the CLI's JSON
        assert result.to_dict() == printed
    elif command == "optimized-hotspot":  # every choice, as the CLI reports it
        assert frame.summary == {key: value for key, value in printed.items() if key not in ("output", "layer")}
    elif "summary" in frame.attrs:  # density: the CLI's summary
        assert frame.summary == {key: printed[key] for key in ("clusters", "noise", "distance")}


def test_geodataframe_input_keeps_rows_and_index():
    # Shuffled rows under a custom index: each feature's statistics are the
    # same as from the file, and the result keeps the caller's index.
    frame = gpd.read_file(data("columbus.gpkg"))
    frame.index = [f"n{i}" for i in range(len(frame))]
    shuffled = frame.sample(frac=1.0, random_state=7)
    from_file = sa.cluster_outlier(data("columbus.gpkg"), "CRIME", progress=False, **QUEEN)
    from_frame = sa.cluster_outlier(shuffled, "CRIME", progress=False, **QUEEN)
    assert list(from_frame.index) == list(shuffled.index)
    assert from_frame.crs == shuffled.crs
    from_file.index = frame.index
    columns = ["CRIME", "ALMI_MoranI", "ALMI_Zscore", "ALMI_Pvalue", "ALMI_Type"]
    pd.testing.assert_frame_equal(pd.DataFrame(from_frame.loc[frame.index, columns]),
                                  pd.DataFrame(from_file[columns]), rtol=1e-12)
    assert sa.moran(shuffled, "CRIME", progress=False, **QUEEN).to_dict() == pytest.approx(
        sa.moran(data("columbus.gpkg"), "CRIME", progress=False, **QUEEN).to_dict(), rel=1e-12)


def test_without_geopandas_results_are_dataframes(monkeypatch):
    monkeypatch.setattr(_io, "gpd", None)
    result = sa.hotspot(data("baltim.gpkg"), "PRICE", conceptualization="k-nearest", k=6, progress=False)
    assert type(result) is pd.DataFrame
    assert list(result.columns) == ["PRICE", "Gi_Zscore", "Gi_Pvalue", "Gi_ConfInvl"]
    assert result.attrs["map_field"] == "Gi_ConfInvl"


def test_weights_files_equal_the_cli(tmp_path):
    binary, text = tmp_path / "q.swmb", tmp_path / "qt.swmb"
    sa.weights_build(data("columbus.gpkg"), "POLYID", binary, progress=False, **QUEEN)
    sa.weights_build(data("columbus.gpkg"), "POLYID", text, text=True, progress=False, **QUEEN)
    cli_binary = tmp_path / "cli.swmb"
    zostat("weights", "build", "--input", data("columbus.gpkg"), "--id-field", "POLYID", "--output", cli_binary,
           "--quiet", *QUEEN_CLI)
    assert binary.read_bytes() == cli_binary.read_bytes()
    assert sa.weights_dump(binary) == zostat("weights", "dump", "--weights", binary).stdout
    assert sa.weights_dump(text, text=True) == zostat("weights", "dump", "--weights", text, "--text").stdout

    table = sa.weights_to_table(binary, progress=False)
    zostat("weights", "to-table", "--weights", binary, "--output", tmp_path / "t.gpkg", "--quiet")
    cli_table = pd.DataFrame(gpd.read_file(tmp_path / "t.gpkg", layer="q")).drop(columns="geometry")
    pd.testing.assert_frame_equal(table, cli_table)
    assert table.groupby("UniqueID")["Weight"].sum().round(12).eq(1.0).all()  # row-standardized
    # The file drives the statistic exactly like the weights it was built from.
    assert sa.moran(data("columbus.gpkg"), "CRIME", weights_file=binary, progress=False).to_dict() == \
        pytest.approx(sa.moran(data("columbus.gpkg"), "CRIME", progress=False, **QUEEN).to_dict(), rel=1e-12)


@pytest.mark.parametrize("call, ids", [
    (lambda: sa.moran(data("columbus.gpkg"), "NO_SUCH_FIELD"), ["ECd001"]),
    (lambda: sa.moran(data("columbus.gpkg"), "CRIME", conceptualization="k-nearest", k=49), ["ESa042"]),
    (lambda: sa.general_g(data("columbus.gpkg"), "CRIME", conceptualization="weights-file"), ["ESa076"]),
    (lambda: sa.ann(data("missing.gpkg")), ["EUa001"]),
    (lambda: sa.cluster_outlier(data("missing.gpkg"), "CRIME"), ["EUa001"]),
    (lambda: sa.hotspot(data("columbus.gpkg"), "CRIME", layer="nope"), ["EUa006"]),
    (lambda: sa.weights_dump(data("missing.swmb")), ["ESa049"]),
])
def test_failures_raise_with_identifiers(call, ids):
    with pytest.raises(sa.StatisticsAnalystError) as caught:
        call()
    assert caught.value.ids[:len(ids)] == ids
    assert str(caught.value).startswith(f"[{ids[0]}] ")


# The same mistake gets the same identifier from Python as from zostat.
@pytest.mark.parametrize("call, cli", [
    (lambda: sa.moran(data("columbus.gpkg"), "CRIME", conceptualization="k-nearest", k=0),
     ["moran", "--field", "CRIME", "--conceptualization", "k-nearest", "--k", "0"]),
    (lambda: sa.moran(data("columbus.gpkg"), "CRIME", conceptualization="k-nearest", k=True),
     ["moran", "--field", "CRIME", "--conceptualization", "k-nearest", "--k", "true"]),
    (lambda: sa.moran(data("columbus.gpkg"), "CRIME", distance_band=-2),
     ["moran", "--field", "CRIME", "--distance-band", "-2"]),
    (lambda: sa.moran(data("columbus.gpkg"), "CRIME", conceptualization="queen"),
     ["moran", "--field", "CRIME", "--conceptualization", "queen"]),
    (lambda: sa.hdbscan(data("baltim.gpkg"), min_points=1), ["hdbscan", "--min-points", "1", "--output", "x.gpkg"]),
    (lambda: sa.optics(data("baltim.gpkg"), xi=100), ["optics", "--xi", "100", "--output", "x.gpkg"]),
    (lambda: sa.gwr(data("columbus.gpkg"), "CRIME", ["INC"], bandwidth=-1),
     ["gwr", "--dependent", "CRIME", "--explanatory", "INC", "--bandwidth", "-1"]),
    (lambda: sa.gwr(data("columbus.gpkg"), "CRIME", ["INC"], kernel=["bisquare"]),
     ["gwr", "--dependent", "CRIME", "--explanatory", "INC", "--kernel", "x"]),
    (lambda: sa.ellipse(data("columbus.gpkg"), ellipse_size=4), ["ellipse", "--ellipse-size", "4"]),
    (lambda: sa.mean_center(data("columbus.gpkg"), stats=[("CRIME", "mode")]), ["mean-center", "--stat", "CRIME:mode"]),
    (lambda: sa.optimized_hotspot(data("columbus.gpkg"), cell_size=0), ["optimized-hotspot", "--cell-size", "0"]),
    (lambda: sa.optimized_hotspot(data("columbus.gpkg"), aggregation="hexagons"),
     ["optimized-hotspot", "--aggregation", "hexagons"]),
    (lambda: sa.optimized_hotspot(data("columbus.gpkg")), ["optimized-hotspot", "--output", "x.gpkg"]),
    (lambda: sa.ann(data("missing.gpkg")), ["ann"]),
    (lambda: sa.incremental_spatial_autocorrelation(data("columbus.gpkg"), "CRIME", bands=0),
     ["incremental", "--field", "CRIME", "--bands", "0"]),
    (lambda: sa.incremental_spatial_autocorrelation(data("columbus.gpkg"), "CRIME", bands=2.5),
     ["incremental", "--field", "CRIME", "--bands", "2.5"]),
    (lambda: sa.incremental_spatial_autocorrelation(data("columbus.gpkg"), "CRIME", begin_distance=-1),
     ["incremental", "--field", "CRIME", "--begin-distance", "-1"]),
    (lambda: sa.incremental_spatial_autocorrelation(data("columbus.gpkg"), "CRIME", increment=0),
     ["incremental", "--field", "CRIME", "--increment", "0"]),
    (lambda: sa.incremental_spatial_autocorrelation(data("columbus.gpkg"), "CRIME", distance_method="chebyshev"),
     ["incremental", "--field", "CRIME", "--distance-method", "chebyshev"]),
    (lambda: sa.incremental_spatial_autocorrelation(data("columbus.gpkg"), "NOPE"),
     ["incremental", "--field", "NOPE"]),
    (lambda: sa.geodetector(data("columbus.gpkg"), "CRIME", ["INC"], classes=31),
     ["geodetector", "--dependent", "CRIME", "--factors", "INC", "--classes", "31"]),
    (lambda: sa.geodetector(data("columbus.gpkg"), "CRIME", ["INC"], alpha=1),
     ["geodetector", "--dependent", "CRIME", "--factors", "INC", "--alpha", "1"]),
    (lambda: sa.geodetector(data("columbus.gpkg"), "CRIME", ["INC"], discretize="kmeans"),
     ["geodetector", "--dependent", "CRIME", "--factors", "INC", "--discretize", "kmeans"]),
    (lambda: sa.geodetector(data("columbus.gpkg"), "CRIME", ["INC"], detectors=("factor", "bogus")),
     ["geodetector", "--dependent", "CRIME", "--factors", "INC", "--detectors", "factor,bogus"]),
    (lambda: sa.geodetector(data("columbus.gpkg"), "CRIME", ["CRIME"]),
     ["geodetector", "--dependent", "CRIME", "--factors", "CRIME"]),
    (lambda: sa.moran(data("columbus.gpkg"), "CRIME", memory_budget=0),
     ["moran", "--field", "CRIME", "--memory-budget", "0"]),
    (lambda: sa.moran(data("columbus.gpkg"), "CRIME", permutations=-1),
     ["moran", "--field", "CRIME", "--permutations", "-1"]),
    (lambda: sa.hotspot(data("columbus.gpkg"), "CRIME", permutations=9, seed=-3),
     ["hotspot", "--field", "CRIME", "--permutations", "9", "--seed", "-3", "--output", "/tmp/unused.gpkg"]),
    (lambda: sa.incremental_spatial_autocorrelation(data("cycle_hire.gpkg"), "nbikes", distance_method="manhattan"),
     ["incremental", "--input", data("cycle_hire.gpkg"), "--field", "nbikes", "--distance-method", "manhattan"]),
])
def test_python_refuses_what_zostat_refuses(call, cli):
    if cli[0] == "ann":
        cli = ["ann", "--input", data("missing.gpkg")]
    elif "--input" not in cli:
        cli = [cli[0], "--input", data("columbus.gpkg"), *cli[1:]]
    run = zostat(*cli, check=False)
    with pytest.raises(sa.StatisticsAnalystError) as caught:
        call()
    assert run.returncode in (1, 2) and caught.value.ids
    assert f"[{caught.value.ids[0]}]" in run.stderr
    if run.returncode == 2:  # refused before the run, as a usage error
        assert isinstance(caught.value, (ValueError, TypeError))


# Outputs and weights builds go through the same front-end core: the same mistake gets the same
# identifier and kind (a usage error, exit status 2), an output's message word for word, and nothing
# is written.
@pytest.mark.parametrize("call, cli, same_text", [
    (lambda d: sa.hotspot(data("columbus.gpkg"), "CRIME", output=d / "r.xyz", progress=False),
     lambda d: ["hotspot", "--input", data("columbus.gpkg"), "--field", "CRIME", "--output", d / "r.xyz"], True),
    (lambda d: sa.dbscan(d / "in.gpkg", output=d / "in.gpkg", overwrite=True, progress=False),
     lambda d: ["dbscan", "--input", d / "in.gpkg", "--output", d / "in.gpkg", "--overwrite"], True),
    (lambda d: sa.incremental_spatial_autocorrelation(d / "in.gpkg", "CRIME", output=d / "in.gpkg", overwrite=True,
                                                      progress=False),
     lambda d: ["incremental", "--input", d / "in.gpkg", "--field", "CRIME", "--output", d / "in.gpkg", "--overwrite"],
     True),
    (lambda d: sa.incremental_spatial_autocorrelation(data("columbus.gpkg"), "CRIME", output=d / "bands.xyz",
                                                      progress=False),
     lambda d: ["incremental", "--input", data("columbus.gpkg"), "--field", "CRIME", "--output", d / "bands.xyz"],
     True),
    (lambda d: sa.incremental_spatial_autocorrelation(data("columbus.gpkg"), "CRIME", output=d / "no" / "bands.gpkg",
                                                      progress=False),
     lambda d: ["incremental", "--input", data("columbus.gpkg"), "--field", "CRIME", "--output",
                d / "no" / "bands.gpkg"], True),
    (lambda d: sa.weights_build(data("columbus.gpkg"), "QlID", d / "k.swmb", text=True, flag_matrix=d / "k.flags",
                                conceptualization="k-nearest", k=2, progress=False),
     lambda d: ["weights", "build", "--input", data("columbus.gpkg"), "--id-field", "QlID", "--output", d / "k.swmb",
                "--text", "--flag-matrix", d / "k.flags", "--conceptualization", "k-nearest", "--k", "2"], False),
    (lambda d: sa.weights_build(data("columbus.gpkg"), "QlID", d / "w.swmb", conceptualization="weights_file",
                                progress=False),
     lambda d: ["weights", "build", "--input", data("columbus.gpkg"), "--id-field", "QlID", "--output", d / "w.swmb",
                "--conceptualization", "weights-file"], False),
])
def test_outputs_and_weights_builds_refused_alike(tmp_path, private_tmpdir, call, cli, same_text):
    folder = tmp_path / "work"
    folder.mkdir()
    (folder / "in.gpkg").write_bytes(open(data("columbus.gpkg"), "rb").read())
    before = {name: (folder / name).read_bytes() for name in os.listdir(folder)}
    run = zostat(*cli(folder), check=False)
    with pytest.raises(sa.StatisticsAnalystError) as caught:
        call(folder)
    identifier = caught.value.ids[0]
    assert f"[{identifier}]" in run.stderr.splitlines()[0]
    assert (run.returncode == 2) == isinstance(caught.value, sa.StatisticsAnalystUsageError)
    if same_text:
        assert run.stderr.splitlines()[0].endswith(": " + str(caught.value))
    assert {name: (folder / name).read_bytes() for name in os.listdir(folder)} == before
    assert os.listdir(private_tmpdir) == []


def test_python_argument_kinds_carry_identifiers():
    with pytest.raises(TypeError) as caught:
        sa.moran(42, "CRIME")
    assert caught.value.ids == ["EUa060"]
    with pytest.raises(ValueError) as caught:
        sa.ols(data("columbus.gpkg"), 5, ["INC"])
    assert caught.value.ids == ["EUa060"]
    frame = gpd.read_file(data("columbus.gpkg"))
    with pytest.raises(sa.StatisticsAnalystError) as caught:
        sa.moran(frame.iloc[0:0], "CRIME")
    assert caught.value.ids[0] == "ESa014"  # as for an empty layer in a file
    frame.loc[frame.index[2], "geometry"] = None
    with pytest.raises(sa.StatisticsAnalystUsageError) as caught:
        sa.moran(frame, "CRIME")
    assert caught.value.ids == ["EUc002"] and "QlID 3" in str(caught.value)


def test_mistakes_in_the_call_are_python_errors():
    with pytest.raises(TypeError, match="distance_bnd"):
        sa.moran(data("columbus.gpkg"), "CRIME", distance_bnd=3)
    with pytest.raises(ValueError, match="conceptualization"):
        sa.moran(data("columbus.gpkg"), "CRIME", conceptualization="queen")
    with pytest.raises(TypeError):
        sa.moran(42, "CRIME")


def test_failed_runs_leave_nothing_behind(tmp_path, private_tmpdir):
    out = tmp_path / "new.gpkg"
    with pytest.raises(sa.StatisticsAnalystError):
        sa.hotspot(data("columbus.gpkg"), "NO_SUCH_FIELD", output=out)
    assert not out.exists()
    # An existing layer is refused without overwrite, and the file stays as it was.
    sa.hotspot(data("columbus.gpkg"), "CRIME", output=out, output_layer="r", progress=False)
    before = out.read_bytes()
    with pytest.raises(sa.StatisticsAnalystError) as caught:
        sa.hotspot(data("columbus.gpkg"), "CRIME", output=out, output_layer="r", progress=False)
    assert caught.value.ids == ["EUa010"] and out.read_bytes() == before
    sa.hotspot(data("columbus.gpkg"), "HOVAL", output=out, output_layer="r", overwrite=True, progress=False)
    assert "HOVAL" in gpd.read_file(out, layer="r")
    # The strata layer of a failed geographical detector is not written either.
    strata = tmp_path / "strata.gpkg"
    with pytest.raises(sa.StatisticsAnalystError):
        sa.geodetector(data("columbus.gpkg"), "CRIME", ["INC", "CRIME"], output=strata, progress=False)
    assert not strata.exists()
    assert os.listdir(private_tmpdir) == []


def test_progress_reports_and_ctrl_c_cancels(tmp_path, private_tmpdir):
    seen = []
    sa.hotspot(data("ny8.gpkg"), "Cases", progress=lambda p, t, m: seen.append((p, t)))
    assert seen[-1][0] == 100.0 and len(seen) > 3
    assert all(title and not title.startswith("[") for _, title in seen)

    def interrupt(percent, title, message):
        os.kill(os.getpid(), signal.SIGINT)

    out = tmp_path / "cancelled.gpkg"
    with pytest.raises(KeyboardInterrupt):
        sa.hotspot(data("cycle_hire.gpkg"), "nbikes", conceptualization="k-nearest", k=5, output=out,
                   progress=interrupt)
    with pytest.raises(KeyboardInterrupt):
        sa.moran(gpd.read_file(data("baltim.gpkg")), "PRICE", progress=interrupt)
    assert not out.exists()
    assert os.listdir(private_tmpdir) == []
