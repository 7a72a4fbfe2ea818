import json
import os
import subprocess

import pytest

DATA = os.environ.get("SA_DATA_DIR", os.path.join(os.path.dirname(__file__), "..", "..", "..", "data"))
ZOSTAT = os.environ.get("SA_ZOSTAT", "zostat")


def data(name):
    return os.path.join(DATA, name)


def zostat(*args, check=True):
    """Runs the real zostat binary; with --json the parsed output."""
    run = subprocess.run([ZOSTAT, *map(str, args)], capture_output=True, text=True)
    if check and run.returncode != 0:
        raise AssertionError(f"zostat {' '.join(map(str, args))} failed: {run.stderr}")
    if "--json" in args:
        return json.loads(run.stdout)
    return run


@pytest.fixture(autouse=True)
def private_tmpdir(tmp_path, monkeypatch):
    """Every test gets its own temporary folder as TMPDIR, so a test can
    check that nothing was left behind."""
    scratch = tmp_path / "tmp"
    scratch.mkdir()
    monkeypatch.setenv("TMPDIR", str(scratch))
    import tempfile
    monkeypatch.setattr(tempfile, "tempdir", str(scratch))
    return scratch
