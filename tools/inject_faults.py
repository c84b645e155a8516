#!/usr/bin/env python3
"""Measures which injected faults the test suite catches.

Copies the module's sources into a scratch tree, builds them once, then for
each fault: changes one place of one operation source, rebuilds, installs
into a scratch prefix and runs each given suite against it (`pytest -x`, the
quality checks left out).  A fault a suite lets pass is "missed"; a fault
that does not compile is "stillborn" and counts for nobody.

Faults, drawn reproducibly (--seed) from the operation sources:
  wrapper   one character of a wrapper name changed
  key       one character of a params key or parameter name changed
  message   one character of a refusal message changed
  compare   a comparison flipped (== / !=, < / >=, > / <=)
  delete    one statement of an operation source deleted
  swap      the tools of two neighbouring variants swapped

Usage (from the repository root, after ./dev has made .venv):
  .venv/bin/python tools/inject_faults.py --per-kind 6 \
      --suite now=. --suite old=/path/to/another/checkout
A suite is a checkout whose tests/ (and sim/) are run; the module always
comes from this tree's sources.  Prints one line per fault and a summary;
--json FILE keeps the details.  Takes about half a minute per fault.
"""
import argparse
import json
import os
import pathlib
import random
import re
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[1]
OPS = "src/orvex/api/hostos/raid/raid"
OP_DIRS = ("controller", "physical_drive", "virtual_drive", "background_tasks")

WRAPPER = re.compile(r'"([a-z][a-z0-9_]*_(?:storcli64|arcconf|sorbctl|storelibtest))"')
KEY = re.compile(r'(?:\.put|\.rename|\.copy|\.lookup|p_set|p_get|p_pop|p_has|'
                 r'\.as|\barg|\bkw)\("([A-Za-z_][A-Za-z0-9_]*)"')
MESSAGE = re.compile(r'"([^"\\]*(?:[\u4e00-\u9fff]|There is no such command)[^"\\]*)"')
REFUSING = re.compile(r"refuse|checked_by|\bstr\(|[Mm]essage|kMsg")
COMPARE = re.compile(r"(==|!=|(?<![<>])<(?![<=])|(?<![->])>(?![>=])|<=|>=)")
STATEMENT = re.compile(r"^\s+(?!\s)(?!return\b|//|case\b|default\b|Ref |const |auto |int |bool |"
                       r"PyObject|static|constexpr|using|struct|for|while|if|else|\}|\{).*;\s*$")
TOOL = re.compile(r"Tool::(storcli64|arcconf|sorbctl|storelibtest)")
FLIP = {"==": "!=", "!=": "==", "<": ">=", ">=": "<", ">": "<=", "<=": ">"}


def change_char(text, rng):
    """The text with one letter changed (a letter stays a letter)."""
    spots = [i for i, ch in enumerate(text) if ch.isalpha() or ord(ch) > 127]
    i = rng.choice(spots)
    new = "?" if ord(text[i]) > 127 else ("x" if text[i] != "x" else "y")
    return text[:i] + new + text[i + 1:]


def candidates(path, lines):
    """Every place of one source where a fault can go: (kind, line no, new line)."""
    out = []
    in_comment = False
    for n, line in enumerate(lines):
        stripped = line.strip()
        if stripped.startswith("/*"):
            in_comment = True
        if in_comment:
            in_comment = "*/" not in stripped
            continue
        if stripped.startswith(("//", "#")):
            continue
        for kind, pattern in (("wrapper", WRAPPER), ("key", KEY), ("message", MESSAGE)):
            if kind == "message" and not REFUSING.search(lines[n - 1] + line):
                continue  # documentation, not a message
            for m in pattern.finditer(line):
                out.append((kind, n, m.start(1), m.end(1)))
        for m in COMPARE.finditer(line):
            if "template" in line or "#include" in line or "->" in line[m.start() - 1:m.end() + 1]:
                continue
            out.append(("compare", n, m.start(1), m.end(1)))
        if STATEMENT.match(line) and "Tool::" not in line and not stripped.startswith('"') \
                and not stripped.endswith(("});", "}));")) and ".words(" not in line:
            out.append(("delete", n, 0, len(line)))
    tools = [(n, m) for n, line in enumerate(lines) for m in TOOL.finditer(line)]
    for (n1, m1), (n2, m2) in zip(tools, tools[1:]):
        if n2 - n1 <= 3 and m1.group(1) != m2.group(1):
            out.append(("swap", n1, n2, (m1, m2)))
    return out


def apply(lines, cand, rng):
    kind, n = cand[0], cand[1]
    new = list(lines)
    if kind == "swap":
        n2, (m1, m2) = cand[2], cand[3]
        a, b = m1.group(1), m2.group(1)
        if n == n2:
            line = new[n]
            new[n] = line[:m1.start(1)] + b + line[m1.end(1):m2.start(1)] + a + line[m2.end(1):]
        else:
            new[n] = new[n][:m1.start(1)] + b + new[n][m1.end(1):]
            new[n2] = new[n2][:m2.start(1)] + a + new[n2][m2.end(1):]
        return new, "Tool::%s <-> Tool::%s" % (a, b)
    start, end = cand[2], cand[3]
    line = new[n]
    if kind == "delete":
        new[n] = "\n"
        return new, "deleted: " + line.strip()
    old = line[start:end]
    repl = FLIP[old] if kind == "compare" else change_char(old, rng)
    new[n] = line[:start] + repl + line[end:]
    return new, "%s -> %s" % (old, repl)


def run(cmd, **kw):
    return subprocess.run(cmd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **kw)


def run_suite(checkout, site, timeout):
    env = dict(os.environ, RAID_SITE=str(site))
    env.pop("RAID_WHEEL", None)
    cmd = [sys.executable, "-m", "pytest", "-x", "-q", "-p", "no:cacheprovider",
           "--ignore=tests/quality", "tests"]
    try:
        r = run(cmd, cwd=checkout, env=env, timeout=timeout)
    except subprocess.TimeoutExpired:
        return "caught (timeout)"
    return "passed" if r.returncode == 0 else "caught"


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    ap.add_argument("--suite", action="append", required=True, metavar="NAME=CHECKOUT")
    ap.add_argument("--per-kind", type=int, default=6)
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--timeout", type=int, default=600)
    ap.add_argument("--only", help="operation folders to draw from, e.g. controller,virtual_drive")
    ap.add_argument("--json")
    ap.add_argument("--keep", help="scratch directory to use and keep")
    args = ap.parse_args()
    suites = [s.split("=", 1) for s in args.suite]

    scratch = pathlib.Path(args.keep or tempfile.mkdtemp(prefix="faults-"))
    tree, build, site = scratch / "tree", scratch / "build", scratch / "site"
    if tree.exists():
        shutil.rmtree(tree)
    files = run(["git", "ls-files", "src", "CMakeLists.txt"], cwd=ROOT).stdout.split()
    for f in files:
        (tree / f).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(ROOT / f, tree / f)
    configure = ["cmake", "-S", str(tree), "-B", str(build), "-G", "Ninja",
                 "-DCMAKE_BUILD_TYPE=Debug", "-DPython_EXECUTABLE=" + sys.executable]

    def rebuild():
        r = run(configure) if not (build / "build.ninja").exists() else None
        if r is not None and r.returncode:
            sys.exit("configure failed:\n" + r.stdout)
        if run(["cmake", "--build", str(build)]).returncode:
            return False
        return run(["cmake", "--install", str(build), "--prefix", str(site)]).returncode == 0

    if not rebuild():
        sys.exit("the unchanged sources do not build")
    for name, checkout in suites:
        if run_suite(checkout, site, args.timeout) != "passed":
            sys.exit("suite %s fails on the unchanged module" % name)

    rng = random.Random(args.seed)
    dirs = args.only.split(",") if args.only else OP_DIRS
    sources = sorted(p for d in dirs for p in (tree / OPS / d).glob("*.cpp"))
    pool = {}
    for path in sources:
        lines = path.read_text().splitlines(keepends=True)
        for cand in candidates(path, lines):
            pool.setdefault(cand[0], []).append((path, cand))
    faults = []
    for kind in ("wrapper", "key", "message", "compare", "delete", "swap"):
        choices = pool.get(kind, [])
        faults += [(kind, c) for c in rng.sample(choices, min(args.per_kind, len(choices)))]

    results = []
    for i, (kind, (path, cand)) in enumerate(faults, 1):
        original = path.read_text()
        lines, what = apply(original.splitlines(keepends=True), cand, rng)
        path.write_text("".join(lines))
        where = "%s:%d" % (path.relative_to(tree / OPS), cand[1] + 1)
        try:
            if not rebuild():
                outcome = {name: "stillborn" for name, _ in suites}
            else:
                outcome = {name: run_suite(checkout, site, args.timeout)
                           for name, checkout in suites}
        finally:
            path.write_text(original)
        results.append({"kind": kind, "where": where, "change": what, "outcome": outcome})
        print("%3d %-8s %-34s %s | %s" % (i, kind, where, " ".join(
            "%s:%s" % kv for kv in outcome.items()), what[:70]), flush=True)
    rebuild()

    print("\nsummary (faults that compiled: caught / missed)")
    for name, _ in suites:
        live = [r for r in results if r["outcome"][name] != "stillborn"]
        missed = [r for r in live if r["outcome"][name] == "passed"]
        print("  %-8s %d / %d missed: %s" % (name, len(live) - len(missed), len(missed),
                                            ", ".join(r["where"] for r in missed) or "none"))
    if args.json:
        pathlib.Path(args.json).write_text(json.dumps(results, indent=1, ensure_ascii=False))
    if not args.keep:
        shutil.rmtree(scratch, ignore_errors=True)


if __name__ == "__main__":
    main()
