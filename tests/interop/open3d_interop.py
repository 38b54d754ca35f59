#!/usr/bin/python3
"""PLY, OBJ and STL files exchanged with Open3D, an independent reader and writer.

(a) Files the tavrin tool writes (capture defaults, each texture choice, the
    unordered plain PLY, ASCII and binary) open in Open3D with the points,
    normals and colours that tavrin's own reading of the file gives.
(b) Files Open3D writes (binary and ASCII, with and without normals and
    colours), a PLY this script writes itself, and OBJ and STL files open
    through ImportScan (tavrin_scan_dump) and the tool with the points Open3D
    reads from them.

Prints one line per file and a matrix of writer x reader. Exit 0 when every
check holds, 1 otherwise, 77 (skipped) when Open3D is not installed.
Run by Debian's /usr/bin/python3, which sees python3-open3d.
"""
import argparse
import os
import struct
import subprocess
import sys
import tempfile

try:
    import numpy as np
    import open3d as o3d
except ImportError as error:
    print(f"skipped: python3-open3d is not available to {sys.executable} ({error}); "
          "scripts/install-deps installs it")
    sys.exit(77)


class Checks:
    """Outcome of each file: which of opens / points / normals / colours held."""

    def __init__(self):
        self.rows = []
        self.failures = 0

    def record(self, direction, writer, reader, results, notes=""):
        # results: name -> True, False or None (not applicable)
        self.rows.append((direction, writer, reader, results, notes))
        self.failures += sum(1 for value in results.values() if value is False)

    def print_matrix(self):
        columns = ["opens", "points", "normals", "colours"]
        mark = {True: "equal", False: "DIFFERS", None: "-"}
        print(f"\n{'writer':<52} {'reader':<22} " + " ".join(f"{c:<8}" for c in columns))
        for direction, writer, reader, results, notes in self.rows:
            cells = []
            for column in columns:
                value = results.get(column)
                cells.append(f"{('yes' if value else 'NO') if column == 'opens' else mark[value]:<8}")
            print(f"{direction + ' ' + writer:<52} {reader:<22} " + " ".join(cells) + (f" {notes}" if notes else ""))
        passed = sum(1 for row in self.rows if all(v is not False for v in row[3].values()))
        print(f"\n{passed} passed, {len(self.rows) - passed} failed")


def run(command, cwd):
    result = subprocess.run(command, cwd=cwd, capture_output=True, text=True)
    if result.returncode != 0:
        raise RuntimeError(f"{' '.join(command)} failed ({result.returncode}): {result.stderr.strip()}")
    return result.stdout


def tavrin_reading(dump, path, grid, workdir):
    """What tavrin reads: arrays of points (float32), normals, colours (uint8)."""
    out = tempfile.mkdtemp(dir=workdir)
    run([dump] + (["--grid"] if grid else []) + [path, out], workdir)
    info = dict(line.split(" ", 1) for line in open(os.path.join(out, "info.txt")).read().splitlines())

    def load(name, dtype):
        file = os.path.join(out, name)
        return np.fromfile(file, dtype=dtype).reshape(-1, 3) if os.path.exists(file) else None

    return {"points": load("points.f32", np.float32), "normals": load("normals.f32", np.float32),
            "colors": load("colors.u8", np.uint8), "info": info}


def open3d_reading(path):
    cloud = o3d.io.read_point_cloud(path)
    colors = np.rint(np.asarray(cloud.colors) * 255.0).astype(np.uint8) if cloud.has_colors() else None
    normals = np.asarray(cloud.normals) if cloud.has_normals() else None
    return {"points": np.asarray(cloud.points), "normals": normals, "colors": colors}


def same(a, b):
    """None when neither has the array; else whether both have it and it is equal."""
    if a is None and b is None:
        return None
    return a is not None and b is not None and a.shape == b.shape and np.array_equal(a, b)


def single(array):
    return None if array is None else array.astype(np.float32)


def is_photoneo_ply(path):
    with open(path, "rb") as file:
        lines = file.read(4096).split(b"\n")
    return len(lines) > 2 and lines[2].startswith(b"obj_info Photoneo PLY PointCloud")


def tool_writes(args, checks, workdir):
    """(a) Captures written by the tool, read by Open3D."""
    cases = [
        # name, tool arguments, texture expected in the file
        ("capture defaults (grey)", ["capture"], "grey"),
        ("--texture intensity", ["capture", "--texture", "intensity"], "grey"),
        ("--no-normals", ["capture", "--no-normals"], "grey"),
        ("colour scanner", ["capture", "--device", "TVR-SIM-0002"], "colour"),
        ("colour scanner --texture color --ascii", ["capture", "--device", "TVR-SIM-0002", "--texture", "color",
                                                    "--ascii"], "colour"),
        ("--texture none", ["capture", "--texture", "none"], None),
        ("--unordered", ["capture", "--unordered"], "grey"),
        ("--unordered --ascii (colour)", ["capture", "--unordered", "--ascii", "--device", "TVR-SIM-0002"],
         "colour"),
    ]
    for index, (name, arguments, texture) in enumerate(cases):
        path = os.path.join(workdir, f"tavrin_{index}.ply")
        run([args.tool] + arguments + ["-o", path], workdir)
        photoneo = is_photoneo_ply(path)
        ours = tavrin_reading(args.dump, path, photoneo, workdir)
        theirs = open3d_reading(path)
        # The file holds single-precision values; Open3D widens them to
        # double (from ASCII text, the nearest double of the decimal), so
        # they compare at single precision.
        results = {"opens": len(theirs["points"]) > 0,
                   "points": same(ours["points"], theirs["points"].astype(np.float32)),
                   "normals": same(ours["normals"], single(theirs["normals"])),
                   "colours": same(ours["colors"], theirs["colors"])}
        notes = f"{len(theirs['points'])} vertices"
        colors = theirs["colors"]
        if texture is None:
            results["colours"] = colors is None
        else:
            grey = colors is not None and bool(np.all(colors[:, 0] == colors[:, 1]) and
                                               np.all(colors[:, 1] == colors[:, 2]))
            if texture == "grey":
                # A grey image over the whole 8-bit range.
                results["colours"] = results["colours"] and grey and int(colors.max()) == 255
            else:
                results["colours"] = results["colours"] and not grey
            notes += f", {texture} texture, largest channel {int(colors.max()) if colors is not None else '-'}"
        checks.record("(a)", "tavrin " + name, "Open3D", results, notes)


def write_own_ply(path, count):
    """A big-endian PLY with float coordinates, byte colours, an extra column and faces."""
    rng = np.random.default_rng(7)
    points = rng.uniform(-500, 500, (count, 3)).astype(np.float32)
    colors = rng.integers(0, 256, (count, 3)).astype(np.uint8)
    header = ("ply\nformat binary_big_endian 1.0\ncomment written by hand\nelement vertex {}\n"
              "property float x\nproperty float y\nproperty float z\nproperty float confidence\n"
              "property uchar red\nproperty uchar green\nproperty uchar blue\n"
              "element face 1\nproperty list uchar int vertex_indices\nend_header\n").format(count)
    with open(path, "wb") as file:
        file.write(header.encode())
        for p, c in zip(points, colors):
            file.write(struct.pack(">4f3B", p[0], p[1], p[2], 0.5, c[0], c[1], c[2]))
        file.write(struct.pack(">B3i", 3, 0, 1, 2))


def others_write(args, checks, workdir):
    """(b) Files written by Open3D and by this script, read by tavrin."""
    rng = np.random.default_rng(3)
    count = 5000
    files = []
    for ascii_text in (False, True):
        for normals in (False, True):
            for colors in (False, True):
                cloud = o3d.geometry.PointCloud(o3d.utility.Vector3dVector(rng.uniform(-2, 2, (count, 3))))
                if normals:
                    cloud.normals = o3d.utility.Vector3dVector(rng.uniform(-1, 1, (count, 3)))
                if colors:
                    cloud.colors = o3d.utility.Vector3dVector(rng.uniform(0, 1, (count, 3)))
                name = "Open3D {}{}{}".format("ASCII" if ascii_text else "binary", " +normals" if normals else "",
                                              " +colours" if colors else "")
                path = os.path.join(workdir, f"open3d_{len(files)}.ply")
                o3d.io.write_point_cloud(path, cloud, write_ascii=ascii_text)
                files.append((name, path, False))
    own = os.path.join(workdir, "own.ply")
    write_own_ply(own, count)
    files.append(("this script, big-endian with faces", own, False))
    mesh = o3d.geometry.TriangleMesh.create_sphere(radius=100.0, resolution=12)
    mesh.compute_vertex_normals()
    for extension in ("obj", "stl"):
        path = os.path.join(workdir, f"sphere.{extension}")
        o3d.io.write_triangle_mesh(path, mesh)
        files.append((f"Open3D mesh .{extension}", path, True))

    for name, path, is_mesh in files:
        if is_mesh:
            reference = np.unique(np.asarray(o3d.io.read_triangle_mesh(path).vertices).astype(np.float32), axis=0)
        else:
            theirs = open3d_reading(path)
            reference = theirs["points"].astype(np.float32)
        # Through ImportScan.
        ours = tavrin_reading(args.dump, path, False, workdir)
        points = np.unique(ours["points"], axis=0) if is_mesh else ours["points"]
        results = {"opens": len(ours["points"]) > 0, "points": same(points, reference)}
        if not is_mesh:
            results["normals"] = same(ours["normals"], single(theirs["normals"]))
            results["colours"] = same(ours["colors"], theirs["colors"])
        notes = f"{len(ours['points'])} points, space {ours['info']['space']}"
        checks.record("(b)", name, "ImportScan", results, notes)

        # Through the tool: info counts the points, and a conversion to a
        # plain PLY (labelled as camera space) carries them to Open3D again.
        info = run([args.tool, "info", path], workdir)
        counted = f"\npoints: {len(ours['points'])}\n" in info
        converted = os.path.join(workdir, "converted.ply")
        run([args.tool, "convert", path, converted, "--unordered", "--space", "camera"], workdir)
        again = open3d_reading(converted)["points"].astype(np.float32)
        expected = ours["points"][np.any(ours["points"] != 0, axis=1)]
        checks.record("(b)", name, "tavrin info + convert", {"opens": counted, "points": same(again, expected)})


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--tool", required=True, help="the tavrin tool")
    parser.add_argument("--dump", required=True, help="tavrin_scan_dump")
    args = parser.parse_args()
    args.tool = os.path.abspath(args.tool)
    args.dump = os.path.abspath(args.dump)
    print(f"Open3D {o3d.__version__}, numpy {np.__version__}")
    checks = Checks()
    with tempfile.TemporaryDirectory(prefix="tavrin_interop_") as workdir:
        tool_writes(args, checks, workdir)
        others_write(args, checks, workdir)
    checks.print_matrix()
    return 1 if checks.failures else 0


if __name__ == "__main__":
    sys.exit(main())
