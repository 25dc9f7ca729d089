#!/usr/bin/env python3
"""The fits on the shared data pairs and on generated pairs of three
target densities, through zwelk-batch; prints a Markdown table of stage
times, peak memory and distances. The classic fit (the double-precision
reference with a direct solve) runs on the shared pairs and the stylised
demo, beside the fast and cartoon fits of the same run.

    bench/fitting/fit_bench.py [--build build] [--data ../shared/data] [--skip-demo]
                               [--engines fast,cartoon,classic] [--settings FILE.ini]
"""
import argparse
import json
import os
import subprocess
import sys
import tempfile

# (name, basemesh, target, ground truth with the basemesh's topology or None)
PAIRS = [
    ("amm-cat", "amm-cat/source.obj", "amm-cat/target.obj", None),
    ("spare-bear", "spare-bear/source.obj", "spare-bear/target.obj", "spare-bear/target.obj"),
    ("fastrnrr-human", "fastrnrr-human/source.obj", "fastrnrr-human/target_mesh.obj", "fastrnrr-human/whole_target.obj"),
    ("meshmonk-face", "meshmonk-face/Template_Rigidly_Aligned.obj", "meshmonk-face/DemoFace_10K.obj", None),
    ("amm-human-partial", "amm-human-partial/source.obj", "amm-human-partial/target.obj", None),
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


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", default="build")
    parser.add_argument("--data", default=os.path.join(os.path.dirname(__file__), "../../../shared/data"))
    parser.add_argument("--skip-demo", action="store_true")
    parser.add_argument("--engines", default="fast,cartoon,classic",
                        help="comma-separated engines for the shared pairs and the stylised demo")
    parser.add_argument("--settings", help="a fit settings file for every fit (Repair_folds=false and "
                        "Reject_worse_rounds=false give the fits without their guards)")
    args = parser.parse_args()
    if args.settings:
        SETTINGS.extend(["--settings", os.path.abspath(args.settings)])
    engines = [e for e in args.engines.split(",") if e]
    label = lambda name, engine: name if engine == "fast" else f"{name} ({engine})"
    batch = os.path.join(args.build, "tools/zwelk-batch/zwelk-batch")
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
