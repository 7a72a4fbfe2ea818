"""Maps from zostat (SVG and cairo PNG) and from result.plot()."""
import xml.etree.ElementTree as ET

import numpy as np
import pytest
from PIL import Image

import statisticsanalyst as sa
from statisticsanalyst._plot import CLUSTER_TYPES, HOTSPOT_BINS
from conftest import data, zostat

SVG = "{http://www.w3.org/2000/svg}"


def png_colours(path):
    pixels = np.asarray(Image.open(path).convert("RGB")).reshape(-1, 3)
    return {"#%02x%02x%02x" % tuple(p) for p in np.unique(pixels, axis=0)}


def svg_fills(path):
    root = ET.parse(path).getroot()
    return root, {e.get("fill") for e in root.iter() if e.get("fill")}


@pytest.mark.parametrize("extension", ["png", "svg"])
def test_hotspot_map_from_zostat(tmp_path, extension):
    out = tmp_path / f"hot.{extension}"
    zostat("hotspot", "--input", data("baltim.gpkg"), "--field", "PRICE", "--conceptualization", "k-nearest",
           "--k", "6", "--output", tmp_path / "r.gpkg", "--quiet", "--map", out)
    colours = {colour for _, _, colour in HOTSPOT_BINS}
    if extension == "png":
        assert Image.open(out).size == (1000, 720)
        assert colours <= png_colours(out)
    else:
        root, fills = svg_fills(out)
        assert (root.get("width"), root.get("height")) == ("1000", "720")
        assert colours <= fills
        texts = [t.text for t in root.iter(SVG + "text")]
        assert "Hot spots of PRICE" in texts and "Hot spot - 99% confidence" in texts
        assert "N" not in texts  # no north arrow: the data are not projected
        assert len(list(root.iter(SVG + "circle"))) == 211 + len(HOTSPOT_BINS)


def test_projected_maps_have_scale_bar_and_north_arrow(tmp_path):
    result = tmp_path / "r.gpkg"
    zostat("cluster-outlier", "--input", data("ny8.gpkg"), "--field", "Cases", "--output", result,
           "--output-layer", "c", "--quiet", *["--conceptualization", "contiguity-edges-corners"])
    zostat("map", "--input", result, "--field", "ALMI_Type", "--output", tmp_path / "types.svg", "--quiet")
    zostat("map", "--input", result, "--layer", "c", "--field", "ALMI_Type", "--output", tmp_path / "types.png")
    root, fills = svg_fills(tmp_path / "types.svg")
    texts = [t.text for t in root.iter(SVG + "text")]
    assert "N" in texts and any(t.endswith(" km") for t in texts)
    assert {colour for _, _, colour in CLUSTER_TYPES} <= fills
    assert len(list(root.iter(SVG + "path"))) >= 281
    assert {colour for _, _, colour in CLUSTER_TYPES} <= png_colours(tmp_path / "types.png")
    # A number that is not a class gets a ramp with its range in the legend.
    zostat("map", "--input", result, "--field", "ALMI_Zscore", "--output", tmp_path / "z.svg", "--quiet")
    root, _ = svg_fills(tmp_path / "z.svg")
    assert len(list(root.iter(SVG + "stop"))) == 5


def test_map_failures_leave_no_file(tmp_path):
    run = zostat("map", "--input", data("columbus.gpkg"), "--field", "NOPE", "--output", tmp_path / "m.png",
                 check=False)
    assert run.returncode == 1 and "NOPE" in run.stderr
    run = zostat("hotspot", "--input", data("columbus.gpkg"), "--field", "CRIME", "--output", tmp_path / "r.gpkg",
                 "--map", tmp_path / "m.jpg", "--quiet", check=False)
    assert run.returncode == 1 and ".svg or .png" in run.stderr
    assert sorted(p.name for p in tmp_path.iterdir()) == ["tmp"]


def test_result_plot_draws_the_legend(tmp_path):
    import matplotlib
    matplotlib.use("Agg")
    result = sa.cluster_outlier(data("columbus.gpkg"), "CRIME", conceptualization="contiguity-edges-corners",
                                row_standardize=True, progress=False)
    ax = result.plot(file=tmp_path / "c.png")
    assert ax.get_title() == "Clusters and outliers of CRIME"
    assert [t.get_text() for t in ax.get_legend().get_texts()] == [label for _, label, _ in CLUSTER_TYPES]
    assert {colour for _, _, colour in CLUSTER_TYPES} <= png_colours(tmp_path / "c.png")
    ax = result.plot("ALMI_Zscore", file=tmp_path / "z.svg")
    assert ax.get_legend() is None and (tmp_path / "z.svg").stat().st_size > 0


def test_cluster_ids_get_categories_and_grey_noise(tmp_path):
    import geopandas as gpd
    from statisticsanalyst._plot import CATEGORICAL, NOISE
    frame = gpd.read_file(data("baltim.gpkg"))[["geometry"]]
    frame["Cluster_ID"] = [-1 if i % 5 == 0 else i % 3 for i in range(len(frame))]
    frame.to_file(tmp_path / "clusters.gpkg", driver="GPKG")
    zostat("map", "--input", tmp_path / "clusters.gpkg", "--field", "Cluster_ID", "--output", tmp_path / "c.svg",
           "--quiet")
    root, fills = svg_fills(tmp_path / "c.svg")
    assert set(CATEGORICAL[:3]) | {NOISE} <= fills
    assert [t.text for t in root.iter(SVG + "text")][-4:] == ["0", "1", "2", "Noise"]
    ax = sa.plot_map(frame, "Cluster_ID")
    assert [t.get_text() for t in ax.get_legend().get_texts()] == ["0", "1", "2", "Noise"]


def test_incremental_chart_shows_the_printed_z_scores(tmp_path):
    """The chart read back through its own tick labels: the line passes
    through every printed band, and the first and the highest peak markers
    (orange, red) sit on the printed peaks. The PNG and result.plot() show
    the same peaks."""
    from statisticsanalyst._plot import PEAKS
    colours = {label: colour for _, label, colour in PEAKS}
    args = ["incremental", "--input", data("ny8.gpkg"), "--field", "Cases", "--bands", "30"]
    printed = zostat(*args, "--chart", tmp_path / "c.svg", "--json")
    zostat(*args, "--chart", tmp_path / "c.png", "--quiet")
    root = ET.parse(tmp_path / "c.svg").getroot()
    plain = [t for t in root.iter(SVG + "text") if t.get("font-size") == "12" and t.get("font-weight") is None]
    # Tick labels: under the x axis (centred), left of the y axis (right-aligned, 4 px below the tick).
    xs = [(float(t.text), float(t.get("x"))) for t in plain if t.get("text-anchor") == "middle"]
    ys = [(float(t.text), float(t.get("y")) - 4) for t in plain if t.get("text-anchor") == "end"]

    def scale(ticks):
        (v0, p0), (v1, p1) = ticks[0], ticks[-1]
        return lambda p: v0 + (p - p0) * (v1 - v0) / (p1 - p0)

    to_x, to_y = scale(xs), scale(ys)
    line = max((e for e in root.iter(SVG + "polyline") if e.get("stroke") == "#1f77b4"),
               key=lambda e: len(e.get("points").split()))
    drawn = [(to_x(float(x)), to_y(float(y))) for x, y in (p.split(",") for p in line.get("points").split())]
    expected = [(b["distance"], b["z_score"]) for b in printed["bands"]]
    assert len(drawn) == len(expected) == 30
    for (dx, dz), (ex, ez) in zip(drawn, expected):
        assert dx == pytest.approx(ex, rel=1e-4) and dz == pytest.approx(ez, abs=1e-3)
    right = max(p for _, p in xs)  # the legend lies beyond the plot
    for key, label in (("first_peak", "first peak"), ("max_peak", "highest peak")):
        markers = [c for c in root.iter(SVG + "circle") if c.get("fill") == colours[label] and float(c.get("cx")) <= right]
        assert len(markers) == 1
        peak = printed[key]
        assert to_x(float(markers[0].get("cx"))) == pytest.approx(peak["distance"], rel=1e-4)
        assert to_y(float(markers[0].get("cy"))) == pytest.approx(peak["z_score"], abs=1e-3)
    assert printed["first_peak"] != printed["max_peak"]
    assert Image.open(tmp_path / "c.png").size == (900, 560)
    assert {colours["first peak"], colours["highest peak"]} <= png_colours(tmp_path / "c.png")

    import matplotlib
    matplotlib.use("Agg")
    result = sa.incremental_spatial_autocorrelation(data("ny8.gpkg"), "Cases", bands=30, progress=False)
    ax = result.plot(file=tmp_path / "py.png")
    assert [t.get_text() for t in ax.get_legend().get_texts()] == ["z-score of Moran's I", "first peak",
                                                                  "highest peak"]
    assert {colours["first peak"], colours["highest peak"]} <= png_colours(tmp_path / "py.png")
