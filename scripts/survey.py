#!/usr/bin/env python3
"""Holds the language registry against the source trees of real projects.

    scripts/survey.py                      fetch what is missing, survey, print
    scripts/survey.py --against OLD.tsv    ... and say what moved since an earlier run

Run it before and after a change to the registry. The trees come from Debian's source packages and
from npm (some GB, kept in DATA/trees, so later runs take minutes; an own tree can be put there
too). The second opinion is `cloc`, which counts lines of code and names the language of each file
that it counts; what it says of a tree is kept as well. Needs apt-get, dpkg-source, npm and cloc.

Of each tree the table gives the files that are listed; those of no language; the percentage of the
listed that are binary (a NUL in the first 8 KiB; UTF-16 and UTF-32 with a mark are text); the files
whose language cloc knows by their name; the percentage of them that are of no language here; and
how many are of another language here than there. Below it stands what the figures are made of, by
file extension, and what looks like a lock or like minified code and is listed.
"""

import argparse
import collections
import csv
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
DEBIAN = """
    agda auctex autoconf bash busybox cargo cmake coq curl dracut ecl elixir-lang emacs erlang
    feynmf fish fmtlib fpc ghdl git gnuplot golang-1.19 gradle groovy gtk4 guava-libraries hugo
    jquery junit4 keepass2 kotlin lapack libmojolicious-perl libspring-java lua5.4 luajit luarocks
    maven mono neovim netty nim node-typescript node-webpack nodejs ocaml ocaml-batteries
    ocaml-dune pandoc perl phpunit poco postgresql-15 python-django qtbase-opensource-src
    quantum-espresso r-base r-cran-ggplot2 rabbitmq-server racket rails ruby3.1 rust-clap scala
    swi-prolog symfony systemd tcl8.6 texinfo texlive-bin tomcat9 u-boot vala vim wine wordpress
    wxwidgets3.2 zsh""".split()
NPM = {
    "npm-frameworks": "@angular/core next react react-dom svelte vue nuxt express @nestjs/core",
    "npm-tools": "eslint jest-cli prettier rollup typescript vite webpack pnpm serverless",
    "npm-styles": "bootstrap bulma font-awesome sass tailwindcss katex mathjax",
}

# What cloc's languages are called here, where that is not the same in lower case with hyphens.
EQUAL = """
    ANTLR Grammar = antlr | ASP.NET = aspnet xml | Ant = ant | Bazel = starlark |
    Bourne Again Shell = shell | Bourne Shell = shell | C Shell = tcsh | C# = csharp |
    C# Designer = csharp | C# Generated = csharp | C++ = cpp | C/C++ Header = c cpp |
    Cucumber = gherkin | DOS Batch = batchfile | Delphi Form = pascal | EEx = eex |
    ERB = erb javascript-erb | Fish Shell = fish | Expect = tcl | F# = fsharp | F# Script = fsharp |
    Fortran 77 = fortran | Fortran 90 = fortran | Fortran 95 = fortran |
    Freemarker Template = freemarker | Glade = xml | Gradle = gradle kotlin |
    IDL = interface-idl | JSON = json jsonc | JSP = jsp | JSX = javascript |
    Jupyter Notebook = jupyter | Lisp = common-lisp emacs-lisp | MSBuild script = xml |
    Mathematica = wolfram | Maven = maven-pom xml | Objective-C++ = objective-cpp |
    Oracle PL/SQL = plsql | PO File = gettext-catalog | Properties = java-properties |
    Protocol Buffers = protobuf | Qt = xml | Qt Project = qmake | ReasonML = reason |
    Rmd = rmarkdown | SaltStack = salt | Tcl/Tk = tcl | TeX = tex bibtex bibtex-style |
    Text = text meson requirements robots | TypeScript = typescript tsx | Vala Header = vala |
    Velocity Template Language = velocity | Verilog-SystemVerilog = verilog systemverilog |
    Visual Basic = vb6 vba vbnet | Visual Basic .NET = vbnet xml |
    Visual Basic Script = vbscript | Visual Studio Solution = vs-solution |
    Web Services Description = xml | WiX include = xml | WiX source = xml |
    WiX string localization = xml | Windows Message File = windows-mc |
    Windows Resource File = windows-rc | XAML = xml | XHTML = html | XML = xml ant maven-pom |
    XSD = xml | builder = ruby | make = makefile | reStructuredText = rst |
    vim script = vimscript | zsh = shell"""
EQUAL = {theirs: ours.split()
         for theirs, ours in (pair.strip().split(" = ") for pair in EQUAL.split("|"))}

# Names of locks, as a second opinion on is_lockfile.
LOCK = re.compile(r"(^|[-._])(lock|locked|lockfile|shrinkwrap|freeze|resolved)([-._]|$)", re.I)


def run(*command, **options):
    return subprocess.run(command, check=True, text=True, stdout=subprocess.PIPE, **options).stdout


def fetch_from_debian(data, names):
    """Unpacks source packages, by package lists of our own: the machine's may lack sources."""
    apt = data / "apt"
    for directory in ("lists/partial", "cache/archives/partial"):
        (apt / directory).mkdir(parents=True, exist_ok=True)
    sources = pathlib.Path("/etc/apt/sources.list.d/debian.sources")
    if not sources.exists():
        sources = pathlib.Path("/etc/apt/sources.list")
    own = apt / f"own{sources.suffix}"
    own.write_text(re.sub(r"^(Types: deb|deb)\b(?!-)", r"\1-src", sources.read_text(), flags=re.M))
    options = ["-qq", "-o", f"Dir::Etc::sourcelist={own}", "-o", "Dir::Etc::sourceparts=-",
               "-o", f"Dir::State::lists={apt}/lists", "-o", f"Dir::Cache={apt}/cache"]
    run("apt-get", *options, "update")
    for name in names:
        package = data / "packages" / name
        package.mkdir(parents=True, exist_ok=True)
        try:
            run("apt-get", *options, "source", "--download-only", name, cwd=package)
            run("dpkg-source", "--no-check", "--no-copy", "--skip-patches", "-x",
                *package.glob("*.dsc"), data / "trees" / name)
        except subprocess.CalledProcessError:
            print(f"{name} cannot be had and is left out", file=sys.stderr)
        shutil.rmtree(package)


def fetch_from_npm(data, name, packages):
    for package in packages.split():
        tree = data / "trees" / name / package
        tree.mkdir(parents=True)
        archive = run("npm", "pack", "--silent", package, cwd=tree).split()[-1]
        run("tar", "-xzf", archive, "--strip-components=1", cwd=tree)
        (tree / archive).unlink()


def extension(name):
    return "." + name.rpartition(".")[2] if "." in name[1:] else name


def names_of_cloc(data):
    """The extensions and file names by which cloc knows a language, without a look at the file."""
    definitions = data / "cloc.txt"
    run("cloc", f"--write-lang-def={definitions}")
    names = re.findall(r"^ +filename (\S+)", definitions.read_text(encoding="utf-8"), re.M)
    names += ["." + suffix for suffix in re.findall(r"^(\S+) +->", run("cloc", "--show-ext"), re.M)]
    return set(names)


def languages_by_cloc(data, tree):
    """What cloc names the language of each file that it counts."""
    counts = data / "cloc" / f"{tree}.csv"
    if not counts.exists():
        counts.parent.mkdir(exist_ok=True)
        run("cloc", "--by-file", "--csv", "--quiet", "--skip-uniqueness", "--out", counts, ".",
            cwd=data / "trees" / tree)
    with open(counts, encoding="utf-8", errors="surrogateescape", newline="") as file:
        return {path.removeprefix("./"): language
                for language, path, *_ in list(csv.reader(file))[1:] if language != "SUM"}


def survey(tree, program, data, cloc_names):
    """Counts of (kind, key), where a key is mostly a file extension."""
    root = data / "trees" / tree
    counts = collections.Counter()
    files = {}
    for options in ([], ["--excluded"]):
        lines = run(program, "list", "--json", "--root", ".", *options, cwd=root)
        files.update((file["path"], file) for file in map(json.loads, lines.splitlines()))
    for path, file in files.items():
        name = path.rpartition("/")[2]
        if file["kind"] == "unknown_language":
            counts["unknown", extension(name)] += 1
        if not file["indexable"] or not (root / path).is_file():  # a link that leads nowhere
            continue
        counts["listed", file["language"]] += 1
        with open(root / path, "rb") as content:
            head = content.read(8192)
            if head.startswith((b"\xff\xfe", b"\xfe\xff", b"\0\0\xfe\xff")):
                counts["utf-16/32", extension(name)] += 1
            elif b"\0" in head:
                counts["binary", extension(name)] += 1
            if file["language"] in ("javascript", "css"):
                head += content.read(1 << 16)
                if len(head) > 4096 and len(head) > 500 * (head.count(b"\n") + 1):
                    counts["minified?", path] += 1
        if LOCK.search(name) and file["language"] in ("json", "yaml", "toml", "xml", "text"):
            counts["lock?", name] += 1
    for path, theirs in languages_by_cloc(data, tree).items():
        name = path.rpartition("/")[2]
        parts = name.split(".")
        suffixes = {"." + ".".join(parts[-count:]) for count in range(1, min(len(parts), 3))}
        if path not in files or not ({name} | suffixes) & cloc_names:
            continue  # in a directory that is skipped; or told by its first line
        counts["cloc", theirs] += 1
        ours = files[path]["language"]
        if ours is None:
            counts["cloc-unknown", f"{extension(name)} {theirs}"] += 1
        elif ours not in EQUAL.get(theirs, [theirs.lower().replace(" ", "-")]):
            counts["differ", f"{extension(name)} {theirs} / {ours}"] += 1
    return counts


def total(counts, kind):
    return sum(count for (of, _), count in counts.items() if of == kind)


def show(trees, details):
    columns = ("tree", "listed", "unknown", "binary %", "cloc", "unknown %", "differ")
    print("| " + " | ".join(columns) + " |\n|---" + "|---:" * (len(columns) - 1) + "|")
    for tree, counts in trees.items():
        listed, cloc = total(counts, "listed"), total(counts, "cloc")
        print(f"| {tree} | {listed:,} | {total(counts, 'unknown'):,} "
              f"| {100 * total(counts, 'binary') / max(listed, 1):.3f} | {cloc:,} "
              f"| {100 * total(counts, 'cloc-unknown') / max(cloc, 1):.2f} "
              f"| {total(counts, 'differ'):,} |")
    for kind in ("binary", "utf-16/32", "cloc-unknown", "differ", "unknown", "lock?", "minified?"):
        keys, where = collections.Counter(), collections.defaultdict(collections.Counter)
        for tree, counts in trees.items():
            for (of, key), count in counts.items():
                if of == kind:
                    keys[key] += count
                    where[key][tree] += count
        print(f"\n{kind}: {keys.total():,}")
        for key, count in keys.most_common(details):
            most = ", ".join(f"{tree} {n}" for tree, n in where[key].most_common(3))
            print(f"{count:8,}  {key}  ({len(where[key])} trees: {most})")


def read_table(path):
    with open(path, encoding="utf-8") as file:
        rows = (line.rstrip("\n").split("\t") for line in file)
        return {tuple(key): int(count) for *key, count in rows}


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("trees", nargs="*", help="only these trees, by name")
    parser.add_argument("--data", type=pathlib.Path, default=ROOT / "build/survey")
    parser.add_argument("--program", default=ROOT / "build/gcc/program/path-filter")
    parser.add_argument("--details", type=int, default=40, help="rows of each list (%(default)s)")
    parser.add_argument("--out", default=None, help="where the figures go (DATA/survey.tsv)")
    parser.add_argument("--against", help="the figures of an earlier run")
    parser.add_argument("--offline", action="store_true", help="take the trees that are there")
    options = parser.parse_args()
    data = options.data.resolve()
    (data / "trees").mkdir(parents=True, exist_ok=True)
    is_there = lambda name: (data / "trees" / name).exists()
    if not options.offline:
        wanted = [name for name in options.trees or [*DEBIAN, *NPM] if not is_there(name)]
        if debian := [name for name in wanted if name not in NPM]:
            fetch_from_debian(data, debian)
        for name in set(wanted) & set(NPM):
            fetch_from_npm(data, name, NPM[name])
    names = filter(is_there, options.trees) if options.trees else sorted(os.listdir(data / "trees"))
    cloc_names = names_of_cloc(data)
    program = pathlib.Path(options.program).resolve()
    trees = {name: survey(name, program, data, cloc_names) for name in names}
    show(trees, options.details)
    figures = {(tree, *key): count
               for tree, counts in trees.items() for key, count in counts.items()}
    if options.against:
        earlier = read_table(options.against)
        print("\nMoved:")
        for key in sorted(figures.keys() | earlier.keys()):
            before, after = earlier.get(key, 0), figures.get(key, 0)
            if before != after and key[0] in trees:
                print(f"{before:8,} -> {after:,}  {' '.join(key)}")
    with open(options.out or data / "survey.tsv", "w", encoding="utf-8") as file:
        file.writelines(f"{tree}\t{kind}\t{key}\t{count}\n"
                        for (tree, kind, key), count in sorted(figures.items()))


main()
