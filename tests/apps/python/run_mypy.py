"""mypy --strict on the package, configured by pyproject.toml; skipped (exit
77) when mypy is not installed. Arguments: the source tree, a cache folder."""
import importlib.util
import subprocess
import sys

if importlib.util.find_spec("mypy") is None:
    print("mypy is not installed (Debian: python3-mypy), so the type check is skipped")
    sys.exit(77)
source, cache = sys.argv[1:3]
sys.exit(subprocess.run([sys.executable, "-m", "mypy", "--config-file", f"{source}/pyproject.toml", "--cache-dir",
                         cache, f"{source}/apps/python/statisticsanalyst"]).returncode)
