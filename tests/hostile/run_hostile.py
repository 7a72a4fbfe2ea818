#!/usr/bin/env python3
"""Hostile runs of zostat: every row of tests/hostile/*.tsv through the real binary.

Usage: run_hostile.py ZOSTAT DATA_DIR [--only SUBSTRING] [--keep] [--no-signals]

Row format (tab-separated; lines starting with # are comments):
  name  setup  args  exit  id  checks
- setup: bash command run in the case's fresh working folder before the run, or -.
  $DATA (bundled data, read-only), $ZOSTAT and $PY are set.
- args: zostat's arguments, split like a shell would; $DATA is expanded.
- exit: the expected exit status; id: an identifier stderr must contain, or -.
- checks: space-separated, or -:
    exists:PATH  absent:PATH  same:PATH (unchanged byte for byte since setup)
    layers:PATH=a,b (exact layer names GDAL sees)  features:PATH:LAYER=N
    stdout:TEXT (substring)
Every case runs with its working folder as cwd and TMPDIR set to a fresh
folder. A case fails when it leaves any file in TMPDIR, or a file in the
working folder that setup did not make and no check names. A named path also
covers the files of its format beside it that share its stem (a Shapefile's
.shx and .dbf, a CSV file's .csvt).

Besides the rows, the runner interrupts long runs with SIGINT and SIGTERM,
with and without --json, and checks that each stops with exit status 1,
"IMb030" and nothing left behind.
"""
import concurrent.futures
import hashlib
import os
import re
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
RUN_TIMEOUT = 120


def parse_tables(only):
    rows, names = [], set()
    for table in sorted(f for f in os.listdir(HERE) if f.endswith(".tsv")):
        with open(os.path.join(HERE, table), encoding="utf-8") as fh:
            for lineno, line in enumerate(fh, 1):
                line = line.rstrip("\n")
                if not line.strip() or line.lstrip().startswith("#"):
                    continue
                cols = line.split("\t")
                where = "%s:%d" % (table, lineno)
                if len(cols) != 6:
                    raise SystemExit("%s: expected 6 tab-separated columns, found %d" % (where, len(cols)))
                name = cols[0].strip()
                if name in names:
                    raise SystemExit("%s: case name %r is used twice" % (where, name))
                names.add(name)
                if only and only not in name:
                    continue
                rows.append(dict(where=where, name=name, setup=cols[1].strip(), args=cols[2].strip(),
                                 exit=int(cols[3]), id=cols[4].strip(), checks=cols[5].strip()))
    return rows


def list_files(root):
    found = set()
    for base, dirs, files in os.walk(root):
        for entry in files + [d for d in dirs if os.path.islink(os.path.join(base, d))]:
            found.add(os.path.relpath(os.path.join(base, entry), root))
        for d in dirs:
            if not os.listdir(os.path.join(base, d)):
                found.add(os.path.relpath(os.path.join(base, d), root) + "/")
    return found


def digest(path):
    if not os.path.isfile(path):
        return None
    with open(path, "rb") as fh:
        return hashlib.sha256(fh.read()).hexdigest()


def ogr_layers(path):
    out = subprocess.run(["ogrinfo", "-ro", "-q", path], capture_output=True, text=True)
    if out.returncode != 0:
        return None
    names = []
    for line in out.stdout.splitlines():
        m = re.match(r"^\d+: (.*?)(?: \([^()]*\))?$", line.strip())
        if m:
            names.append(m.group(1))
    return names


def ogr_count(path, layer):
    out = subprocess.run(["ogrinfo", "-ro", "-so", path, layer], capture_output=True, text=True)
    m = re.search(r"^Feature Count: (-?\d+)", out.stdout, re.M)
    return int(m.group(1)) if m and out.returncode == 0 else None


def stem(path):
    base = os.path.basename(path)
    return os.path.join(os.path.dirname(path), base.split(".")[0] if not base.startswith(".") else base)


def named_paths(checks):
    paths = []
    for check in checks:
        kind, _, rest = check.partition(":")
        if kind in ("exists", "same"):
            paths.append(rest)
        elif kind == "layers":
            paths.append(rest.split("=")[0])
        elif kind == "features":
            paths.append(rest.split(":")[0])
    return paths


def evaluate(check, work, before, stdout):
    kind, _, rest = check.partition(":")
    path = lambda p: os.path.join(work, p)
    if kind == "exists":
        return None if os.path.lexists(path(rest)) else "%s does not exist" % rest
    if kind == "absent":
        return None if not os.path.lexists(path(rest)) else "%s exists" % rest
    if kind == "same":
        return None if digest(path(rest)) == before.get(rest) else "%s changed" % rest
    if kind == "layers":
        p, _, want = rest.partition("=")
        got = ogr_layers(path(p))
        want = [w for w in want.split(",") if w]
        return None if got == want else "layers of %s are %r, expected %r" % (p, got, want)
    if kind == "features":
        m = re.match(r"^(.*):([^:=]*)=(\d+)$", rest)
        if not m:
            return "malformed check %r" % check
        got = ogr_count(path(m.group(1)), m.group(2))
        want = int(m.group(3))
        return None if got == want else "%s:%s has %r features, expected %d" % (m.group(1), m.group(2), got, want)
    if kind == "stdout":
        return None if rest in stdout else "stdout lacks %r" % rest
    return "unknown check %r" % check


def environment(data, zostat, tmpdir):
    env = dict(os.environ)
    env.update(DATA=data, ZOSTAT=zostat, PY=sys.executable, TMPDIR=tmpdir, LC_ALL="C")
    return env


def run_case(row, zostat, data, root):
    work = os.path.join(root, row["name"])
    tmpdir = os.path.join(root, row["name"] + ".tmp")
    os.makedirs(work)
    os.makedirs(tmpdir)
    env = environment(data, zostat, tmpdir)
    problems = []
    if row["setup"] != "-":
        s = subprocess.run(["bash", "-c", row["setup"]], cwd=work, env=env, capture_output=True, text=True)
        if s.returncode != 0:
            return ["setup failed: " + s.stderr.strip()]
    checks = [] if row["checks"] == "-" else row["checks"].split()
    before = {c[5:]: digest(os.path.join(work, c[5:])) for c in checks if c.startswith("same:")}
    made = list_files(work)
    args = shlex.split(row["args"].replace("$DATA", data))
    try:
        r = subprocess.run([zostat] + args, cwd=work, env=env, capture_output=True, text=True,
                           timeout=RUN_TIMEOUT, stdin=subprocess.DEVNULL)
    except subprocess.TimeoutExpired:
        return ["timed out after %d s" % RUN_TIMEOUT]
    if r.returncode != row["exit"]:
        problems.append("exit %d, expected %d; stderr: %s" % (r.returncode, row["exit"], r.stderr.strip()[:300]))
    if row["id"] != "-" and row["id"] not in r.stderr:
        problems.append("stderr lacks %s: %s" % (row["id"], r.stderr.strip()[:300]))
    if r.returncode != 0 and not re.search(r"\[[A-Z]{2}[a-z]\d{3}\]", r.stderr):
        problems.append("a failure without an identifier: " + r.stderr.strip()[:300])
    for check in checks:
        p = evaluate(check, work, before, r.stdout)
        if p:
            problems.append(p)
    covered = {stem(os.path.normpath(p)) for p in named_paths(checks)}
    for f in sorted(list_files(work) - made):
        if stem(os.path.normpath(f)) not in covered:
            problems.append("left behind in the working folder: " + f)
    for f in sorted(list_files(tmpdir)):
        problems.append("left behind in TMPDIR: " + f)
    return problems


# ---------------------------------------------------------------------------
# Interruption by signals

SIGNAL_POINTS = 50000


def make_points(folder):
    """A GeoPackage of random points with a value field. With 300 neighbours
    a hot spot run over them takes seconds, so the signal always lands inside
    the analysis even on a fast machine."""
    import random
    rng = random.Random(20261123)
    csv = os.path.join(folder, "points.csv")
    with open(csv, "w") as fh:
        fh.write("x,y,v\n")
        for _ in range(SIGNAL_POINTS):
            fh.write("%.3f,%.3f,%.4f\n" % (rng.uniform(0, 1e5), rng.uniform(0, 1e5), rng.gauss(0, 1)))
    gpkg = os.path.join(folder, "points.gpkg")
    subprocess.run(["ogr2ogr", "-q", "-f", "GPKG", gpkg, csv, "-nln", "points", "-a_srs", "EPSG:32630",
                    "-gt", "unlimited", "-lco", "SPATIAL_INDEX=NO",
                    "-oo", "X_POSSIBLE_NAMES=x", "-oo", "Y_POSSIBLE_NAMES=y", "-oo", "AUTODETECT_TYPE=YES"],
                   check=True)
    os.remove(csv)
    return gpkg


def opened(pid, path):
    """Whether process pid has `path` open (it has started reading its input)."""
    try:
        for fd in os.listdir("/proc/%d/fd" % pid):
            try:
                if os.path.realpath(os.readlink("/proc/%d/fd/%s" % (pid, fd))) == path:
                    return True
            except OSError:
                pass
    except OSError:
        pass
    return False


def run_signal_case(name, sig, json, zostat, data, root, points):
    work = os.path.join(root, name)
    tmpdir = os.path.join(root, name + ".tmp")
    os.makedirs(work)
    os.makedirs(tmpdir)
    # The old result must survive an interrupted --overwrite.
    shutil.copy(os.path.join(data, "columbus.gpkg"), os.path.join(work, "out.gpkg"))
    before = digest(os.path.join(work, "out.gpkg"))
    args = [zostat, "hotspot", "--input", points, "--field", "v", "--output", "out.gpkg", "--output-layer",
            "columbus", "--overwrite", "--conceptualization", "k-nearest", "--k", "300"]
    if json:
        args.append("--json")
    p = subprocess.Popen(args, cwd=work, env=environment(data, zostat, tmpdir), stdout=subprocess.PIPE,
                         stderr=subprocess.PIPE, text=True, stdin=subprocess.DEVNULL)
    deadline = time.time() + 20
    while p.poll() is None and not opened(p.pid, os.path.realpath(points)) and time.time() < deadline:
        time.sleep(0.01)
    time.sleep(0.3)  # into the analysis, past opening the input
    if p.poll() is None:
        p.send_signal(sig)
    try:
        out, err = p.communicate(timeout=60)
    except subprocess.TimeoutExpired:
        p.kill()
        return ["did not stop within 60 s of the signal"]
    problems = []
    if p.returncode != 1:
        problems.append("exit %d, expected 1 (the run may have ended before the signal)" % p.returncode)
    if "IMb030" not in err:
        problems.append("stderr lacks IMb030: " + err.strip()[:300])
    if digest(os.path.join(work, "out.gpkg")) != before:
        problems.append("out.gpkg changed")
    for f in sorted(list_files(work) - {"out.gpkg"}):
        problems.append("left behind in the working folder: " + f)
    for f in sorted(list_files(tmpdir)):
        problems.append("left behind in TMPDIR: " + f)
    return problems


def signal_cases(zostat, data, root):
    folder = os.path.join(root, "signal-input")
    os.makedirs(folder)
    points = make_points(folder)
    results = []
    for sig, sname in ((signal.SIGINT, "sigint"), (signal.SIGTERM, "sigterm"), (signal.SIGHUP, "sighup")):
        for json in (False, True):
            if sig == signal.SIGHUP and not json:
                continue
            name = "signal-%s%s" % (sname, "-json" if json else "")
            results.append((name, run_signal_case(name, sig, json, zostat, data, root, points)))
    return results


def main():
    argv = sys.argv[1:]
    only = None
    if "--only" in argv:
        i = argv.index("--only")
        only = argv[i + 1]
        del argv[i:i + 2]
    keep = "--keep" in argv
    signals = "--no-signals" not in argv and (not only or only in "signals")
    argv = [a for a in argv if a not in ("--keep", "--no-signals")]
    if len(argv) != 2:
        raise SystemExit(__doc__)
    zostat, data = os.path.abspath(argv[0]), os.path.abspath(argv[1])
    rows = parse_tables(only)
    root = tempfile.mkdtemp(prefix="hostile-")
    failed = 0
    try:
        with concurrent.futures.ThreadPoolExecutor(max_workers=2) as pool:
            futures = [(row, pool.submit(run_case, row, zostat, data, root)) for row in rows]
            results = [(row["name"] + " (" + row["where"] + ")", f.result()) for row, f in futures]
        if signals:
            results += signal_cases(zostat, data, root)
        for name, problems in results:
            if problems:
                failed += 1
                print("FAIL %s" % name)
                for p in problems:
                    print("     " + p)
        print("%d hostile cases, %d passed, %d failed" % (len(results), len(results) - failed, failed))
    finally:
        if keep:
            print("cases kept in " + root)
        else:
            shutil.rmtree(root, ignore_errors=True)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
