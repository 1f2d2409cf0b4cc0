"""Builds the wheels for all systems into build/wheels: PLATFORM... or all.

One CMake build a platform, with zig (cmake/zig.cmake), makes the modules of both Pythons. The
metadata is what `pip wheel .` would write. A wheel is the same bytes each time: its entries are
sorted and as old as SOURCE_DATE_EPOCH says, or else the last commit.
"""

import argparse
import base64
import hashlib
import os
import pathlib
import subprocess
import tempfile
import time
import tomllib
import zipfile

from scikit_build_core.build import prepare_metadata_for_build_wheel

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build"

# platform: zig's name of it, with the oldest C library or system; the headers of CPython 3.11 and
# of a later one. Where they are of another processor, it is one with the same types.
DEBIAN = ["usr/include/python3.11", "usr/include"]
PLATFORMS = {
    "manylinux_2_28_x86_64": ("x86_64-linux-gnu.2.28", "amd64", "3.13.0-linux-x86_64"),
    "manylinux_2_28_aarch64": ("aarch64-linux-gnu.2.28", "arm64", "3.13.0-linux-x86_64"),
    "musllinux_1_2_x86_64": ("x86_64-linux-musl", "amd64", "3.13.0-linux-x86_64"),
    "musllinux_1_2_aarch64": ("aarch64-linux-musl", "arm64", "3.13.0-linux-x86_64"),
    "macosx_11_0_arm64": ("aarch64-macos.11.0", "3.11.3-macosx-x86_64", "3.13.0-macosx-x86_64"),
    "macosx_11_0_x86_64": ("x86_64-macos.11.0", "3.11.3-macosx-x86_64", "3.13.0-macosx-x86_64"),
    "win_amd64": ("x86_64-windows-gnu", "3.11.3-windows-x86_64", "3.13.0-windows-x86_64"),
}
# The Python of a wheel: the version of its headers, what the names of modules end in.
PYTHONS = {"cp311-cp311": ("3.11", ""), "cp312-abi3": ("3.13", ".abi3")}


def headers(name):
    directory = BUILD / "python" / name
    found = [directory / part for part in DEBIAN if (directory / part).is_dir()]
    found = found or [next(directory.glob("include/**/Python.h")).parent]
    return ";".join(map(str, found))


def build(platform, jobs):
    """Returns the build tree, with the modules of both Pythons."""
    target, python311, later = PLATFORMS[platform]
    tree = BUILD / "cross" / target
    options = {
        "PATH_FILTER_WHEELS": "ON",
        "PATH_FILTER_PYTHON_3.11": headers(python311),
        "PATH_FILTER_PYTHON_3.13": headers(later),
    }
    options = [f"-D{key}={value}" for key, value in options.items()]
    subprocess.run(["cmake", "--preset", "cross", *options], check=True,
                   env=os.environ | {"TARGET": target})
    modules = [f"{name}{version}" for name in ("_core", "_native") for version, _ in PYTHONS.values()]
    subprocess.run(["cmake", "--build", tree, "-j", str(jobs), "--target", *modules], check=True)
    return tree


def metadata():
    """Returns the name of the .dist-info and its entries."""
    with tempfile.TemporaryDirectory() as into:
        name = prepare_metadata_for_build_wheel(into)
        files = [path for path in pathlib.Path(into).rglob("*") if path.is_file()]
        return name, {str(path.relative_to(into)): path.read_bytes() for path in files}


def module(tree, package, python, platform):
    """Returns the name and the content of a module of the wheel."""
    version, ending = PYTHONS[python]
    name = {"path_filter": "_core", "language_registry": "_native"}[package]
    file = next((tree / f"python-{version}").glob(f"{name}{version}.*"))
    if platform.startswith("musllinux"):  # zig calls it by its name for a linker
        libc = f"libc.musl-{platform.split('_', 3)[3]}.so.1"
        subprocess.run(["patchelf", "--replace-needed", "libc.so", libc, file], check=True)
    windows = platform.startswith("win")
    return name + ("" if windows else ending) + (".pyd" if windows else ".so"), file.read_bytes()


def pack(tree, python, platform, packages):
    name, entries = metadata()
    entries[f"{name}/WHEEL"] = (f"Wheel-Version: 1.0\nGenerator: path-filter\n"
                                f"Root-Is-Purelib: false\nTag: {python}-{platform}\n").encode()
    for package in map(pathlib.Path, packages):
        for path in (ROOT / package).iterdir():
            if path.suffix in (".py", ".pyi", ".typed"):
                entries[f"{package.name}/{path.name}"] = path.read_bytes()
        file, content = module(tree, package.name, python, platform)
        entries[f"{package.name}/{file}"] = content
    lines = []
    for path, content in sorted(entries.items()):
        digest = base64.urlsafe_b64encode(hashlib.sha256(content).digest()).rstrip(b"=").decode()
        lines.append(f"{path},sha256={digest},{len(content)}\n")
    entries[f"{name}/RECORD"] = "".join([*lines, f"{name}/RECORD,,\n"]).encode()

    commit = ["git", "log", "-1", "--format=%ct"]
    epoch = os.environ.get("SOURCE_DATE_EPOCH") or subprocess.check_output(commit)
    wheel = BUILD / "wheels" / f"{name.removesuffix('.dist-info')}-{python}-{platform}.whl"
    wheel.parent.mkdir(exist_ok=True)
    with zipfile.ZipFile(wheel, "w") as archive:
        # The .dist-info is last, as the format recommends.
        for path, content in sorted(entries.items(), key=lambda entry: (".dist-info/" in entry[0], entry)):
            info = zipfile.ZipInfo(path, time.gmtime(int(epoch))[:6])
            info.external_attr = 0o100644 << 16
            info.create_system = 3
            archive.writestr(info, content, zipfile.ZIP_DEFLATED)
    print(wheel.relative_to(ROOT), wheel.stat().st_size)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("platforms", nargs="*", choices=[*PLATFORMS, []], metavar="PLATFORM")
    parser.add_argument("-j", "--jobs", type=int, default=os.cpu_count())
    options = parser.parse_args()
    os.chdir(ROOT)
    project = tomllib.loads((ROOT / "pyproject.toml").read_text("utf-8"))
    for platform in options.platforms or PLATFORMS:
        tree = build(platform, options.jobs)
        for python in PYTHONS:
            pack(tree, python, platform, project["tool"]["scikit-build"]["wheel"]["packages"])


main()
