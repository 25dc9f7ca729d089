#!/usr/bin/env python3
"""The fits on the shared data pairs and on generated pairs of three
target densities, through zwelk-batch; prints a Markdown table of stage
times, peak memory and distances. The classic fit (the double-precision
reference with a direct solve) runs on the shared pairs and the stylised
demo, beside the fast and cartoon fits of the same run.

    bench/fitting/fit_bench.py [--build build] [--data ../shared/data] [--skip-demo]
                               [--engines fast,cartoon,classic] [--settings FILE.ini]

Given one or more research programs (--spare, --fast-rnrr, --amm-nrr,
--meshmonk: paths of their binaries, built outside the project by
bench/fitting/peers/build_peers.sh, which prints these options), it instead runs them beside our fits of the
same run on every shared pair: each program timed as a whole process, each
result measured by build/bench/fit_measure (CGAL distances both ways in % of
the target's box diagonal, added fold-overs), and prints that table with the
ratios peer time / our time, then the goals per pair. Each pair's first row
measures the basemesh as it starts; a result that lies no nearer the target
than that (forward RMS at least 95 % of the start's) counts as no fit.

    bench/fitting/fit_bench.py --spare PATH --fast-rnrr PATH --amm-nrr PATH --meshmonk PATH
                               [--engines fast,cartoon] [--pairs a,b] [--peer-threads 2] [--peer-timeout 600]
                               [--repeat 3]

With --repeat N every program runs N times per pair, in turn, and the table
gives its best time.
"""
import argparse
import json
import os
import shutil
import subprocess
import sys
import tempfile
import time

# (name, basemesh, target, ground truth with the basemesh's topology or None)
PAIRS = [
    ("amm-cat", "amm-cat/source.obj", "amm-cat/target.obj", None),
    ("spare-bear", "spare-bear/source.obj", "spare-bear/target.obj", "spare-bear/target.obj"),
    ("fastrnrr-human", "fastrnrr-human/source.obj", "fastrnrr-human/target_mesh.obj", "fastrnrr-human/whole_target.obj"),
    ("meshmonk-face", "meshmonk-face/Template_Rigidly_Aligned.obj", "meshmonk-face/DemoFace_10K.obj", None),
    ("amm-human-partial", "amm-human-partial/source.obj", "amm-human-partial/target.obj", None),
    ("spare-rabbit", "spare-rabbit/source.obj", "spare-rabbit/target.obj", None),
    # A production face basemesh (quads, separate eyes, teeth and lashes) onto an identity morph.
    ("ict-face", "ict-face/generic_neutral_mesh.obj", "ict-face/identity000.obj", "ict-face/identity000.obj"),
    # Bodies 01 and 09 overlap where they lie; the demo's other pairs need a similarity first.
    ("bcpd-bodies 01-09", "bcpd-bodies/01.obj", "bcpd-bodies/09.obj", None),
]
DEMO = [("demo 38k v -> 82k tri", 80, 6), ("demo 38k v -> 1.3M tri", 80, 8), ("demo 38k v -> 5.2M tri", 80, 9)]


SETTINGS = []


def welk(batch, base, target, workdir, engine="fast"):
    out = os.path.join(workdir, "out.obj")
    report = os.path.join(workdir, "report.json")
    run = subprocess.run([batch, "welk", "--base", base, "--target", target, "-o", out, "--report", report,
                          "--engine", engine] + SETTINGS, capture_output=True, text=True)
    if run.returncode != 0:
        raise RuntimeError(run.stderr)
    with open(report) as f:
        return json.load(f)


def vertices(path):
    with open(path) as f:
        return [[float(x) for x in line.split()[1:4]] for line in f if line.startswith("v ")]


def ground_truth(result, truth):
    """Mean and RMS of the per-vertex distances to a same-topology truth."""
    a, b = vertices(result), vertices(truth)
    if len(a) != len(b):
        return None
    d = [sum((x - y) ** 2 for x, y in zip(p, q)) ** 0.5 for p, q in zip(a, b)]
    return sum(d) / len(d), (sum(x * x for x in d) / len(d)) ** 0.5


def diagonal(path):
    lo, hi = [float("inf")] * 3, [float("-inf")] * 3
    with open(path) as f:
        for line in f:
            if line.startswith("v "):
                p = [float(x) for x in line.split()[1:4]]
                lo = [min(a, b) for a, b in zip(lo, p)]
                hi = [max(a, b) for a, b in zip(hi, p)]
    return sum((b - a) ** 2 for a, b in zip(lo, hi)) ** 0.5


def row(name, r, diag, truth=None):
    s = r["seconds"]
    levels = [s[k] for k in sorted(s) if k.startswith("Welking (")]
    total = s["load"] + s["graph levels"] + s["fit"]
    f, b = r["resultToTarget"], r["targetToResult"]
    pct = lambda x: 100.0 * x / diag
    return (f"| {name} | {r['baseVertices']} | {r['targetTriangles']} | {s['load']:.2f} | {s['graph levels']:.2f} | "
            f"{' / '.join(f'{t:.2f}' for t in levels)} | {total:.2f} | {r['peakResidentMB']:.0f} | "
            f"{pct(f['mean']):.3f} / {pct(f['rms']):.3f} / {pct(f['p95']):.3f} / {pct(f['max']):.2f} | "
            f"{pct(b['mean']):.3f} / {pct(b['rms']):.3f} / {pct(b['p95']):.3f} / {pct(b['max']):.2f} | "
            f"{r['foldOvers']['added']} | {'-' if truth is None else f'{truth[0]:.4f} / {truth[1]:.4f}'} |")


# name, option, how the program is called and where it writes its result
PEERS = [
    ("SPARE", "spare", lambda exe, src, tgt, d: [exe, src, tgt, os.path.join(d, "out")], "out_res.ply"),
    ("Fast_RNRR", "fast_rnrr", lambda exe, src, tgt, d: [exe, src, tgt, os.path.join(d, "out")], "outres.obj"),
    ("AMM_NRR", "amm_nrr", lambda exe, src, tgt, d: [exe, src, tgt, os.path.join(d, "out")], "outres.obj"),
    ("MeshMonk", "meshmonk", lambda exe, src, tgt, d: [exe, src, tgt, os.path.join(d, "out.obj")], "out.obj"),
]


def timed(command, env=None, timeout=None, cwd=None):
    """Wall seconds of the whole process, its exit code and its error output."""
    start = time.perf_counter()
    try:
        run = subprocess.run(command, capture_output=True, text=True, env=env, timeout=timeout, cwd=cwd)
    except subprocess.TimeoutExpired:
        return time.perf_counter() - start, None, f"stopped after {timeout} s"
    return time.perf_counter() - start, run.returncode, run.stderr


def measure(tool, source, target, result):
    """fit_measure's figures, or the reason there is no fit."""
    if not os.path.exists(result):
        return None, "no result file"
    run = subprocess.run([tool, source, target, result], capture_output=True, text=True)
    if run.returncode != 0:
        return None, run.stderr.strip().splitlines()[-1] if run.stderr.strip() else f"exit {run.returncode}"
    return json.loads(run.stdout), None


def judged_start(figures, failure, start):
    """A result that lies no nearer the target than the basemesh did is no
    fit (a program can write its input back unchanged and exit 0); it counts
    as a failure, not as a time to compare with."""
    if figures is None or start is None or figures["fwdRms"] < 0.95 * start["fwdRms"]:
        return figures, failure
    return None, (f"no fit: the result lies no nearer the target than the basemesh "
                  f"(fwd RMS {figures['fwdRms']:.3f}, {start['fwdRms']:.3f} at the start)")


def load_average():
    return " / ".join(f"{x:.2f}" for x in os.getloadavg())


def compare_with_peers(args, batch, engines, peers):
    """Our fits and the research programs on every shared pair, in one run."""
    tool = os.path.join(args.build, "bench/fit_measure")
    if not os.path.exists(tool):
        sys.exit(f"{tool} is missing: build the fit_measure target (needs libcgal-dev)")
    env = dict(os.environ, OMP_NUM_THREADS=str(args.peer_threads))
    label = lambda engine: f"ZWelk {engine}"
    print(f"load average (1 / 5 / 15 min) at the start: {load_average()}; "
          f"best of {args.repeat} run{'s' if args.repeat > 1 else ''} per program\n")
    print("| pair | program | whole s | fwd RMS, % diag | back RMS, % diag | added folds | "
          + " | ".join(f"time / {label(e)}" for e in engines) + " |")
    print("|---|---|---|---|---|---|" + "---|" * len(engines))
    verdicts = []
    with tempfile.TemporaryDirectory() as work:
        for name, base, target, _ in PAIRS:
            src, tgt = (os.path.abspath(os.path.join(args.data, f)) for f in (base, target))
            if not (os.path.exists(src) and os.path.exists(tgt)):
                continue
            start, _ = measure(tool, src, tgt, src)
            # Every program of the pair, run in turn, --repeat times over:
            # each keeps its best time, so that a moment of load on the
            # machine weighs on every program alike, not on whichever ran then.
            programs = []  # (label, command, env, folder, result file)
            for engine in engines:
                folder = os.path.join(work, f"{name}-{engine}")
                os.makedirs(folder)
                out = os.path.join(folder, "out.obj")
                programs.append((label(engine), [batch, "welk", "--base", src, "--target", tgt, "-o", out,
                                                 "--engine", engine] + SETTINGS, None, None, out))
            for peer, option, command, result in peers:
                folder = os.path.join(work, f"{name}-{option}")
                os.makedirs(folder)
                programs.append((peer, command(os.path.abspath(getattr(args, option)), src, tgt, folder), env,
                                 folder, os.path.join(folder, result)))
            best = [None] * len(programs)
            ends = [None] * len(programs)  # (exit code, error output) of the last run
            for _ in range(args.repeat):
                for i, (program, command, program_env, folder, result) in enumerate(programs):
                    if ends[i] is not None and ends[i][0] is None:
                        continue  # stopped at the time limit once: not again
                    timeout = args.peer_timeout if program_env is not None else None
                    seconds, code, err = timed(command, env=program_env, timeout=timeout, cwd=folder)
                    best[i] = seconds if best[i] is None else min(best[i], seconds)
                    ends[i] = (code, err)
            rows = []  # (program, seconds or None, figures or None, failure)
            for i, (program, command, program_env, folder, result) in enumerate(programs):
                code, err = ends[i]
                if program_env is None:  # ours
                    figures, failure = (measure(tool, src, tgt, result) if code == 0
                                        else (None, f"exit {code}: {err.strip()}"))
                else:
                    figures, failure = measure(tool, src, tgt, result) if code is not None else (None, err)
                    if failure and code:
                        failure = f"exit {code}; {failure}"
                figures, failure = judged_start(figures, failure, start)
                rows.append((program, best[i], figures, failure))
                if folder:
                    shutil.rmtree(folder, ignore_errors=True)
            ours = {engine: rows[i][1] for i, engine in enumerate(engines)}
            if start is not None:
                print(f"| {name} | the basemesh as it starts | | {start['fwdRms']:.3f} | {start['backRms']:.3f} | "
                      f"| {' | '.join('' for _ in engines)} |", flush=True)
            for program, seconds, figures, failure in rows:
                ratios = " | ".join(f"{seconds / ours[e]:.2f}x" for e in engines)
                if figures is None:
                    print(f"| {name} | {program} | {seconds:.2f} | fails: {failure} | | | {ratios} |", flush=True)
                else:
                    print(f"| {name} | {program} | {seconds:.2f} | {figures['fwdRms']:.3f} | "
                          f"{figures['backRms']:.3f} | {figures['addedFolds']} | {ratios} |", flush=True)
            verdicts.append((name, rows))
    print(f"\nload average (1 / 5 / 15 min) at the end: {load_average()}\n")
    print_goals(verdicts, engines, label)


def print_goals(verdicts, engines, label):
    """Per pair and fit: whole process >= 3x faster than SPARE and faster than
    Fast_RNRR, fwd and back no worse than the best peer's, no added folds."""
    print("| pair | fit | SPARE time / ours (goal >= 3) | Fast_RNRR time / ours (goal > 1) | "
          "fwd vs best peer | back vs best peer | added folds (goal 0) |")
    print("|---|---|---|---|---|---|---|")
    for name, rows in verdicts:
        peers = [r for r in rows if not r[0].startswith("ZWelk")]
        fitted = [r for r in peers if r[2] is not None]
        best_fwd = min((r[2]["fwdRms"] for r in fitted), default=None)
        best_back = min((r[2]["backRms"] for r in fitted), default=None)
        by_name = {r[0]: r for r in peers}
        for engine in engines:
            program, seconds, figures, failure = next(r for r in rows if r[0] == label(engine))
            if figures is None:
                print(f"| {name} | {engine} | fails: {failure} | | | | |")
                continue

            def ratio(peer, goal):
                r = by_name.get(peer)
                if r is None:
                    return "not run"
                if r[2] is None:
                    return f"the peer fails ({r[1]:.2f} s)"
                return f"{r[1] / seconds:.2f}x {'met' if r[1] / seconds >= goal else 'MISSED'}"

            def against(key, best):
                if best is None:
                    return "no peer fits"
                mine = figures[key]
                return f"{mine:.3f} vs {best:.3f} {'met' if mine <= best else 'MISSED'}"

            folds = figures["addedFolds"]
            print(f"| {name} | {engine} | {ratio('SPARE', 3.0)} | {ratio('Fast_RNRR', 1.0000001)} | "
                  f"{against('fwdRms', best_fwd)} | {against('backRms', best_back)} | "
                  f"{folds} {'met' if folds <= 0 else 'MISSED'} |")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", default="build")
    parser.add_argument("--data", default=os.path.join(os.path.dirname(__file__), "../../../shared/data"))
    parser.add_argument("--skip-demo", action="store_true")
    parser.add_argument("--engines", default="fast,cartoon,classic",
                        help="comma-separated engines for the shared pairs and the stylised demo")
    parser.add_argument("--settings", help="a fit settings file for every fit (Repair_folds=false and "
                        "Reject_worse_rounds=false give the fits without their guards)")
    for _, option, _, _ in PEERS:
        parser.add_argument("--" + option.replace("_", "-"), metavar="PATH",
                            help="a research program's binary to run beside our fits")
    parser.add_argument("--pairs", help="comma-separated names of the shared pairs to run (default: all)")
    parser.add_argument("--peer-threads", type=int, default=2, help="OMP_NUM_THREADS for the research programs")
    parser.add_argument("--peer-timeout", type=float, default=600, help="seconds before a peer's run is stopped")
    parser.add_argument("--repeat", type=int, default=1, help="runs of every program per pair, in turn; the table "
                        "gives each program's best time")
    args = parser.parse_args()
    if args.pairs:
        wanted = args.pairs.split(",")
        unknown = [n for n in wanted if n not in [p[0] for p in PAIRS]]
        if unknown:
            parser.error(f"unknown pairs: {', '.join(unknown)}")
        PAIRS[:] = [p for p in PAIRS if p[0] in wanted]
    if args.settings:
        SETTINGS.extend(["--settings", os.path.abspath(args.settings)])
    engines = [e for e in args.engines.split(",") if e]
    label = lambda name, engine: name if engine == "fast" else f"{name} ({engine})"
    batch = os.path.join(args.build, "tools/zwelk-batch/zwelk-batch")
    peers = [p for p in PEERS if getattr(args, p[1])]
    if peers:
        return compare_with_peers(args, batch, engines if args.engines != parser.get_default("engines")
                                  else ["fast", "cartoon"], peers)
    print("| pair | base vertices | target triangles | load s | graph s | levels s | total s | peak MB | "
          "result->target mean / RMS / p95 / max, % diag | target->result mean / RMS / p95 / max, % diag | added folds | "
          "ground truth mean / RMSE |")
    print("|---|---|---|---|---|---|---|---|---|---|---|---|")
    with tempfile.TemporaryDirectory() as work:
        for name, base, target, truth in PAIRS:
            b, t = os.path.join(args.data, base), os.path.join(args.data, target)
            if os.path.exists(b) and os.path.exists(t):
                for engine in engines:
                    report = welk(batch, b, t, work, engine)
                    gt = ground_truth(os.path.join(work, "out.obj"), os.path.join(args.data, truth)) if truth else None
                    print(row(label(name, engine), report, diagonal(t), gt), flush=True)
        # A stylised target: the demo scan sheared and scaled unevenly.
        cache = os.path.expanduser(os.environ.get("ZWELK_BENCH_CACHE", "~/.cache/zwelk-bench"))
        folder = os.path.join(cache, "demo-24-6")
        if not os.path.exists(os.path.join(folder, "scan.obj")):
            subprocess.run([batch, "demo-models", folder], check=True, capture_output=True)
        stylised = os.path.join(folder, "scan-stylised.obj")
        if not os.path.exists(stylised):
            with open(os.path.join(folder, "scan.obj")) as src, open(stylised, "w") as dst:
                for line in src:
                    if line.startswith("v "):
                        x, y, z = (float(v) for v in line.split()[1:4])
                        line = f"v {1.5 * x + 0.3 * y:.6f} {0.8 * y:.6f} {1.2 * z:.6f}\n"
                    dst.write(line)
        for engine in engines:
            report = welk(batch, os.path.join(folder, "base.obj"), stylised, work, engine)
            print(row(label("stylised demo", engine), report, diagonal(stylised)), flush=True)
        if args.skip_demo:
            return
        for name, resolution, subdivisions in DEMO:
            folder = os.path.join(cache, f"demo-{resolution}-{subdivisions}")
            if not os.path.exists(os.path.join(folder, "scan.obj")):
                subprocess.run([batch, "demo-models", folder, "--base-resolution", str(resolution),
                                "--scan-subdivisions", str(subdivisions)], check=True, capture_output=True)
            scan = os.path.join(folder, "scan.obj")
            print(row(name, welk(batch, os.path.join(folder, "base.obj"), scan, work), diagonal(scan)), flush=True)


if __name__ == "__main__":
    sys.exit(main())
