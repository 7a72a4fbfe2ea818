"""The QGIS plugin, headless: every algorithm against zostat on the bundled
data, inputs QGIS reads that the library cannot, cancellation, qgis_process
and the styled hot spot map."""
import filecmp
import json
import os
import shutil
import subprocess
import sys
import tempfile

import geopandas as gpd
import pandas as pd
import pytest

sys.path.append("/usr/share/qgis/python/plugins")  # QGIS's own processing plugin
from qgis.core import (QgsApplication, QgsCategorizedSymbolRenderer, QgsFeatureRequest,  # noqa: E402
                       QgsGraduatedSymbolRenderer, QgsMapRendererParallelJob, QgsMapSettings, QgsProcessingException,
                       QgsProcessingFeedback, QgsProcessingOutputNumber, QgsProcessingParameterFeatureSink,
                       QgsProcessingParameterFileDestination, QgsVectorLayer)
from qgis.PyQt.QtCore import QSize  # noqa: E402
from qgis.PyQt.QtGui import QColor  # noqa: E402

import statisticsanalyst as sa  # noqa: E402

# QGIS turns a GeoPackage it opens to write-ahead logging, a change to the
# file: the tests read copies, never the repository's data.
DATA = tempfile.mkdtemp(prefix="sa-qgis-data-")
shutil.copytree(os.environ["SA_DATA_DIR"], DATA, dirs_exist_ok=True)
ZOSTAT = os.environ["SA_ZOSTAT"]
PLUGINS = os.environ["SA_QGIS_PLUGINS"]
QUEEN = {"CONCEPTUALIZATION": 5, "ROW_STANDARDIZE": True}
QUEEN_CLI = ["--conceptualization", "contiguity-edges-corners", "--row-standardize"]


def data(name):
    return os.path.join(DATA, name)


@pytest.fixture(scope="session")
def processing():
    app = QgsApplication([], False)
    app.initQgis()
    from processing.core.Processing import Processing
    Processing.initialize()
    sys.path.insert(0, PLUGINS)
    import statisticsanalyst_qgis
    plugin = statisticsanalyst_qgis.classFactory(None)  # holds the provider
    plugin.initProcessing()
    import processing
    yield processing
    plugin.unload()
    app.exitQgis()
    shutil.rmtree(DATA)


# Per algorithm: its parameters on the bundled data, and zostat's command
# line for the same run ("{swmb}" is a weights file of columbus built by zostat).
EXAMPLES = {
    "ann": ({"INPUT": data("cycle_hire.gpkg")}, ["ann"]),
    "moran": ({"INPUT": data("columbus.gpkg"), "FIELD": "CRIME", **QUEEN},
              ["moran", "--field", "CRIME", *QUEEN_CLI]),
    "general_g": ({"INPUT": data("baltim.gpkg"), "FIELD": "PRICE", "CONCEPTUALIZATION": 6, "K": 6,
                   "PERMUTATIONS": 99, "SEED": 7},
                  ["general-g", "--field", "PRICE", "--conceptualization", "k-nearest", "--k", "6",
                   "--permutations", "99", "--seed", "7"]),
    "incremental": ({"INPUT": data("ny8.gpkg"), "FIELD": "Cases", "BANDS": 30},
                    ["incremental", "--field", "Cases", "--bands", "30"]),
    "geodetector": ({"INPUT": data("columbus.gpkg"), "DEPENDENT": "CRIME", "FACTORS": ["CP", "EW", "INC"],
                     "CATEGORICAL": ["CP", "EW"]},
                    ["geodetector", "--dependent", "CRIME", "--factors", "CP,EW,INC", "--categorical", "CP,EW"]),
    "hotspot": ({"INPUT": data("baltim.gpkg"), "FIELD": "PRICE", "CONCEPTUALIZATION": 6, "K": 6},
                ["hotspot", "--field", "PRICE", "--conceptualization", "k-nearest", "--k", "6"]),
    "cluster_outlier": ({"INPUT": data("columbus.gpkg"), "FIELD": "CRIME", "FDR": True, **QUEEN},
                        ["cluster-outlier", "--field", "CRIME", "--fdr", *QUEEN_CLI]),
    "optimized_hotspot": ({"INPUT": data("cycle_hire.gpkg")}, ["optimized-hotspot"]),
    "dbscan": ({"INPUT": data("cycle_hire.gpkg"), "MIN_POINTS": 5}, ["dbscan", "--min-points", "5"]),
    "hdbscan": ({"INPUT": data("cycle_hire.gpkg"), "MIN_POINTS": 8}, ["hdbscan", "--min-points", "8"]),
    "optics": ({"INPUT": data("cycle_hire.gpkg"), "DISTANCE": 1000, "XI": 5},
               ["optics", "--distance", "1000", "--xi", "5"]),
    "mean_center": ({"INPUT": data("columbus.gpkg"), "CASE_FIELD": "CP", "STATS": "CRIME:mean, INC:max"},
                    ["mean-center", "--case-field", "CP", "--stat", "CRIME:mean", "--stat", "INC:max"]),
    "median_center": ({"INPUT": data("baltim.gpkg"), "WEIGHT_FIELD": "PRICE"},
                      ["median-center", "--weight-field", "PRICE"]),
    "central_feature": ({"INPUT": data("columbus.gpkg"), "CASE_FIELD": "EW", "DISTANCE_METHOD": 1},
                        ["central-feature", "--case-field", "EW", "--distance-method", "manhattan"]),
    "standard_distance": ({"INPUT": data("baltim.gpkg"), "ELLIPSE_SIZE": 1},
                          ["standard-distance", "--ellipse-size", "2"]),
    "ellipse": ({"INPUT": data("baltim.gpkg"), "CASE_FIELD": "NSTOR"}, ["ellipse", "--case-field", "NSTOR"]),
    "directional_mean": ({"INPUT": data("columbus_gradient.gpkg"), "CASE_FIELD": "CP"},
                         ["directional-mean", "--case-field", "CP"]),
    "ols": ({"INPUT": data("columbus.gpkg"), "DEPENDENT": "CRIME", "EXPLANATORY": ["INC", "HOVAL"], **QUEEN},
            ["ols", "--dependent", "CRIME", "--explanatory", "INC,HOVAL", *QUEEN_CLI]),
    "gwr": ({"INPUT": data("columbus.gpkg"), "DEPENDENT": "CRIME", "EXPLANATORY": ["INC", "HOVAL"], "KERNEL": 1},
            ["gwr", "--dependent", "CRIME", "--explanatory", "INC,HOVAL", "--kernel", "gaussian"]),
    "weights_build": ({"INPUT": data("columbus.gpkg"), "ID_FIELD": "POLYID", "CONCEPTUALIZATION": 4},
                      ["weights", "build", "--id-field", "POLYID", "--conceptualization", "contiguity-edges"]),
    "weights_to_table": ({"WEIGHTS": "{swmb}"}, ["weights", "to-table", "--weights", "{swmb}"]),
    "weights_dump": ({"WEIGHTS": "{swmb}"}, ["weights", "dump", "--weights", "{swmb}"]),
}


def zostat(*args):
    run = subprocess.run([ZOSTAT, *map(str, args)], capture_output=True, text=True)
    assert run.returncode == 0, run.stderr
    return run.stdout


def qgis_process(*args):
    # Debian's qgis_process wrapper adds --noversioncheck, which 3.22 refuses: the binary itself.
    return subprocess.run(["qgis_process.bin", *map(str, args)], capture_output=True, text=True,
                          env=dict(os.environ, QGIS_PLUGINPATH=PLUGINS))


def test_qgis_process_lists_and_runs_the_algorithms(processing, tmp_path):
    # qgis_process starts the plugins enabled in its profile (QGIS_CUSTOM_CONFIG_PATH: the test's own);
    # enabling one already enabled fails, harmlessly.
    qgis_process("plugins", "enable", "statisticsanalyst_qgis")
    listed = qgis_process("list").stdout
    ids = {line.split()[0].split(":")[1] for line in listed.splitlines()
           if line.strip().startswith("statisticsanalyst:")}
    from statisticsanalyst_qgis.analyses import ANALYSES
    assert ids == {a.id for a in ANALYSES} == set(EXAMPLES)

    out = tmp_path / "clusters.gpkg"
    run = qgis_process("run", "statisticsanalyst:cluster_outlier", "--", f"INPUT={data('columbus.gpkg')}",
                       "FIELD=CRIME", "CONCEPTUALIZATION=5", "ROW_STANDARDIZE=true", f"OUTPUT={out}")
    assert run.returncode == 0, run.stderr
    # The style travels in the GeoPackage: a layer opened from it is categorized as our maps are.
    layer = QgsVectorLayer(f"{out}|layername=clusters", "clusters", "ogr")
    renderer = layer.renderer()
    assert renderer.classAttribute() == "ALMI_Type"
    assert {c.value(): c.symbol().color().name() for c in renderer.categories()} == {
        value: colour for value, _, colour in sa._plot.CLUSTER_TYPES}
    # A failure reaches the user with the library's identifier, and writes nothing.
    failed = qgis_process("run", "statisticsanalyst:hotspot", "--", f"INPUT={data('columbus.gpkg')}",
                          "FIELD=CRIME", "CONCEPTUALIZATION=6", "K=60", f"OUTPUT={tmp_path / 'failed.gpkg'}")
    assert failed.returncode != 0 and "ERROR:\t[ESa042]" in failed.stderr
    assert not (tmp_path / "failed.gpkg").exists()


@pytest.mark.parametrize("alg_id", sorted(EXAMPLES))
def test_every_algorithm_gives_zostats_numbers(processing, tmp_path, alg_id):
    params, cli = EXAMPLES[alg_id]
    swmb = tmp_path / "queen.swmb"
    zostat("weights", "build", "--input", data("columbus.gpkg"), "--id-field", "POLYID", "--output", swmb)
    params = {k: str(swmb) if v == "{swmb}" else v for k, v in params.items()}
    cli = [str(swmb) if v == "{swmb}" else v for v in cli]
    if "WEIGHTS" not in params:
        cli += ["--input", params["INPUT"]]
    alg = QgsApplication.processingRegistry().algorithmById(f"statisticsanalyst:{alg_id}")
    output = alg.parameterDefinition("OUTPUT")
    if isinstance(output, QgsProcessingParameterFeatureSink):
        params["OUTPUT"] = str(tmp_path / "qgis.gpkg")
        cli += ["--output", tmp_path / "zostat.gpkg", "--output-layer", "zostat"]
    elif isinstance(output, QgsProcessingParameterFileDestination):
        extension = output.defaultFileExtension()
        params["OUTPUT"] = str(tmp_path / f"qgis.{extension}")
        if alg_id != "weights_dump":
            cli += ["--output", tmp_path / f"zostat.{extension}"]
    numbers = [o.name() for o in alg.outputDefinitions() if isinstance(o, QgsProcessingOutputNumber)]
    if numbers:
        params["REPORT"] = str(tmp_path / "report.html")
        cli.append("--json")
    printed = zostat(*cli)
    results = processing.run(alg, params)

    if numbers:
        values = json.loads(printed)
        for name in numbers:
            assert results[name] == _lookup(values, name), name
        report = (tmp_path / "report.html").read_text(encoding="utf-8")
        assert all(repr(v) in report for v in _floats(values))  # every number, in full precision
    if isinstance(output, QgsProcessingParameterFeatureSink):
        ours = gpd.read_file(tmp_path / "qgis.gpkg", layer="qgis")
        theirs = gpd.read_file(tmp_path / "zostat.gpkg", layer="zostat")
        pd.testing.assert_frame_equal(pd.DataFrame(ours.drop(columns="geometry", errors="ignore")),
                                      pd.DataFrame(theirs.drop(columns="geometry", errors="ignore")))
        if "geometry" in theirs:
            assert ours.geometry.to_wkb().equals(theirs.geometry.to_wkb())
        layer = QgsVectorLayer(results["OUTPUT"], "result", "ogr")
        renderer = layer.renderer()  # the style saved with the result
        if isinstance(renderer, QgsCategorizedSymbolRenderer):  # a category of its own for each value
            categories = [str(c.value()) for c in renderer.categories()]
            assert len(set(categories)) == len(categories)
            assert {str(v) for v in ours[renderer.classAttribute()]} <= set(categories)
    elif alg_id == "weights_dump":
        assert (tmp_path / "qgis.txt").read_text(encoding="utf-8").strip() == printed.strip()
    elif alg_id == "weights_build":
        assert filecmp.cmp(results["OUTPUT"], tmp_path / "zostat.swmb", shallow=False)


def _lookup(values, output_name):
    """A value of zostat's JSON by the output's name (FIRST_PEAK_DISTANCE: values["first_peak"]["distance"])."""
    key = output_name.lower()
    if key in values:
        return values[key]
    head = next((k for k in values if key.startswith(k + "_")), None)  # None: a value zostat leaves out
    return None if values.get(head) is None else values[head][key[len(head) + 1:]]


def _floats(value):
    if isinstance(value, float):
        yield value
    elif isinstance(value, dict):
        for v in value.values():
            yield from _floats(v)
    elif isinstance(value, list):
        for v in value:
            yield from _floats(v)


KNN6 = {"FIELD": "PRICE", "CONCEPTUALIZATION": 6, "K": 6}


def test_layers_the_library_cannot_open(processing):
    """A memory layer and a filtered layer: QGIS writes what it reads, in its order, for the library."""
    source = QgsVectorLayer(data("baltim.gpkg"), "baltim", "ogr")
    memory = source.materialize(QgsFeatureRequest())
    result = processing.run("statisticsanalyst:hotspot", {**KNN6, "INPUT": memory, "OUTPUT": "TEMPORARY_OUTPUT"})
    expected = sa.hotspot(data("baltim.gpkg"), "PRICE", conceptualization="k-nearest", k=6, progress=False)
    assert [f["Gi_Zscore"] for f in result["OUTPUT"].getFeatures()] == expected["Gi_Zscore"].tolist()

    source.setSubsetString('"PRICE" > 40')
    result = processing.run("statisticsanalyst:hotspot", {**KNN6, "INPUT": source, "OUTPUT": "TEMPORARY_OUTPUT"})
    frame = gpd.read_file(data("baltim.gpkg"))
    expected = sa.hotspot(frame[frame.PRICE > 40], "PRICE", conceptualization="k-nearest", k=6, progress=False)
    assert 0 < len(expected) < len(frame)
    assert [f["Gi_Zscore"] for f in result["OUTPUT"].getFeatures()] == expected["Gi_Zscore"].tolist()


def test_a_cancelled_run_leaves_nothing(processing, tmp_path, monkeypatch):
    scratch = tmp_path / "tmp"
    scratch.mkdir()
    monkeypatch.setattr(tempfile, "tempdir", str(scratch))
    feedback = QgsProcessingFeedback()
    reports = []
    feedback.progressChanged.connect(lambda percent: reports.append(percent) or feedback.cancel())
    out = tmp_path / "hot.gpkg"
    # A million permutations per feature: far longer than the test, unless the cancel stops it.
    with pytest.raises(QgsProcessingException, match="Canceled"):
        processing.run("statisticsanalyst:hotspot", {**KNN6, "INPUT": data("baltim.gpkg"), "PERMUTATIONS": 1000000,
                                                     "OUTPUT": str(out)}, feedback=feedback)
    assert reports and max(reports) < 100
    assert os.listdir(tmp_path) == ["tmp"] and os.listdir(scratch) == []


def test_rendered_hot_spot_map(processing, tmp_path):
    out = tmp_path / "hotspots.gpkg"
    result = processing.run("statisticsanalyst:hotspot", {**KNN6, "INPUT": data("baltim.gpkg"), "OUTPUT": str(out)})
    layer = QgsVectorLayer(result["OUTPUT"], "Hot spots of PRICE", "ogr")  # the style comes with the GeoPackage
    renderer = layer.renderer()
    assert isinstance(renderer, QgsGraduatedSymbolRenderer) and renderer.classAttribute() == "Gi_ConfInvl"
    settings = QgsMapSettings()
    settings.setLayers([layer])
    settings.setDestinationCrs(layer.crs())
    settings.setExtent(layer.extent().buffered(layer.extent().width() * 0.05))
    settings.setOutputSize(QSize(900, 800))
    settings.setBackgroundColor(QColor("white"))
    job = QgsMapRendererParallelJob(settings)
    job.start()
    job.waitForFinished()
    image = job.renderedImage()
    png = os.environ.get("SA_QGIS_PNG", str(tmp_path / "qgis_hotspot.png"))
    assert image.save(png, "PNG")
    # Every bin present is drawn in its colour on our maps.
    drawn = {image.pixelColor(x, y).name() for x in range(image.width()) for y in range(image.height())}
    bins = {f["Gi_ConfInvl"] for f in layer.getFeatures()}
    assert len(bins) >= 3 and {colour for value, _, colour in sa._plot.HOTSPOT_BINS if value in bins} <= drawn
