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

Besides the rows, the runner interrupts a long run of every command that
analyses (SIGNAL_RUNS) with SIGINT, and with SIGTERM under --json (hot spots
also with SIGHUP), and a few with two signals at once; each must stop with
exit status 1 and "IMb030", leave its old output as it was and nothing
behind. --only signal-dbscan runs the signal cases whose names contain
that, --only signals all of them; --no-signals leaves them out.
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
SIGNAL_MANY = 400000
SIGNAL_LINES = 200000


def make_points(folder, name, count):
    """A GeoPackage of `count` random points in a 100 km square with fields v
    (normal), w (uniform 0..10, for General G) and g (groups of four)."""
    import random
    rng = random.Random(20261123 + count)
    csv = os.path.join(folder, name + ".csv")
    with open(csv, "w") as fh:
        fh.write("x,y,v,w,g\n")
        for i in range(count):
            fh.write("%.3f,%.3f,%.4f,%.4f,%d\n" % (rng.uniform(0, 1e5), rng.uniform(0, 1e5), rng.gauss(0, 1),
                                                  rng.uniform(0, 10), i // 4))
    gpkg = os.path.join(folder, name + ".gpkg")
    subprocess.run(["ogr2ogr", "-q", "-f", "GPKG", gpkg, csv, "-nln", "points", "-a_srs", "EPSG:32630",
                    "-gt", "unlimited", "-lco", "SPATIAL_INDEX=NO",
                    "-oo", "X_POSSIBLE_NAMES=x", "-oo", "Y_POSSIBLE_NAMES=y", "-oo", "AUTODETECT_TYPE=YES"],
                   check=True)
    os.remove(csv)
    return gpkg


def make_lines(folder, count):
    """A GeoPackage of `count` short random lines with a field g (groups of four)."""
    import random
    rng = random.Random(7)
    csv = os.path.join(folder, "lines.csv")
    with open(csv, "w") as fh:
        fh.write("wkt,g\n")
        for i in range(count):
            x, y = rng.uniform(0, 1e5), rng.uniform(0, 1e5)
            fh.write('"LINESTRING (%.2f %.2f,%.2f %.2f)",%d\n'
                     % (x, y, x + rng.uniform(-500, 500), y + rng.uniform(-500, 500), i // 4))
    gpkg = os.path.join(folder, "lines.gpkg")
    subprocess.run(["ogr2ogr", "-q", "-f", "GPKG", gpkg, csv, "-nln", "lines", "-a_srs", "EPSG:32630",
                    "-nlt", "LINESTRING", "-lco", "SPATIAL_INDEX=NO", "-oo", "GEOM_POSSIBLE_NAMES=wkt",
                    "-oo", "KEEP_GEOM_COLUMNS=NO", "-oo", "AUTODETECT_TYPE=YES"], check=True)
    os.remove(csv)
    return gpkg


def make_signal_inputs(zostat, folder):
    """The inputs of SIGNAL_RUNS, by the names the runs use."""
    os.makedirs(folder, exist_ok=True)
    inputs = dict(points=make_points(folder, "points", SIGNAL_POINTS),
                  many=make_points(folder, "many", SIGNAL_MANY),
                  lines=make_lines(folder, SIGNAL_LINES))
    inputs["weights"] = os.path.join(folder, "k30.swmb")
    subprocess.run([zostat, "weights", "build", "--quiet", "--input", inputs["points"], "--id-field", "QlID",
                    "--output", inputs["weights"], "--conceptualization", "k-nearest", "--k", "30"],
                   check=True, stdout=subprocess.DEVNULL, env=dict(os.environ, LC_ALL="C"))
    return inputs


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


# The runs a signal interrupts: every command that runs an analysis, with
# arguments that make it take seconds here, or as long as its input allows.
#   (command, arguments, output, delay)
# {points}: 50,000 points (fields v, w, g); {many}: 400,000 such points;
# {lines}: 200,000 short lines (field g); {weights}: a k-nearest (k 30)
# weights file of {points}. output: "layer" writes the layer "columbus" into
# out.gpkg, which holds a layer of that name already, with --overwrite; "file"
# writes over out.swmb with --overwrite; "map" draws over out.svg with
# --overwrite; None writes nothing. The old output
# must come through an interruption unchanged. delay: seconds from the moment
# the run has its input open to the signal.
#
# The geographic distributions, ann and directional-mean are linear in the
# features and run for about a second even on {many} (the reading pass
# polls every record, so a signal still stops them at once); they get their
# signal 0.1 s after opening the input. Left out because they cannot be
# interrupted: "info" (reads the layer's description only), "weights dump"
# (prints a file without a progress object) and "weights show" (at most 46,340 features, which it shows in
# well under a second for a band that lists them in a feasible size).
SIGNAL_RUNS = [
    ("hotspot", "--input {points} --field v --conceptualization k-nearest --k 300", "layer", 0.3),
    ("cluster-outlier", "--input {points} --field v --conceptualization k-nearest --k 300", "layer", 0.3),
    ("moran", "--input {points} --field v --conceptualization k-nearest --k 300", None, 0.3),
    ("general-g", "--input {points} --field w --conceptualization k-nearest --k 300", None, 0.3),
    ("incremental", "--input {points} --field v --begin-distance 1000 --increment 80 --bands 50 --chart c.png",
     "layer", 0.3),
    ("optimized-hotspot", "--input {points}", "layer", 0.3),
    ("ann", "--input {many}", None, 0.1),
    ("dbscan", "--input {points} --min-points 300", "layer", 0.3),
    ("hdbscan", "--input {points} --min-points 300", "layer", 0.3),
    ("optics", "--input {points} --min-points 300", "layer", 0.3),
    ("ols", "--input {points} --dependent v --explanatory w --conceptualization k-nearest --k 300", "layer", 0.3),
    ("gwr", "--input {points} --dependent v --explanatory w", "layer", 0.3),
    ("weights build", "--input {points} --id-field QlID --conceptualization k-nearest --k 300", "file", 0.3),
    ("weights to-table", "--weights {weights}", "layer", 0.3),
    ("mean-center", "--input {many} --case-field g", "layer", 0.1),
    ("median-center", "--input {many} --case-field g", "layer", 0.1),
    ("central-feature", "--input {many} --case-field g", "layer", 0.1),
    ("standard-distance", "--input {many} --case-field g", "layer", 0.1),
    ("ellipse", "--input {many} --case-field g", "layer", 0.1),
    ("directional-mean", "--input {lines} --case-field g", "layer", 0.1),
    ("map", "--input {many} --field v", "map", 0.3),
]


def signal_arguments(command, arguments, output, inputs):
    args = command.split() + shlex.split(arguments.format(**inputs))
    if output == "layer":
        args += ["--output", "out.gpkg", "--output-layer", "columbus", "--overwrite"]
    elif output == "file":
        args += ["--output", "out.swmb", "--overwrite"]
    elif output == "map":
        args += ["--output", "out.svg", "--overwrite"]
    return args


def prepare_signal_folder(work, data, output):
    """The old output the run must leave as it was: its name and digest."""
    if output == "layer":
        shutil.copy(os.path.join(data, "columbus.gpkg"), os.path.join(work, "out.gpkg"))
        return "out.gpkg"
    if output == "file":
        with open(os.path.join(work, "out.swmb"), "wb") as fh:
            fh.write(b"an older weights file\n")
        return "out.swmb"
    if output == "map":
        with open(os.path.join(work, "out.svg"), "w") as fh:
            fh.write("<svg xmlns='http://www.w3.org/2000/svg'/>\n")
        return "out.svg"
    return None


def start_and_signal(args, work, env, watched, delay, signals, together=False):
    """Starts zostat, waits until it has `watched` open, then `delay`
    seconds, and sends `signals`. Returns the process and the time the first
    signal went (None when it ended before). `together`: the process is
    stopped while they are sent, so that all of them arrive before it can
    act on the first (a second Ctrl-C pressed at once, made deterministic)."""
    p = subprocess.Popen(args, cwd=work, env=env, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                         stdin=subprocess.DEVNULL)
    deadline = time.time() + 20
    while p.poll() is None and not opened(p.pid, watched) and time.time() < deadline:
        time.sleep(0.005)
    time.sleep(delay)
    sent = None
    if p.poll() is None:
        if together:
            p.send_signal(signal.SIGSTOP)
        for sig in signals:
            p.send_signal(sig)
        sent = time.monotonic()
        if together:
            p.send_signal(signal.SIGCONT)
    return p, sent


def run_signal_case(name, run, signals, json, zostat, data, root, inputs):
    command, arguments, output, delay = run
    work = os.path.join(root, name)
    tmpdir = os.path.join(root, name + ".tmp")
    os.makedirs(work)
    os.makedirs(tmpdir)
    old = prepare_signal_folder(work, data, output)
    before = digest(os.path.join(work, old)) if old else None
    args = [zostat] + signal_arguments(command, arguments, output, inputs) + (["--json"] if json else [])
    first = args[args.index("--input") + 1] if "--input" in args else inputs["weights"]
    p, sent = start_and_signal(args, work, environment(data, zostat, tmpdir), os.path.realpath(first), delay,
                               signals, len(signals) > 1)
    try:
        out, err = p.communicate(timeout=60)
    except subprocess.TimeoutExpired:
        p.kill()
        p.communicate()
        return ["did not stop within 60 s of the signal"]
    problems = []
    if sent is None or p.returncode != 1:
        problems.append("exit %d, expected 1 (the run may have ended before the signal)" % p.returncode)
    if "IMb030" not in err:
        problems.append("stderr lacks IMb030: " + err.strip()[:300])
    if len(signals) > 1 and "second signal" not in err:
        problems.append("not stopped at once by the second signal: " + err.strip()[:300])
    if old and digest(os.path.join(work, old)) != before:
        problems.append(old + " changed")
    for f in sorted(list_files(work) - ({old} if old else set())):
        problems.append("left behind in the working folder: " + f)
    for f in sorted(list_files(tmpdir)):
        problems.append("left behind in TMPDIR: " + f)
    return problems


def signal_cases(zostat, data, root, only):
    inputs = make_signal_inputs(zostat, os.path.join(root, "signal-input"))
    runs = {run[0]: run for run in SIGNAL_RUNS}
    cases = []
    # hot spot analysis with every signal zostat stops on, with and without --json
    for sig, sname in ((signal.SIGINT, "sigint"), (signal.SIGTERM, "sigterm"), (signal.SIGHUP, "sighup")):
        for json in (False, True):
            if sig == signal.SIGHUP and not json:
                continue
            cases.append(("signal-hotspot-%s%s" % (sname, "-json" if json else ""), runs["hotspot"], [sig], json))
    # every other command: SIGINT with its progress bar, SIGTERM with --json
    for run in SIGNAL_RUNS[1:]:
        slug = run[0].replace(" ", "-")
        cases.append(("signal-%s-sigint" % slug, run, [signal.SIGINT], False))
        # map prints one line and has no --json: its SIGTERM case runs without it
        json = run[0] != "map"
        cases.append(("signal-%s-sigterm%s" % (slug, "-json" if json else ""), run, [signal.SIGTERM], json))
    # A second signal ends the run at once, and still removes what the run
    # had made: the scratch folder beside the output, a temporary weights
    # file in TMPDIR (hot spots over a memory budget of 1 MB), a weights
    # file built beside its target.
    # (The hot spot run writes its weights file from about 0.5 s on.)
    budget = ("hotspot", runs["hotspot"][1] + " --memory-budget 1", "layer", 1.0)
    for run in (budget, runs["dbscan"], runs["weights build"]):
        slug = run[0].replace(" ", "-")
        cases.append(("signal-twice-%s" % slug, run, [signal.SIGINT, signal.SIGTERM], False))
    cases = [c for c in cases if not only or only in c[0]]
    # Two at a time: the machine has two cores, and each case runs until its signal.
    with concurrent.futures.ThreadPoolExecutor(max_workers=2) as pool:
        futures = [(c[0], pool.submit(run_signal_case, c[0], c[1], c[2], c[3], zostat, data, root, inputs))
                   for c in cases]
        return [(name, f.result()) for name, f in futures]


def main():
    argv = sys.argv[1:]
    only = None
    if "--only" in argv:
        i = argv.index("--only")
        only = argv[i + 1]
        del argv[i:i + 2]
    keep = "--keep" in argv
    signals = "--no-signals" not in argv
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
        # --only sig / signal / signals: every signal case; --only signal-NAME: those so named.
        if signals and (not only or "signals".startswith(only) or only.startswith("signal-")):
            results += signal_cases(zostat, data, root, only if only and only.startswith("signal-") else None)
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
