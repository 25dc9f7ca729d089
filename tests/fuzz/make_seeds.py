#!/usr/bin/env python3
"""Writes the small seed files of corpus/. Run again after a format change;
seeds from the shared data folder are added by scripts/fuzz.sh at run time."""
import json, os, struct, sys

root = os.path.join(os.path.dirname(os.path.abspath(__file__)), "corpus")

def put(folder, name, data):
    os.makedirs(os.path.join(root, folder), exist_ok=True)
    with open(os.path.join(root, folder, name), "wb") as f:
        f.write(data if isinstance(data, bytes) else data.encode())

def chunk(tag, count, payload, parameter=0.0):
    return struct.pack("<iiif", tag, 16 + len(payload), count, parameter) + payload

def goz(quads, with_uv=True, with_mask=True, with_groups=True, triangles=False):
    verts = [(0, 0, 0), (1, 0, 0), (1, 1, 0), (0, 1, 0), (0.5, 0.5, 1)]
    out = b"GoZb 1.0 ZBrush GoZ Binary" + b"\0" * 6
    out += chunk(1, 0, b"GoZMesh_Seed\0")
    out += chunk(10001, len(verts), b"".join(struct.pack("<3f", *v) for v in verts))
    per = 3 if triangles else 4
    out += chunk(20003 if triangles else 20001, len(quads), b"".join(struct.pack("<%di" % per, *q[:per]) for q in quads))
    if with_uv:
        out += chunk(25002 if triangles else 25001, len(quads),
                     b"".join(struct.pack("<%df" % (2 * per), *([0.25] * 2 * per)) for _ in quads))
    if with_mask:
        out += chunk(30002, len(verts), struct.pack("<%dH" % len(verts), *([0xFFFF] * 4 + [0])))
    if with_groups:
        out += chunk(40001, len(quads), struct.pack("<%dH" % len(quads), *range(1, len(quads) + 1)))
    out += chunk(35001, len(verts), struct.pack("<%dI" % len(verts), *([0xFF00FF00] * len(verts))))
    out += chunk(45001, 0, b"text\0")
    out += chunk(55001, 0, b"x\0", 2.0)
    out += chunk(0, 0, b"")[:16]
    return out

put("goz", "quads.GoZ", goz([(0, 1, 2, 3), (0, 1, 4, -1)]))
put("goz", "bare.GoZ", goz([(0, 1, 2, 3)], False, False, False))
put("goz", "triangles.GoZ", goz([(0, 1, 4), (1, 2, 4), (2, 3, 4)], triangles=True))

obj_small = """# seed
mtllib a b.mtl
v 0 0 0
v 1 0 0
v 1 1 0
v 0 1 0 0.5 0.5 0.5
v 0.5 0.5 1.5e0
vt 0 0
vt 1 0
vt 1 1
vt 0 1
vn 0 0 1
g top
usemtl red
f 1/1/1 2/2/1 3/3/1 4/4/1
g side
usemtl blue
f 1/1 2/2 5/3
f -5/1 -4/2 -1/3
"""
obj_plain = "v 0 0 0\nv 1 0 0\nv 0 1 0\nv 1 1 1\nf 1 2 3\nf 2//1 4//1 3//1\ng a\nf 1 2 4"
put("obj", "small.obj", obj_small)
put("obj", "plain.obj", obj_plain)
put("obj", "crlf.obj", obj_small.replace("\n", "\r\n"))
# Several chunks: the graph reader cuts files of 6144 bytes and more.
lines = ["v %d.%d %d -%d.5e-1" % (i, i % 7, i % 13, i % 5) for i in range(400)]
lines += ["vt 0.%d 0.%d" % (i % 10, i % 9) for i in range(50)]
for i in range(300):
    if i % 40 == 0:
        lines.append("g group%d\nusemtl m%d" % (i // 40, i % 3))
    a = 1 + i
    lines.append("f %d/%d %d/%d %d/%d" % (a, 1 + i % 50, a + 1, 1 + (i + 1) % 50, a + 2, 1 + (i + 2) % 50))
put("obj", "chunks.obj", "\n".join(lines) + "\n")

# params.txt: 44 bytes of viewport values.
put("params", "params.txt", struct.pack("<11f", 0.2, 0.3, 0.4, 1, 0.5, 0.5, 0.5, 35, 0, 1, 1))
put("params", "short.txt", struct.pack("<3f", 0.1, 0.2, 0.3))

# subtools.txt: records of 248 bytes: 4 bytes, a texture flag, a name of 240.
def record(name, flag):
    b = name.encode()
    return struct.pack("<ii", 0, flag) + b + b"\0" * (240 - len(b))
put("subtools", "pair.txt", record("1_Base", 1) + record("2_Scan", 0))
put("subtools", "one.txt", record("1_Base", 0))

put("points", "points.json", json.dumps([[0, 0.2, 0.3], [5, 0.5, 0.25], [63, 0, 1]]))
put("points", "empty.txt", "[]")
put("points", "bad.json", '[[1, 0.5], {"a": 1}]')

put("landmarks", "points.csv", "x,y,z\n1,2,3\n4.5;5;6e1\n# note\n\n7\t8\t9\t10\n")
put("landmarks", "blanks.txt", "0 0 0\n1 1 1\n")

put("settings", "current.ini", """[welkingSettings]
Subdivisions=4
ICP_iterations=3
Sampling_initial=5
Sampling_final=0.2
Normalize_sampling_radius=true
Smoothness_initial=1
Normals_threshold=0.6
Dp_final=0.001
Rigity=0.5
""")
put("settings", "garbled.ini", "[welkingSettings]\nSubdivisions=abc\nSampling_final=-1e400\nICP_iterations=99999999999\n=x\n[other\nkey")

put("classic", "parameters.json", json.dumps({
    "nNodesToUse": 8, "nICPIterations": 5, "samplingMaxMultiplier": 5, "samplingMinMultiplier": 0.2,
    "nSubdivisions": 3, "globalSmoothWeightMin": 0.05, "globalSmoothWeightMax": 1,
    "globalPoint2PointFittingWeight": 0.1, "globalPoint2PlaneFittingWeight": 1,
    "globalControlPointsWeightFinal": 10, "globalControlPointsWeightInitial": 10,
    "nUsualLevMarIters": 20, "nEndLevMarIters": 100, "minCosBetweenNormals": 0.65,
    "maxDp": 0.01, "minDp": 0.002}))
put("classic", "partial.json", '{"nNodesToUse": 1e30, "minDp": -1}')

# Images: the first byte picks the extension (0 tif, 1 png, 2 exr, 3 jpg,
# 4 bmp, 5 tga), the rest is the file, written by oiiotool when present.
import shutil, subprocess, tempfile
if shutil.which("oiiotool"):
    with tempfile.TemporaryDirectory() as tmp:
        for index, (ext, args) in enumerate([("tif", ["-d", "uint16"]), ("png", []), ("exr", ["-d", "half"]),
                                             ("jpg", []), ("bmp", []), ("tga", [])]):
            path = os.path.join(tmp, "seed." + ext)
            subprocess.run(["oiiotool", "--pattern", "checker:width=2:height=2", "4x3", "3"] + args + ["-o", path],
                           check=True)
            with open(path, "rb") as f:
                put("image", "seed_" + ext, bytes([index]) + f.read())
else:
    print("oiiotool missing: no image seeds", file=sys.stderr)
