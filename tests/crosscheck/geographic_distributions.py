#!/usr/bin/env python3
"""Reference values of the geographic-distribution measures on longitude/latitude
points, for SpatialMeasureTest.GeographicGroupsAreMeasuredAboutTheirOwnCentre.

Computed independently of the library: the points' centre is the direction of
the mean of their unit vectors; pyproj projects them to an azimuthal
equidistant plane about it on WGS 84 (metres); numpy takes the weighted mean
centre, the standard distance and the standard deviational ellipse there, and
Weiszfeld's iteration as the median centre runs it; pyproj takes the centres
back to longitude/latitude.
    python3 tests/crosscheck/geographic_distributions.py
Needs numpy and pyproj (Debian: python3-numpy, python3-pyproj).
"""
import numpy as np
from pyproj import CRS, Transformer


def antimeridian():
    """Twelve points alternately at 179.99 and -179.99, weights 1, 2, 3, 1, ..."""
    pts = [(179.99 if i % 2 == 0 else -179.99, -17 + 0.01 * i) for i in range(12)]
    return np.array(pts), np.array([1.0 + i % 3 for i in range(12)])


def north_pole():
    """Eight points around the north pole, unweighted."""
    pts = [(-170 + 45 * i + (3 if i == 2 else 0), 88.5 + 0.1 * (i % 3)) for i in range(8)]
    return np.array(pts), np.ones(8)


def measure(pts, w):
    lon, lat = np.radians(pts[:, 0]), np.radians(pts[:, 1])
    v = np.stack([np.cos(lat) * np.cos(lon), np.cos(lat) * np.sin(lon), np.sin(lat)], 1).sum(0)
    lon0, lat0 = np.degrees(np.arctan2(v[1], v[0])), np.degrees(np.arctan2(v[2], np.hypot(v[0], v[1])))
    aeqd = CRS.from_proj4(f"+proj=aeqd +lat_0={lat0!r} +lon_0={lon0!r} +x_0=0 +y_0=0 +datum=WGS84 +units=m")
    fwd = Transformer.from_crs("EPSG:4326", aeqd, always_xy=True)
    inv = Transformer.from_crs(aeqd, "EPSG:4326", always_xy=True)
    x, y = (np.array(c) for c in fwd.transform(pts[:, 0], pts[:, 1]))
    W = w.sum()
    mx, my = (w * x).sum() / W, (w * y).sum() / W
    dx, dy = x - mx, y - my
    sd = np.sqrt(((w * dx * dx).sum() + (w * dy * dy).sum()) / W)
    A, B, C = (w * dx * dx).sum(), (w * dy * dy).sum(), (w * dx * dy).sum()
    D, R, E = A - B, np.hypot(A - B, 2 * C), 2 * C
    th = 0.0 if abs(E) < 1e-20 else np.arctan((D - R) / E)
    u, vv = dx * np.cos(th) - dy * np.sin(th), dx * np.sin(th) + dy * np.cos(th)
    sx, sy = np.sqrt(2 * (w * u * u).sum() / W), np.sqrt(2 * (w * vv * vv).sum() / W)
    angle = -(np.degrees(th) + (90 if sy > sx else 0))
    # Weiszfeld from the unweighted mean, as the median centre runs it.
    xmin, xmax, ymin, ymax = x.min(), x.max(), y.min(), y.max()
    big = 1000 * (xmax + (xmax - xmin) / 1000 - xmin) * (ymax - (ymin - (ymax - ymin) / 1000))
    prev = cur = (x.mean(), y.mean())
    for _ in range(1, 100):
        d = np.hypot(x - cur[0], y - cur[1])
        f = np.where(d < 1e-20, big * w, w / np.where(d == 0, 1, d))
        cur = ((f * x).sum() / f.sum(), (f * y).sum() / f.sum())
        if all(abs(c) * 1e-6 + 1e-8 > abs(c - p) for c, p in zip(cur, prev)):
            break
        prev = cur
    return dict(mean=inv.transform(mx, my), median=inv.transform(*prev), sd=sd, axes=(sx, sy), angle=angle)


if __name__ == "__main__":
    for name, (pts, w) in (("antimeridian, weighted", antimeridian()), ("north pole", north_pole())):
        r = measure(pts, w)
        print(name)
        print("  mean centre   %.12f %.12f" % r["mean"])
        print("  median centre %.12f %.12f" % r["median"])
        print("  standard dist %.9f" % r["sd"])
        print("  ellipse axes  %.9f %.9f angle %.12f" % (*r["axes"], r["angle"]))
