"""statisticsanalyst.distributed on a local Dask cluster of two worker
processes: every result equals one process's to the last bit, a worker killed
mid-run changes nothing, and a cancelled run leaves nothing behind."""
import os
import signal
import threading
import time

import numpy as np
import pytest

from conftest import data

distributed = pytest.importorskip("distributed", reason="Debian's python3-distributed is not installed")
gpd = pytest.importorskip("geopandas")
import statisticsanalyst as sa  # noqa: E402
import statisticsanalyst.distributed as sad  # noqa: E402

CASES = [
    ("baltim.gpkg", "PRICE", {"conceptualization": "k-nearest", "k": 6}),
    ("baltim.gpkg", "PRICE", {"row_standardize": True}),  # inverse distance, the default band
    ("baltim.gpkg", "PRICE", {"conceptualization": "fixed-distance-band", "distance_band": 12.0}),
    ("ny8.gpkg", "Cases", {"conceptualization": "contiguity-edges-corners", "row_standardize": True}),
    ("ny8.gpkg", "Cases", {"conceptualization": "k-nearest", "k": 4}),
]


@pytest.fixture(scope="module")
def client(tmp_path_factory):
    cluster = distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True, dashboard_address=None,
                                       local_directory=str(tmp_path_factory.mktemp("dask")))
    with distributed.Client(cluster) as c:
        yield c
    cluster.close()


def ids(path):
    """The feature ids of a layer, in the order GDAL reads them."""
    from osgeo import ogr
    ds = ogr.Open(str(path))
    return [feature.GetFID() for feature in ds.GetLayer(0)]


def same_layer(one, path, source):
    """The distributed layer holds one process's features, in order, under
    the source's feature ids: geometries and values bit for bit."""
    assert ids(path) == ids(source)
    many = gpd.read_file(path)
    assert list(many.columns) == list(one.columns)
    for column in one.columns:
        if column == "geometry":
            assert list(many.geometry.to_wkb()) == list(one.geometry.to_wkb())
        else:
            assert many[column].tolist() == one[column].tolist(), column


@pytest.mark.parametrize("name, field, weights", CASES)
def test_every_analysis_equals_one_process(client, tmp_path, name, field, weights):
    path = data(name)
    for parts in (2, 5):
        assert sad.moran(client, path, field, partitions=parts, **weights) == sa.moran(path, field, progress=False,
                                                                                     **weights)
        assert (sad.general_g(client, path, field, partitions=parts, **weights) ==
                sa.general_g(path, field, progress=False, **weights))
    for local, one_process in ((sad.hotspot, sa.hotspot), (sad.cluster_outlier, sa.cluster_outlier)):
        output = tmp_path / f"{local.__name__}.gpkg"
        assert local(client, path, field, output=output, **weights) == str(output)
        same_layer(one_process(path, field, progress=False, **weights), output, path)
    assert sorted(os.listdir(tmp_path)) == ["cluster_outlier.gpkg", "hotspot.gpkg", "tmp"]  # no scratch left


def test_a_folder_of_tiles_is_one_dataset(client, tmp_path):
    """Tiles read one after the other: the results of the dataset they were
    cut from, under ids moved by each tile's offset (one more than the
    largest id of the tiles before)."""
    from osgeo import gdal
    tiles = tmp_path / "tiles"
    tiles.mkdir()
    for name, where in (("a.gpkg", "fid <= 100"), ("b.gpkg", "fid > 100")):
        gdal.VectorTranslate(str(tiles / name), data("baltim.gpkg"), options=gdal.VectorTranslateOptions(
            options=["-preserve_fid"], where=where, layerName="baltim"))
    weights = {"conceptualization": "k-nearest", "k": 6}
    assert sad.moran(client, tiles, "PRICE", **weights) == sa.moran(data("baltim.gpkg"), "PRICE", progress=False,
                                                                     **weights)
    output = sad.hotspot(client, tiles, "PRICE", output=tmp_path / "hot.gpkg", **weights)
    one = sa.hotspot(data("baltim.gpkg"), "PRICE", progress=False, **weights)
    assert ids(output) == list(range(1, 101)) + [101 + fid for fid in range(101, 212)]
    many = gpd.read_file(output)
    for column in one.columns:
        assert list(many[column]) == list(one[column]), column


def random_points(path, n, seed=1):
    from osgeo import ogr, osr
    random = np.random.default_rng(seed)
    xy = random.random((n, 2)) * 1000.0
    value = np.sin(xy[:, 0] / 90.0) + random.normal(0, 0.5, n)
    ds = ogr.GetDriverByName("GPKG").CreateDataSource(str(path))
    srs = osr.SpatialReference()
    srs.ImportFromEPSG(3857)
    layer = ds.CreateLayer("points", srs, ogr.wkbPoint)
    layer.CreateField(ogr.FieldDefn("VALUE", ogr.OFTReal))
    layer.StartTransaction()
    for (x, y), v in zip(xy, value):
        feature = ogr.Feature(layer.GetLayerDefn())
        feature.SetField("VALUE", float(v))
        feature.SetGeometry(ogr.CreateGeometryFromWkt(f"POINT ({x} {y})"))
        layer.CreateFeature(feature)
    layer.CommitTransaction()
    ds = None
    return str(path)


def when_parts_run(client, act):
    """Calls act(worker address) from another thread once a worker is busy
    with a part's local statistics."""
    def watch():
        for _ in range(6000):
            for worker, keys in client.processing().items():
                if any("_local" in str(k) for k in keys):
                    act(worker)
                    return
            time.sleep(0.005)
    thread = threading.Thread(target=watch, daemon=True)
    thread.start()
    return thread


def test_a_killed_worker_changes_nothing(client, tmp_path):
    path = random_points(tmp_path / "points.gpkg", 40000)
    weights = {"conceptualization": "k-nearest", "k": 8}
    pids = client.run(os.getpid)
    watcher = when_parts_run(client, lambda worker: os.kill(pids[worker], signal.SIGKILL))
    output = sad.hotspot(client, path, "VALUE", output=tmp_path / "hot.gpkg", partitions=4, **weights)
    watcher.join()
    assert set(client.run(os.getpid).values()) != set(pids.values())  # a worker did die (and came back)
    same_layer(sa.hotspot(path, "VALUE", progress=False, **weights), output, path)


def test_a_cancelled_run_leaves_nothing(client, tmp_path):
    import _thread
    path = random_points(tmp_path / "points.gpkg", 40000)
    watcher = when_parts_run(client, lambda worker: _thread.interrupt_main())
    with pytest.raises(KeyboardInterrupt):
        sad.cluster_outlier(client, path, "VALUE", output=tmp_path / "clusters.gpkg", conceptualization="k-nearest",
                            k=8)
    watcher.join()
    assert sorted(os.listdir(tmp_path)) == ["points.gpkg", "tmp"]


def test_what_needs_the_whole_dataset_is_refused(client, tmp_path):
    with pytest.raises(sa.StatisticsAnalystError) as refused:
        sad.moran(client, data("baltim.gpkg"), "PRICE", conceptualization="zone-of-indifference", distance_band=10.0)
    assert "ESa110" in refused.value.ids
    sa.hotspot(data("baltim.gpkg"), "PRICE", output=tmp_path / "taken.gpkg", progress=False)
    before = (tmp_path / "taken.gpkg").read_bytes()
    with pytest.raises(sa.StatisticsAnalystError) as taken:
        sad.hotspot(client, data("baltim.gpkg"), "PRICE", output=tmp_path / "taken.gpkg")
    assert "EUa010" in taken.value.ids
    assert sorted(os.listdir(tmp_path)) == ["taken.gpkg", "tmp"]
    assert (tmp_path / "taken.gpkg").read_bytes() == before
