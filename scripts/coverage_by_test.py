#!/usr/bin/env python3
"""Which lines of the library and the tool does each test run?

    scripts/coverage_by_test.py collect [--build DIR] [--out FILE] [--tests REGEX]
        Builds DIR (default build/cov) with gcc's --coverage, runs every ctest
        test on its own and writes, per test, the lines of src/, platform/ and
        tools/ it ran (JSON, default build/cov/by_test.json).
    scripts/coverage_by_test.py union [--build DIR] [--out FILE]
        Runs the whole suite once and writes the lines it ran (same format,
        one entry named "*").
    scripts/coverage_by_test.py report DATA [--by file|test] [--most N]
        Per test source file (or per test): how many lines no other test runs.
    scripts/coverage_by_test.py without DATA REGEX [REGEX ...]
        The lines nobody else runs once the tests whose name or file matches
        a REGEX are gone: what deleting or rewriting them could lose.
    scripts/coverage_by_test.py lost OLD NEW
        Lines OLD's tests ran that NEW's do not (e.g. a "union" run before and
        after a change to the tests).

A line that no test runs cannot fail a test; a line that only one test runs
is checked, if at all, by that test alone. Running a line is not checking
it: use this to see what a change to the tests could lose, then read the
assertions.
"""
import argparse
import json
import os
import re
import subprocess
import sys
from collections import defaultdict

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
TOPS = ("src/", "platform/", "tools/")


def configure(build):
    flags = "--coverage -O0 -g"
    subprocess.run(["cmake", "-S", ROOT, "-B", build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
                    f"-DCMAKE_C_FLAGS={flags}", f"-DCMAKE_CXX_FLAGS={flags}",
                    "-DCMAKE_EXE_LINKER_FLAGS=--coverage", "-DCMAKE_SHARED_LINKER_FLAGS=--coverage",
                    "-DCMAKE_MODULE_LINKER_FLAGS=--coverage"], check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", build, "-j", str(os.cpu_count() or 2)], check=True)


def clear_counts(build):
    for d, _, files in os.walk(build):
        for f in files:
            if f.endswith(".gcda"):
                os.unlink(os.path.join(d, f))


def ran_lines(build):
    """{source path relative to the root: set of line numbers run} from the .gcda files now in build."""
    by_dir = defaultdict(list)
    for d, _, files in os.walk(build):
        for f in files:
            if f.endswith(".gcda"):
                by_dir[d].append(f)
    out = defaultdict(set)
    for d, names in by_dir.items():
        p = subprocess.run(["gcov", "--json-format", "--stdout", "-o", d] + names, cwd=d,
                           stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        for doc in p.stdout.splitlines():
            doc = doc.strip()
            if not doc:
                continue
            for f in json.loads(doc).get("files", []):
                rel = source_path(f["file"])
                if not rel.startswith(TOPS):
                    continue
                lines = {ln["line_number"] for ln in f["lines"] if ln["count"] > 0}
                out[rel] |= lines
    return out


def source_path(name):
    """A source named by gcov, relative to the root. ccache (CCACHE_BASEDIR)
    leaves names relative to the folder of the compile, so leading ".."
    steps are dropped rather than resolved."""
    if os.path.isabs(name):
        return os.path.relpath(os.path.normpath(name), ROOT)
    parts = [p for p in os.path.normpath(name).split(os.sep) if p not in ("..", ".")]
    return os.path.join(*parts) if parts else name


def test_list(build):
    p = subprocess.run(["ctest", "--show-only=json-v1"], cwd=build, stdout=subprocess.PIPE, text=True, check=True)
    tests = []
    for t in json.loads(p.stdout)["tests"]:
        cmd = t.get("command") or []
        exe = os.path.basename(cmd[0]) if cmd else ""
        tests.append((t["name"], exe))
    return tests


def source_of(build, exe_name):
    """The test folder an executable was built from (tests/<folder>), or the executable's name."""
    for d, _, files in os.walk(os.path.join(build, "tests")):
        if exe_name in files:
            return os.path.relpath(d, build)
    return exe_name


def encode(lines):
    return {f: sorted(s) for f, s in sorted(lines.items())}


def collect(args):
    configure(args.build)
    tests = test_list(args.build)
    if args.tests:
        tests = [t for t in tests if re.search(args.tests, t[0])]
    data = {"tests": {}}
    for i, (name, exe) in enumerate(tests, 1):
        clear_counts(args.build)
        subprocess.run(["ctest", "-R", "^" + re.escape(name) + "$"], cwd=args.build,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        data["tests"][name] = {"file": source_of(args.build, exe), "lines": encode(ran_lines(args.build))}
        print(f"[{i}/{len(tests)}] {name}", file=sys.stderr, flush=True)
    write(args.out, data)


def union(args):
    configure(args.build)
    clear_counts(args.build)
    subprocess.run(["ctest", "-j", str(os.cpu_count() or 2)], cwd=args.build)
    write(args.out, {"tests": {"*": {"file": "*", "lines": encode(ran_lines(args.build))}}})


def write(path, data):
    path = path or os.path.join(ROOT, "build/cov/by_test.json")
    with open(path, "w") as f:
        json.dump(data, f)
    print(f"wrote {path}", file=sys.stderr)


def load(path):
    with open(path) as f:
        tests = json.load(f)["tests"]
    return {name: (t["file"], {(src, ln) for src, lns in t["lines"].items() for ln in lns})
            for name, t in tests.items()}


def runners(tests):
    who = defaultdict(set)
    for name, (_, lines) in tests.items():
        for key in lines:
            who[key].add(name)
    return who


def report(args):
    tests = load(args.data)
    who = runners(tests)
    group = (lambda n: tests[n][0]) if args.by == "file" else (lambda n: n)
    alone = defaultdict(int)
    ran = defaultdict(set)
    members = defaultdict(set)
    for name in tests:
        members[group(name)].add(name)
    for key, names in who.items():
        groups = {group(n) for n in names}
        if len(groups) == 1:
            alone[next(iter(groups))] += 1
    for name, (_, lines) in tests.items():
        ran[group(name)] |= lines
    rows = sorted(members, key=lambda g: (alone[g], -len(ran[g])))
    print(f"{len(who)} lines run by {len(tests)} tests; lines no other {args.by} runs, fewest first:")
    for g in rows[: args.most]:
        print(f"{alone[g]:6d} alone  {len(ran[g]):6d} run  {len(members[g]):3d} tests  {g}")


def without(args):
    tests = load(args.data)
    gone = {n for n, (f, _) in tests.items() if any(re.search(r, n) or re.search(r, f) for r in args.regex)}
    kept = set()
    for n, (_, lines) in tests.items():
        if n not in gone:
            kept |= lines
    lost = defaultdict(list)
    for n in gone:
        for key in tests[n][1] - kept:
            lost[key[0]].append(key[1])
    total = 0
    for src in sorted(lost):
        lns = sorted(set(lost[src]))
        total += len(lns)
        print(f"{src}: {compact(lns)}")
    print(f"{len(gone)} tests matched; {total} lines would be run by no other test")


def lost(args):
    old = set().union(*(l for _, l in load(args.old).values()))
    new = set().union(*(l for _, l in load(args.new).values()))
    by_src = defaultdict(list)
    for src, ln in old - new:
        by_src[src].append(ln)
    for src in sorted(by_src):
        print(f"{src}: {compact(sorted(by_src[src]))}")
    print(f"{len(old)} lines before, {len(new)} after, {len(old - new)} no longer run, {len(new - old)} newly run")


def compact(lns):
    parts, start, prev = [], None, None
    for n in lns + [None]:
        if start is None:
            start = prev = n
        elif n is not None and n == prev + 1:
            prev = n
        else:
            parts.append(f"{start}" if start == prev else f"{start}-{prev}")
            start = prev = n
    return ",".join(parts)


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    sub = ap.add_subparsers(dest="cmd", required=True)
    c = sub.add_parser("collect")
    c.add_argument("--build", default=os.path.join(ROOT, "build/cov"))
    c.add_argument("--out")
    c.add_argument("--tests")
    u = sub.add_parser("union")
    u.add_argument("--build", default=os.path.join(ROOT, "build/cov"))
    u.add_argument("--out")
    r = sub.add_parser("report")
    r.add_argument("data")
    r.add_argument("--by", choices=["file", "test"], default="file")
    r.add_argument("--most", type=int, default=400)
    w = sub.add_parser("without")
    w.add_argument("data")
    w.add_argument("regex", nargs="+")
    lo = sub.add_parser("lost")
    lo.add_argument("old")
    lo.add_argument("new")
    args = ap.parse_args()
    {"collect": collect, "union": union, "report": report, "without": without, "lost": lost}[args.cmd](args)


if __name__ == "__main__":
    main()
