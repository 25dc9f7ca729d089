#!/usr/bin/env bash
# Soak of the exchange folder: RUNS runs (default 1000) of
# `zwelk-batch check --write-back` and `zwelk-batch welk --exchange`, in
# turn, on generated folders, valid and corrupted in many ways. After every
# run it checks the folder as the plug-in would find it:
#   - status.txt is gone (the plug-in stops waiting),
#   - import.txt exists exactly when the run succeeded,
#   - the result GoZ, when present, is complete (walks to its end chunk,
#     vertex count as the basemesh's) and was written by this run if
#     import.txt says so,
#   - no other file appeared (no temporary or half-written file remains),
#   - the program exited with 0 or 1, never by a signal.
#
#   scripts/soak.sh [RUNS] [SEED]
#
# Uses build/tools/zwelk-batch/zwelk-batch (ZWELK_BUILD_DIR to change).
set -euo pipefail
cd "$(dirname "$0")/.."
RUNS=${1:-1000}
SEED=${2:-1}
BATCH=${ZWELK_BUILD_DIR:-build}/tools/zwelk-batch/zwelk-batch
[ -x "$BATCH" ] || { echo "Build zwelk-batch first: $BATCH" >&2; exit 2; }
WORK=$(mktemp -d -t zwelk-soak-XXXXXX)
trap 'rm -rf "$WORK"' EXIT
# A copy, so that a rebuild during the soak does not pull the program away.
cp "$BATCH" "$WORK/zwelk-batch"
BATCH="$WORK/zwelk-batch"
export QT_QPA_PLATFORM=offscreen
exec python3 - "$BATCH" "$WORK" "$RUNS" "$SEED" <<'PYTHON'
import collections, os, random, shutil, struct, subprocess, sys, time

batch, work, runs, seed = sys.argv[1], sys.argv[2], int(sys.argv[3]), int(sys.argv[4])
rng = random.Random(seed)

def grid_obj(path, n, lift):
    """A small open grid, bumped: base and target differ a little."""
    with open(path, "w") as f:
        for y in range(n + 1):
            for x in range(n + 1):
                z = lift * ((x - n / 2) ** 2 + (y - n / 2) ** 2) / n
                f.write("v %g %g %g\n" % (x / n, y / n, z))
        for y in range(n):
            for x in range(n):
                a = y * (n + 1) + x + 1
                f.write("f %d %d %d %d\n" % (a, a + 1, a + n + 2, a + n + 1))

os.makedirs(os.path.join(work, "meshes"))
grid_obj(os.path.join(work, "meshes", "base.obj"), 12, 0.0)
grid_obj(os.path.join(work, "meshes", "scan.obj"), 16, 0.05)
template = os.path.join(work, "template")
subprocess.run([batch, "exchange", os.path.join(work, "meshes", "base.obj"), os.path.join(work, "meshes", "scan.obj"),
                "--folder", template], check=True, stdout=subprocess.DEVNULL)
settings = os.path.join(work, "quick.ini")
with open(settings, "w") as f:
    f.write("[welkingSettings]\nSubdivisions=1\nICP_iterations=1\nOptimization_iterations=2\n"
            "Max_optimization_iterations=2\n")
files = os.path.join(template, "Files")
first = sorted(n for n in os.listdir(files) if n.startswith("1_"))[0]
second = sorted(n for n in os.listdir(files) if n.startswith("2_"))[0]
result_name = first[2:]

def goz_vertex_count(path):
    """Vertex count of a complete GoZ file, None when it is not complete."""
    data = open(path, "rb").read()
    if len(data) < 32 or data[:4] != b"GoZb":
        return None
    pos, count = 32, None
    while pos + 16 <= len(data):
        tag, size, n = struct.unpack_from("<iii", data, pos)
        if tag == 0:
            return count
        if tag == 10001:
            count = n
        if size < 16 or pos + size > len(data):
            return None
        pos += size
    return None

base_vertices = goz_vertex_count(os.path.join(files, first))

def corrupt_bytes(path, how):
    data = bytearray(open(path, "rb").read())
    if how == "truncate":
        data = data[:rng.randrange(0, len(data))]
    elif how == "flip":
        for _ in range(rng.randrange(1, 8)):
            data[rng.randrange(len(data))] = rng.randrange(256)
    elif how == "counts":
        # A chunk header's size or count field set to something wild.
        pos = 32
        while pos + 16 <= len(data):
            tag, size = struct.unpack_from("<ii", data, pos)
            if tag == 0 or size < 16:
                break
            if rng.random() < 0.4:
                struct.pack_into("<i", data, pos + rng.choice([4, 8]), rng.choice([-1, 0, 1 << 30, 0x7FFFFFFF, 3]))
                break
            pos += size
    elif how == "empty":
        data = bytearray()
    open(path, "wb").write(bytes(data))

# Each case prepares a fresh copy of the template; "expect" is what a run
# may end with: "ok" must succeed, "fail" must fail, "any" may do either.
def case_valid(folder): return "ok"
def case_stale_import(folder):
    open(os.path.join(folder, "import.txt"), "w").close()
    corrupt_bytes(os.path.join(folder, "Files", first), "truncate")
    return "fail"
def case_stale_import_valid(folder):
    open(os.path.join(folder, "import.txt"), "w").close()
    return "ok"
def case_truncate_first(folder): corrupt_bytes(os.path.join(folder, "Files", first), "truncate"); return "any"
def case_truncate_second(folder): corrupt_bytes(os.path.join(folder, "Files", second), "truncate"); return "any"
def case_flip_first(folder): corrupt_bytes(os.path.join(folder, "Files", first), "flip"); return "any"
def case_flip_second(folder): corrupt_bytes(os.path.join(folder, "Files", second), "flip"); return "any"
def case_counts(folder): corrupt_bytes(os.path.join(folder, "Files", rng.choice([first, second])), "counts"); return "any"
def case_empty_goz(folder): corrupt_bytes(os.path.join(folder, "Files", rng.choice([first, second])), "empty"); return "fail"
def case_subtools_garbage(folder):
    open(os.path.join(folder, "subtools.txt"), "wb").write(bytes(rng.randrange(256) for _ in range(rng.randrange(0, 600))))
    return "any"
def case_subtools_missing_file(folder):
    os.remove(os.path.join(folder, "Files", second))
    return "fail"
def case_params(folder):
    corrupt_bytes(os.path.join(folder, "params.txt"), rng.choice(["truncate", "flip", "empty"]))
    return "ok"
def case_result_is_folder(folder):
    # The result's name is taken by a folder: the write must fail cleanly.
    os.makedirs(os.path.join(folder, "Files", result_name))
    return "fail"
def case_old_result(folder):
    # A previous result is replaced whole.
    shutil.copy(os.path.join(folder, "Files", second), os.path.join(folder, "Files", result_name))
    return "ok"

cases = [case_valid, case_stale_import, case_stale_import_valid, case_truncate_first, case_truncate_second,
         case_flip_first, case_flip_second, case_counts, case_empty_goz, case_subtools_garbage,
         case_subtools_missing_file, case_params, case_result_is_folder, case_old_result]

def listing(folder):
    out = {}
    for root, dirs, names in os.walk(folder):
        for n in dirs + names:
            p = os.path.join(root, n)
            out[os.path.relpath(p, folder)] = os.path.getmtime(p) if os.path.isfile(p) else None
    return out

tally = collections.Counter()
problems = []
started = time.time()
for i in range(runs):
    folder = os.path.join(work, "run")
    shutil.rmtree(folder, ignore_errors=True)
    shutil.copytree(template, folder)
    case = cases[i % len(cases)]
    expect = case(folder)
    before = listing(folder)
    command = "check" if (i // len(cases)) % 2 == 0 else "welk"
    args = [batch, "check", folder, "--write-back"] if command == "check" else \
           [batch, "welk", "--exchange", folder, "--settings", settings, "--force"]
    time.sleep(0.01)  # distinct modification times for files this run writes
    try:
        run = subprocess.run(args, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, timeout=300)
        code = run.returncode
    except subprocess.TimeoutExpired:
        code = "timeout"
    after = listing(folder)
    found = []
    if code not in (0, 1):
        found.append("exit %s" % code)
    if expect == "ok" and code != 0:
        found.append("expected success: " + run.stderr.decode(errors="replace").strip()[:200])
    if expect == "fail" and code == 0:
        found.append("expected failure")
    if "status.txt" in after:
        found.append("status.txt left")
    has_import = "import.txt" in after
    if has_import != (code == 0):
        found.append("import.txt %s after exit %s" % ("present" if has_import else "missing", code))
    result_rel = os.path.join("Files", result_name)
    if code == 0:
        count = goz_vertex_count(os.path.join(folder, result_rel)) if os.path.isfile(os.path.join(folder, result_rel)) else None
        if count != base_vertices:
            found.append("result incomplete or wrong (%s vertices)" % count)
        if before.get(result_rel) is not None and after.get(result_rel) == before.get(result_rel):
            found.append("result not rewritten")
    elif os.path.isfile(os.path.join(folder, result_rel)) and after.get(result_rel) != before.get(result_rel):
        found.append("failed run changed the result file")
    new = set(after) - set(before) - {"import.txt", result_rel}
    if new:
        found.append("new files: " + ", ".join(sorted(new)))
    tally[(case.__name__, command, "exit %s" % code)] += 1
    if found:
        problems.append((i, case.__name__, command, found))
        print("run %d %s %s: %s" % (i, case.__name__, command, "; ".join(found)), flush=True)

elapsed = time.time() - started
print("\n%d runs in %.0f s, seed %d, %d with problems" % (runs, elapsed, seed, len(problems)))
print("| case | command | exit | runs |\n|---|---|---|---|")
for (name, command, code), n in sorted(tally.items()):
    print("| %s | %s | %s | %d |" % (name[5:], command, code, n))
sys.exit(1 if problems else 0)
PYTHON
