#!/usr/bin/env python3
"""Time per product of J^T J on each level of a fast fit, for several builds
of zwelk-batch run in turn on one pair: the median, over the runs, of what
each build's debug log reports ("products (... us each)" per level). A
product's time moves less with the machine's moments of load than a whole
fit's, and it isolates the solver's inner loop from loading and matching.

    bench/fitting/product_times.py --runs 6 --base SRC.obj --target TGT.obj \\
        before:/tmp/zwelk-batch-before after:build/tools/zwelk-batch/zwelk-batch
"""
import argparse
import os
import re
import statistics
import subprocess
import sys
import tempfile

PRODUCTS = re.compile(r"^Level (\d+):.*?(\d+) products \(([0-9.]+) us each\)", re.M)


def level_times(program, base, target):
    with tempfile.TemporaryDirectory() as folder:
        env = dict(os.environ, ZWELK_DEBUG="1")
        run = subprocess.run([program, "welk", "--base", base, "--target", target, "-o",
                              os.path.join(folder, "out.obj")], capture_output=True, text=True, env=env)
    if run.returncode != 0:
        sys.exit(f"{program} failed:\n{run.stderr}")
    return {int(m.group(1)): float(m.group(3)) for m in PRODUCTS.finditer(run.stdout + run.stderr)}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--runs", type=int, default=6)
    parser.add_argument("--base", required=True)
    parser.add_argument("--target", required=True)
    parser.add_argument("builds", nargs="+", help="LABEL:PROGRAM")
    args = parser.parse_args()
    builds = [b.split(":", 1) for b in args.builds]
    if any(len(b) != 2 for b in builds):
        sys.exit("each build is LABEL:PROGRAM")
    times = {label: {} for label, _ in builds}
    for _ in range(args.runs):
        for label, program in builds:
            for level, us in level_times(program, args.base, args.target).items():
                times[label].setdefault(level, []).append(us)
    levels = sorted({level for per in times.values() for level in per})
    print("| build | " + " | ".join(f"level {level} (us)" for level in levels) + " |")
    print("|---|" + "---|" * len(levels))
    for label, _ in builds:
        cells = [f"{statistics.median(times[label][level]):.1f}" if level in times[label] else "-" for level in levels]
        print(f"| {label} | " + " | ".join(cells) + " |")


if __name__ == "__main__":
    main()
