"""`pip install --no-build-isolation --no-index` of the source tree into a
fresh virtual environment (with the system's packages, for GDAL's bindings
and GeoPandas), then the installed package imported from outside the tree:
it must load the library it carries, not the build tree's, and compute what
zostat computes. Everything happens in one temporary folder, removed on
every exit (a signal from CTest's timeout included).

Arguments: source tree, data folder, zostat, and a configured CMake build
tree whose _core is reused (setup.py's STATISTICSANALYST_CMAKE_BUILD), so
the check does not compile the library a second time."""
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile

source, data, zostat, build = sys.argv[1:5]


def stop(signum, frame):
    raise SystemExit(f"stopped by signal {signum}")


signal.signal(signal.SIGTERM, stop)
signal.signal(signal.SIGHUP, stop)

CHECK = """
import json, os, sys
import statisticsanalyst as sa
package = os.path.dirname(sa.__file__)
assert package.startswith(sys.prefix) and not package.startswith(sys.argv[2]), package
assert os.path.exists(os.path.join(package, "py.typed")) and os.path.exists(os.path.join(package, "_core.pyi"))
mapped = {line.split()[-1] for line in open("/proc/self/maps") if "libStatisticsAnalyst" in line}
assert mapped and {os.path.dirname(path) for path in mapped} == {package}, mapped
result = sa.moran(os.path.join(sys.argv[1], "columbus.gpkg"), "CRIME", conceptualization="contiguity-edges-corners",
                  row_standardize=True, progress=False)
print(json.dumps(result.to_dict()))
"""

with tempfile.TemporaryDirectory(prefix="statisticsanalyst-pip-") as folder:
    # A copy of the sources, as a fresh checkout would be: setuptools writes
    # its build folders and metadata there, not into the working tree.
    def ignored(directory, names):
        top = os.path.samefile(directory, source)
        return [n for n in names if n == ".git" or (top and (n.startswith("build") or n in ("data", "bench")))]

    tree = os.path.join(folder, "source")
    shutil.copytree(source, tree, ignore=ignored, symlinks=True)
    venv = os.path.join(folder, "venv")
    subprocess.run([sys.executable, "-m", "venv", "--system-site-packages", venv], check=True)
    python = os.path.join(venv, "bin", "python")
    env = {k: v for k, v in os.environ.items() if k not in ("PYTHONPATH", "LD_LIBRARY_PATH")}
    subprocess.run([python, "-m", "pip", "install", "--quiet", "--no-build-isolation", "--no-index", tree], check=True,
                   env=dict(env, STATISTICSANALYST_CMAKE_BUILD=build))
    run = subprocess.run([python, "-c", CHECK, data, build], cwd=folder, env=env, capture_output=True, text=True)
    if run.returncode != 0:
        sys.exit(f"the installed package failed:\n{run.stderr}")
    expected = subprocess.run([zostat, "moran", "--input", os.path.join(data, "columbus.gpkg"), "--field", "CRIME",
                               "--conceptualization", "contiguity-edges-corners", "--row-standardize", "--json"],
                              check=True, capture_output=True, text=True).stdout
    if json.loads(run.stdout) != json.loads(expected):
        sys.exit(f"the installed package computes {run.stdout}, zostat {expected}")
print("installed with pip into a fresh virtual environment: imports and computes what zostat computes")
