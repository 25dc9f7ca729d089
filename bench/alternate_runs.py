#!/usr/bin/env python3
"""Times programs against each other: every variant runs with the same
arguments, in turn, --runs times over, so that the machine's moments of load
fall on all of them alike; prints each variant's best and median wall time
and its median CPU time (user + system) as a Markdown table.

    bench/alternate_runs.py --variant before:/tmp/zwelk-batch-before \\
        --variant after:build/tools/zwelk-batch/zwelk-batch \\
        --variant "one BLAS thread:/tmp/zwelk-batch-before:OPENBLAS_NUM_THREADS=1" \\
        [--runs 12] -- welk --base SRC --target TGT -o /tmp/out.obj

A variant is LABEL:PROGRAM, optionally followed by :NAME=VALUE,... for its
environment. Every run's output is discarded; a run that fails stops the
benchmark with its error output.
"""
import argparse
import os
import statistics
import subprocess
import sys
import time


def parse_variant(text):
    parts = text.split(":", 2)
    if len(parts) < 2 or not parts[0] or not parts[1]:
        raise argparse.ArgumentTypeError(f"expected LABEL:PROGRAM[:NAME=VALUE,...], got '{text}'")
    env = dict(os.environ)
    if len(parts) == 3 and parts[2]:
        for item in parts[2].split(","):
            name, sep, value = item.partition("=")
            if not sep or not name:
                raise argparse.ArgumentTypeError(f"expected NAME=VALUE in '{text}'")
            env[name] = value
    return parts[0], parts[1], env


def run_once(program, arguments, env):
    start = time.perf_counter()
    process = subprocess.Popen([program] + arguments, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, env=env)
    _, status, usage = os.wait4(process.pid, 0)
    wall = time.perf_counter() - start
    error = process.stderr.read().decode(errors="replace")
    process.stderr.close()
    code = os.waitstatus_to_exitcode(status)
    if code != 0:
        sys.exit(f"{program} exited with {code}:\n{error}")
    return wall, usage.ru_utime + usage.ru_stime


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--variant", type=parse_variant, action="append", required=True)
    parser.add_argument("--runs", type=int, default=12)
    parser.add_argument("arguments", nargs=argparse.REMAINDER)
    args = parser.parse_args()
    arguments = args.arguments[1:] if args.arguments[:1] == ["--"] else args.arguments
    times = {label: ([], []) for label, _, _ in args.variant}
    load = os.getloadavg()[0]
    for _ in range(args.runs):
        for label, program, env in args.variant:
            wall, cpu = run_once(program, arguments, env)
            times[label][0].append(wall)
            times[label][1].append(cpu)
    print(f"{args.runs} runs each, in turn; load average {load:.2f} at the start, {os.getloadavg()[0]:.2f} at the end\n")
    print("| variant | best wall s | median wall s | median CPU s |")
    print("|---|---|---|---|")
    for label, _, _ in args.variant:
        walls, cpus = times[label]
        print(f"| {label} | {min(walls):.3f} | {statistics.median(walls):.3f} | {statistics.median(cpus):.3f} |")


if __name__ == "__main__":
    main()
