#!/usr/bin/env python3
"""Cancel latency of zostat: for every interruptible run of the hostile
suite's signal cases (tests/hostile/run_hostile.py, SIGNAL_RUNS), the time
from SIGINT to the process's exit.

Usage: bench/cancel_latency.py ZOSTAT [ZOSTAT ...] [--repeat N] [--json] [--full] [--only SUBSTRING] [--timeout S]

Each run starts on the same inputs as the hostile cases (made once, in a
temporary folder), gets SIGINT the same delay after it has its input open,
and is timed from the signal to its exit. Prints per command the median and
the largest latency over N runs (default 3), the exit status and whether
stderr named IMb030. A run still going S seconds (default 120) after its
signal is killed and shows as ">S". --json interrupts the runs under --json
instead of with their progress bar; --full also times one uninterrupted run
of each (slow: gwr alone runs for minutes). Given several zostat binaries (a build before
and after a change), each run is repeated with each binary in turn, so that
they share whatever else loads the machine, and each gets its own line.
"""
import os
import signal
import statistics
import subprocess
import sys
import tempfile
import time
import shutil

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "hostile"))
import run_hostile as hostile  # noqa: E402

DATA = os.path.join(HERE, "..", "data")


def interrupt(zostat, run, inputs, root, json, timeout):
    command, arguments, output, delay = run
    work = tempfile.mkdtemp(dir=root)
    hostile.prepare_signal_folder(work, DATA, output)
    args = [zostat] + hostile.signal_arguments(command, arguments, output, inputs) + (["--json"] if json else [])
    watched = args[args.index("--input") + 1] if "--input" in args else inputs["weights"]
    env = hostile.environment(DATA, zostat, work)
    p, sent = hostile.start_and_signal(args, work, env, os.path.realpath(watched), delay, [signal.SIGINT])
    try:
        _, err = p.communicate(timeout=timeout)
    except subprocess.TimeoutExpired:
        p.kill()
        p.communicate()
        shutil.rmtree(work, ignore_errors=True)
        return float("inf"), "killed", False
    ended = time.monotonic()
    shutil.rmtree(work, ignore_errors=True)
    return (ended - sent if sent else None), p.returncode, "IMb030" in err


def uninterrupted(zostat, run, inputs, root):
    command, arguments, output, _ = run
    work = tempfile.mkdtemp(dir=root)
    hostile.prepare_signal_folder(work, DATA, output)
    args = [zostat] + hostile.signal_arguments(command, arguments, output, inputs) + ["--quiet"]
    start = time.monotonic()
    subprocess.run(args, cwd=work, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, env=dict(os.environ))
    took = time.monotonic() - start
    shutil.rmtree(work, ignore_errors=True)
    return took


def main():
    argv = sys.argv[1:]
    repeat, only, timeout = 3, None, 120.0
    if "--repeat" in argv:
        i = argv.index("--repeat")
        repeat = int(argv[i + 1])
        del argv[i:i + 2]
    if "--timeout" in argv:
        i = argv.index("--timeout")
        timeout = float(argv[i + 1])
        del argv[i:i + 2]
    if "--only" in argv:
        i = argv.index("--only")
        only = argv[i + 1]
        del argv[i:i + 2]
    json, full = "--json" in argv, "--full" in argv
    argv = [a for a in argv if a not in ("--json", "--full")]
    if not argv:
        raise SystemExit(__doc__)
    binaries = [os.path.abspath(a) for a in argv]
    root = tempfile.mkdtemp(prefix="cancel-latency-")
    try:
        inputs = hostile.make_signal_inputs(binaries[0], os.path.join(root, "input"))
        print("%-18s %-3s %9s %9s %6s %7s%s" % ("command", "bin", "median s", "max s", "exit", "IMb030",
                                               "  uninterrupted s" if full else ""))
        shown = lambda t: "%.3f" % t if t != float("inf") else ">%g" % timeout
        for run in hostile.SIGNAL_RUNS:
            if only and only not in run[0]:
                continue
            results = {b: [] for b in binaries}
            for _ in range(repeat):
                for b in binaries:
                    results[b].append(interrupt(b, run, inputs, root, json, timeout))
            for k, b in enumerate(binaries):
                latencies = [r[0] for r in results[b] if r[0] is not None]
                exits = sorted({str(r[1]) for r in results[b]})
                named = all(r[2] for r in results[b])
                line = "%-18s %-3s %9s %9s %6s %7s" % (
                    run[0], "#%d" % (k + 1), shown(statistics.median(latencies)) if latencies else "-",
                    shown(max(latencies)) if latencies else "-", ",".join(exits), "yes" if named else "no")
                if full:
                    line += "  %15.2f" % uninterrupted(b, run, inputs, root)
                print(line, flush=True)
    finally:
        shutil.rmtree(root, ignore_errors=True)


if __name__ == "__main__":
    main()
