#!/usr/bin/env python3
"""Plants faults in the C++ sources and counts how many the native tests catch.

Each mutant is one small change to one line: a comparison or boundary flipped, a condition
negated, a statement or call removed, a constant changed. Mutants are drawn with a seed, so a run
can be repeated exactly. The sources are copied to a tree of their own (the worktree is never
touched); each mutant is written there, built incrementally in that tree's build directory, and
the test binary is run with a time limit. A mutant the tests fail on (or time out on) is caught;
one that does not compile is not counted. Prints caught / planted per file and area, and the
survivors.

  tools/mutate.py --seed 17 --count 150                   # the three areas, 150 mutants each
  tools/mutate.py --area sort=src/sort/*.cpp --count 20   # an area of one's own
  tools/mutate.py --list --area sim=src/sim/transactions.cpp   # the candidates, nothing built

Run it niced on a shared machine (nice -n 19); it builds the release configuration, without
sanitizers (an out-of-bounds read a mutant causes is caught only when a result changes).
"""

import argparse
import fnmatch
import glob
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import time
from dataclasses import dataclass

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

# Areas: name, source globs, and the tests that cover them (a gtest filter; "*" for all).
DEFAULT_AREAS = {
    "sort": (["src/sort/*.cpp"], "*"),
    "qb": (["src/qb/txnMod.cpp", "src/qb/txnQuery.cpp", "src/qb/request.cpp",
            "src/qb/dataExt.cpp"], "*"),
    "sim": (["src/sim/transactions.cpp"], "*"),
}

# What the copied tree needs to configure and build the native tests.
TREE_PARTS = ["CMakeLists.txt", "CMakePresets.json", "cmake", "src", "cli", "tests", "samples",
              "tools", "win", "bench"]


@dataclass
class Mutant:
    path: str  # relative to the root
    line: int  # 1-based
    op: str
    before: str
    after: str  # the whole new line

    def describe(self):
        return f"{self.path}:{self.line} [{self.op}] {self.before.strip()} => {self.after.strip()}"


def code_part(line):
    """The line with string and character literals blanked and any // comment cut off, so that
    operators are found only in code (positions are kept)."""
    out, i, quote = [], 0, None
    while i < len(line):
        c = line[i]
        if quote:
            if c == "\\":
                out.append("  ")
                i += 2
                continue
            out.append(" " if c != quote else c)
            if c == quote:
                quote = None
        elif c in "\"'":
            quote = c
            out.append(c)
        elif line.startswith("//", i):
            break
        else:
            out.append(c)
        i += 1
    return "".join(out).ljust(len(line))


# Operator swaps, matched with the blanks clang-format puts around binary operators.
SWAPS = [
    ("cmp", " < ", " <= "), ("cmp", " <= ", " < "), ("cmp", " > ", " >= "), ("cmp", " >= ", " > "),
    ("cmp", " == ", " != "), ("cmp", " != ", " == "),
    ("logic", " && ", " || "), ("logic", " || ", " && "),
    ("arith", " + 1", " - 1"), ("arith", " - 1", " + 1"),
    ("bool", "true", "false"), ("bool", "false", "true"),
]
CONDITION = re.compile(r"\b(if|while) \(")
STATEMENT = re.compile(r"^\s*(\+\+|--)?[A-Za-z_][\w:.\->\[\]]*(\(|\s*(=|\+=|-=|\|=)\s|\+\+|--)")
NOT_STATEMENT = re.compile(r"^\s*(return|break|continue|case|default|goto|throw|co_)\b")
NO_EFFECT = re.compile(r"\.(reserve|shrink_to_fit)\(")  # removing these changes no result
NUMBER = re.compile(r"(?<![\w.])(\d+)(?![\w.])")
DECLARES = re.compile(r"^\s*[\w:<>]+\s+\w+\s*=")  # if (auto x = ...): no place for a "!"
# Debug-log calls: a changed level or a dropped trace line is seldom a fault anyone would see,
# and checking every trace line is the kind of test that restates the code. Left out.
LOGGING = re.compile(r"\b(DebugLog|TraceLog|ErrLog)\(")


def candidates(path):
    """Every mutant of one file, in line order."""
    with open(os.path.join(ROOT, path), encoding="utf-8") as f:
        lines = f.read().split("\n")
    result, in_block = [], False
    for n, line in enumerate(lines, 1):
        stripped = line.strip()
        if in_block:
            in_block = "*/" not in stripped
            continue
        if stripped.startswith("/*"):
            in_block = "*/" not in stripped
            continue
        if not stripped or stripped.startswith(("#", "//")) or "static_assert" in line:
            continue
        if LOGGING.search(line):
            continue
        code = code_part(line)
        for op, old, new in SWAPS:
            for m in re.finditer(re.escape(old) if op != "bool" else r"\b" + old + r"\b", code):
                result.append(Mutant(path, n, op, line, line[:m.start()] + new + line[m.end():]))
        for m in CONDITION.finditer(code):
            close = matching_paren(code, m.end() - 1)
            if close is not None and not DECLARES.match(code[m.end():close]):
                inner = line[m.end():close]
                result.append(Mutant(path, n, "negate", line,
                                     line[:m.end()] + "!(" + inner + ")" + line[close:]))
        if (code.rstrip().endswith(";") and STATEMENT.match(code) and not NOT_STATEMENT.match(code)
                and not NO_EFFECT.search(code) and balanced(code)):
            indent = line[:len(line) - len(line.lstrip())]
            result.append(Mutant(path, n, "remove", line, indent + ";"))
        for m in NUMBER.finditer(code):
            if "[" in code[:m.start()] and "]" in code[m.end():] and code.lstrip().startswith(
                    ("constexpr", "static", "const")):
                continue  # array bounds: mostly compile errors
            value = int(m.group(1))
            for new in sorted({value + 1, 0 if value else 1}):
                result.append(Mutant(path, n, "const", line,
                                     line[:m.start()] + str(new) + line[m.end():]))
    return result


def matching_paren(code, open_at):
    depth = 0
    for i in range(open_at, len(code)):
        depth += {"(": 1, ")": -1}.get(code[i], 0)
        if depth == 0:
            return i
    return None


def balanced(code):
    return code.count("(") == code.count(")") and code.count("{") == code.count("}")


def expand(globs):
    files = []
    for g in globs:
        files += sorted(os.path.relpath(p, ROOT) for p in glob.glob(os.path.join(ROOT, g)))
    return [f for f in files if not fnmatch.fnmatch(f, "*_win.cpp")]


def run(cmd, cwd, timeout):
    """Runs a command in a process group of its own, which is ended with it on a time-out or
    when this script is stopped (a compiler or a test left running would hold the machine)."""
    env = dict(os.environ)
    env.setdefault("CCACHE_BASEDIR", os.path.dirname(ROOT))
    p = subprocess.Popen(cmd, cwd=cwd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, env=env,
                         start_new_session=True)
    try:
        out, _ = p.communicate(timeout=timeout)
        return p.returncode, out.decode(errors="replace")
    except subprocess.TimeoutExpired:
        os.killpg(p.pid, signal.SIGKILL)
        p.communicate()
        return None, "timed out"
    except BaseException:
        os.killpg(p.pid, signal.SIGKILL)
        raise


def sync(source, target):
    """Copies what differs only, so that a second run does not rebuild everything."""
    if os.path.isdir(source):
        os.makedirs(target, exist_ok=True)
        for name in os.listdir(source):
            if name not in ("build", "__pycache__"):
                sync(os.path.join(source, name), os.path.join(target, name))
    elif os.path.isfile(source):
        with open(source, "rb") as a:
            data = a.read()
        if os.path.exists(target):
            with open(target, "rb") as b:
                if b.read() == data:
                    return
        with open(target, "wb") as b:
            b.write(data)
        shutil.copymode(source, target)


class Tree:
    """A copy of the sources with a build directory of its own."""

    def __init__(self, where, jobs):
        self.where, self.jobs = where, jobs
        self.src = os.path.join(where, "tree")
        # The build directory sits where the release preset puts its own (build/release), so
        # that ccache, given a base directory, finds the objects of a release build of the
        # unchanged sources and only the mutated file is compiled anew.
        self.build = os.path.join(self.src, "build", "release")
        os.makedirs(self.src, exist_ok=True)
        for part in TREE_PARTS:
            sync(os.path.join(ROOT, part), os.path.join(self.src, part))
        # The tests read Intuit's references and real QuickBooks messages from ../shared.
        shared, link = os.path.join(os.path.dirname(ROOT), "shared"), os.path.join(where, "shared")
        if os.path.isdir(shared) and not os.path.exists(link):
            os.symlink(shared, link)
        if not os.path.exists(os.path.join(self.build, "build.ninja")):
            cmd = ["cmake", "-S", self.src, "-B", self.build, "-G", "Ninja",
                   "-DCMAKE_BUILD_TYPE=Release", "-DPELMARK_SANITIZE=OFF"]
            if shutil.which("ccache"):
                cmd.append("-DCMAKE_CXX_COMPILER_LAUNCHER=ccache")
            code, out = run(cmd, ROOT, 600)
            if code != 0:
                sys.exit("mutate: configure failed\n" + out)

    def make(self):
        code, out = run(["ninja", "-C", self.build, "-j", str(self.jobs), "pelmark_tests"],
                        ROOT, 1200)
        return code == 0, out

    def test(self, gtest_filter, timeout):
        # The first failing test decides; the rest would only cost time.
        code, out = run([os.path.join(self.build, "pelmark_tests"), "--gtest_brief=1",
                         "--gtest_fail_fast", "--gtest_filter=" + gtest_filter], self.build,
                        timeout)
        return code, out

    def write(self, path, text):
        with open(os.path.join(self.src, path), "w", encoding="utf-8") as f:
            f.write(text)


def line_map(base, path):
    """Old line number (1-based) -> today's, for the lines of `path` at commit `base` that are
    still there unchanged."""
    import difflib
    old = subprocess.run(["git", "show", f"{base}:{path}"], cwd=ROOT, capture_output=True,
                         text=True).stdout.split("\n")
    new = open(os.path.join(ROOT, path), encoding="utf-8").read().split("\n")
    moved = {}
    for a, b, n in difflib.SequenceMatcher(None, old, new, autojunk=False).get_matching_blocks():
        for k in range(n):
            moved[a + k + 1] = b + k + 1
    return moved


def replanted(log, every, names, base=None):
    """The mutants of an earlier run's output, located again in today's sources: followed through
    the change since `base`, or else by the text of their line (the nearest line with that
    text to where it was)."""
    maps = {}
    with open(log, encoding="utf-8") as f:
        entries = re.findall(r"^\[(\S+) \d+/\d+\] (SURVIVED|caught[^:]*): (\S+?):(\d+) \[(\w+)\] "
                             r"(.*) => (.*)$", f.read(), re.M)
    drawn, gone, used = {}, {}, set()
    for name, verdict, path, line, op, before, after in entries:
        if name not in names or (verdict != "SURVIVED" and not every):
            continue
        try:
            text = open(os.path.join(ROOT, path), encoding="utf-8").read().split("\n")
        except OSError:
            text = []
        if base:
            if path not in maps:
                maps[path] = line_map(base, path)
            to = maps[path].get(int(line))
            if not to or text[to - 1].strip() != before.strip():
                gone.setdefault(name, []).append(f"{path}:{line} [{op}] {before}")
                continue
            indent = text[to - 1][:len(text[to - 1]) - len(text[to - 1].lstrip())]
            drawn.setdefault(name, []).append(
                Mutant(path, to, op, text[to - 1], indent + after.strip()))
            continue
        # Each line takes one mutant of a kind, within 40 lines of where it was: a second
        # "return false;" that was elsewhere must not land on the first one's line.
        at = [i for i, t in enumerate(text) if t.strip() == before.strip() and
              (path, i, after) not in used and abs(i + 1 - int(line)) <= 40]
        if not at:
            gone.setdefault(name, []).append(f"{path}:{line} [{op}] {before}")
            continue
        i = min(at, key=lambda i: abs(i + 1 - int(line)))
        used.add((path, i, after))
        indent = text[i][:len(text[i]) - len(text[i].lstrip())]
        drawn.setdefault(name, []).append(Mutant(path, i + 1, op, text[i], indent + after.strip()))
    for name in names:
        drawn.setdefault(name, [])
        print(f"{name}: {len(drawn[name])} planted again from {log}; "
              f"{len(gone.get(name, []))} whose line is gone:")
        for g in gone.get(name, []):
            print(f"  gone: {g}")
    return {n: sorted(m, key=lambda m: (m.path, m.line)) for n, m in drawn.items()}


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--seed", type=int, default=17)
    ap.add_argument("--count", type=int, default=150, help="mutants per area")
    ap.add_argument("--area", action="append", default=[],
                    help="NAME=GLOB[,GLOB...][:GTEST_FILTER]; default: sort, qb and sim")
    ap.add_argument("--work", type=os.path.abspath, default=os.path.join(ROOT, "build", "mutate"))
    ap.add_argument("--jobs", type=int, default=1)
    ap.add_argument("--timeout", type=float, default=0,
                    help="seconds per test run; default three times the clean run")
    ap.add_argument("--list", action="store_true", help="print the drawn mutants and stop")
    ap.add_argument("--survivors-of", metavar="LOG",
                    help="plant only the drawn mutants that this earlier run's output lists as "
                         "survivors (same seed, count and areas): after tests were added")
    ap.add_argument("--replant", metavar="LOG",
                    help="plant again the survivors an earlier run's output lists, found by their "
                         "text rather than their line (the sources may have changed since); a "
                         "mutant whose line is gone is counted as gone")
    ap.add_argument("--replant-base", metavar="REV",
                    help="with --replant: the commit the log's mutants were planted on; each line "
                         "is then followed through the change since (else found by its text)")
    ap.add_argument("--replant-all", action="store_true",
                    help="with --replant: every mutant the log built, caught or not")
    args = ap.parse_args()

    areas = {}
    for spec in args.area:
        name, _, rest = spec.partition("=")
        globs, _, flt = rest.partition(":")
        areas[name] = (globs.split(","), flt or "*")
    areas = areas or DEFAULT_AREAS

    rng = random.Random(args.seed)
    drawn = {}
    for name, (globs, flt) in areas.items():
        pool = [m for f in expand(globs) for m in candidates(f)]
        drawn[name] = sorted(rng.sample(pool, min(args.count, len(pool))),
                             key=lambda m: (m.path, m.line))
        print(f"{name}: {len(drawn[name])} of {len(pool)} candidates (seed {args.seed})")
    if args.survivors_of:
        with open(args.survivors_of, encoding="utf-8") as f:
            earlier = {tuple(m.groups()) for m in re.finditer(
                r"^\[(\S+) \d+/\d+\] SURVIVED: (.*)$", f.read(), re.M)}
        for name in drawn:
            drawn[name] = [m for m in drawn[name] if (name, m.describe()) in earlier]
            print(f"{name}: {len(drawn[name])} survivors of {args.survivors_of} planted again")
    if args.replant:
        drawn = replanted(args.replant, args.replant_all, set(areas), args.replant_base)
    if args.list:
        for name, mutants in drawn.items():
            for m in mutants:
                print(f"  {name} {m.describe()}")
        return 0

    tree = Tree(args.work, args.jobs)
    ok, out = tree.make()
    if not ok:
        sys.exit("mutate: the unchanged sources do not build\n" + out[-3000:])
    timeouts = {}
    for name, (_, flt) in areas.items():
        start = time.time()
        code, out = tree.test(flt, 3600)
        if code != 0:
            sys.exit(f"mutate: the tests fail without a mutant ({name})\n" + out[-3000:])
        timeouts[name] = args.timeout or max(30.0, 3 * (time.time() - start))

    stats, survivors = {}, []
    for name, mutants in drawn.items():
        flt = areas[name][1]
        originals = {}
        for i, m in enumerate(mutants, 1):
            if m.path not in originals:
                # Mutants are in file order: put the previous file back before the next one.
                for path, text in originals.items():
                    tree.write(path, text)
                originals = {m.path: open(os.path.join(ROOT, m.path), encoding="utf-8").read()}
            lines = originals[m.path].split("\n")
            lines[m.line - 1] = m.after
            tree.write(m.path, "\n".join(lines))
            s = stats.setdefault((name, m.path), [0, 0, 0])  # caught, planted, not built
            built, _ = tree.make()
            if not built:
                s[2] += 1
                verdict = "not built"
            else:
                s[1] += 1
                code, _ = tree.test(flt, timeouts[name])
                if code != 0:  # a failure, a crash or a time-out
                    s[0] += 1
                    verdict = "caught" if code is not None else "caught (time-out)"
                else:
                    survivors.append((name, m))
                    verdict = "SURVIVED"
            print(f"[{name} {i}/{len(mutants)}] {verdict}: {m.describe()}", flush=True)
        for path, text in originals.items():
            tree.write(path, text)
    tree.make()

    print(f"\nseed {args.seed}, {args.count} per area")
    print(f"{'area':6} {'file':34} {'caught':>7} {'planted':>8} {'not built':>10}")
    for name in drawn:
        total = [0, 0, 0]
        for (area, path), s in sorted(stats.items()):
            if area != name:
                continue
            total = [a + b for a, b in zip(total, s)]
            print(f"{name:6} {path:34} {s[0]:7} {s[1]:8} {s[2]:10}")
        pct = 100.0 * total[0] / total[1] if total[1] else 0.0
        print(f"{name:6} {'(area)':34} {total[0]:7} {total[1]:8} {total[2]:10}   {pct:.0f}%")
    print("\nsurvivors:")
    for name, m in survivors:
        print(f"  {name} {m.describe()}")
    return 0


if __name__ == "__main__":
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("mutate: stopped"))
    sys.exit(main())
