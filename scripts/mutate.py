#!/usr/bin/env python3
"""Mutation sampling: how many small faults in the production code do the tests catch?

Lists every candidate site in the production sources (sorted files and lines), draws a
sample with a fixed seed, and for each mutant: writes it into the tree, rebuilds the
build directory of its own incrementally (Debug, no sanitizers, tests on), runs the
tests whose programs were relinked (the unit tier first, then the end-to-end tier,
stopping at the first failure) and puts the file back. The same seed and count give the
same sample on the same code. Run it through scripts/mutate.sh.
"""
import argparse
import json
import os
import random
import re
import signal
import subprocess
import sys
import time

SOURCE_DIRS = ["agent", "core", "platform", "tables", "events", "service/src", "service/include", "host"]
EXTENSIONS = (".c", ".cpp", ".h")
KINDS = ["comparison", "constant", "drop", "negate", "return"]
SKIPPED_LABELS = {"soak", "bench"}  # too slow for one mutant; run by the test command

CMP_FLIP = {"==": "!=", "!=": "==", "<=": ">", ">=": "<", "<": ">=", ">": "<="}
CMP_RE = re.compile(r"(?<=\s)(==|!=|<=|>=|<|>)(?=\s)")
INT_RE = re.compile(r"(?<![\w.])(\d+)(?![\w.'])")
IF_RE = re.compile(r"^(\s*(?:\}\s*else\s+)?(?:if|while)\s*)\((.*)\)(\s*\{?\s*)$")
RETURN_RE = re.compile(r"^(\s*return\s+)(.+);(\s*)$")
CALL_RE = re.compile(r"^\s*[A-Za-z_][\w:.\->\[\]]*\(.*\);\s*$")
ASSIGN_RE = re.compile(r"^\s*[A-Za-z_][\w.\->\[\]]*\s(=|\+=|-=|\|=|&=|\^=)\s.*;\s*$")
SKIP_CALL_RE = re.compile(r"^\s*(return|delete|throw|case|using|typedef|static_assert|else)\b")


def mask_strings(line):
    """The line with string and character literals blanked, same length."""
    return re.sub(r'"(\\.|[^"\\])*"|\'(\\.|[^\'\\])*\'', lambda m: " " * len(m.group(0)), line)


def balanced(text):
    depth = 0
    for ch in text:
        depth += ch == "("
        depth -= ch == ")"
        if depth < 0:
            return False
    return depth == 0


def sites_in_line(line):
    """Every (kind, description, mutated line) for one source line."""
    code = line.split("//", 1)[0]
    masked = mask_strings(code)
    stripped = masked.strip()
    if not stripped or stripped.startswith(("#", "*", "/*")) or "static_assert" in masked or "template" in masked:
        return []
    out = []
    for m in CMP_RE.finditer(masked):
        op = m.group(1)
        if op in ("<", ">") and ("<<" in masked or ">>" in masked or "->" in masked[m.start() - 1:m.end() + 1]):
            continue
        new = line[:m.start()] + CMP_FLIP[op] + line[m.end():]
        out.append(("comparison", f"'{op}' -> '{CMP_FLIP[op]}'", new))
    for m in INT_RE.finditer(masked):
        if masked[max(0, m.start() - 1):m.start()] in ("x", "X") or "[" in masked[:m.start()] and masked.rstrip().endswith(";") and "=" not in masked:
            continue  # array bounds in declarations
        value = int(m.group(1))
        new = line[:m.start()] + str(value + 1) + line[m.end():]
        out.append(("constant", f"{value} -> {value + 1}", new))
    m = IF_RE.match(code.rstrip("\n"))
    if m and balanced(m.group(2)) and "constexpr" not in m.group(1):
        new = f"{m.group(1)}(!({m.group(2)})){m.group(3)}" + line[len(code.rstrip(chr(10))):]
        out.append(("negate", "condition negated", new if new.endswith("\n") else new + "\n"))
    if (CALL_RE.match(masked) or ASSIGN_RE.match(masked)) and not SKIP_CALL_RE.match(masked) and balanced(masked):
        indent = line[:len(line) - len(line.lstrip())]
        out.append(("drop", "statement dropped", indent + ";\n"))
    m = RETURN_RE.match(masked.rstrip("\n"))
    if m:
        value = line[len(m.group(1)):len(m.group(1)) + len(m.group(2))]
        repl = {"true": "false", "false": "true"}.get(value.strip(), "{}" if value.strip() != "{}" else None)
        if repl:
            new = m.group(1) + repl + ";" + line[len(m.group(1)) + len(m.group(2)) + 1:]
            out.append(("return", f"return {value.strip()[:40]} -> return {repl}", new))
    return out


def candidate_sites(tree):
    files = subprocess.run(["git", "-C", tree, "ls-files", "--", *SOURCE_DIRS], check=True, capture_output=True,
                           text=True).stdout.split()
    sites = []
    for path in sorted(f for f in files if f.endswith(EXTENSIONS)):
        with open(os.path.join(tree, path), encoding="utf-8", errors="surrogateescape") as fh:
            lines = fh.readlines()
        in_comment = False
        for number, line in enumerate(lines, 1):
            if in_comment:
                in_comment = "*/" not in line
                continue
            if line.lstrip().startswith("/*"):
                in_comment = "*/" not in line
                continue
            for kind, what, new in sites_in_line(line):
                sites.append({"file": path, "line": number, "kind": kind, "what": what, "new": new})
    return sites


RUNNING = []  # the command under way, stopped with the script


def stop_running():
    for proc in RUNNING:
        try:
            os.killpg(proc.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        proc.wait()
    RUNNING.clear()


def run(cmd, cwd, timeout, log):
    """Runs a command; its output goes to log. Returns the exit code, or None on timeout."""
    with open(log, "a") as out:
        proc = subprocess.Popen(cmd, cwd=cwd, stdout=out, stderr=subprocess.STDOUT, start_new_session=True)
        RUNNING.append(proc)
        try:
            return proc.wait(timeout=timeout)
        except subprocess.TimeoutExpired:
            stop_running()
            return None
        finally:
            RUNNING.clear()


def artifacts(build):
    """mtime of every program and shared library in the build directory."""
    found = {}
    for root, dirs, names in os.walk(build):
        dirs[:] = [d for d in dirs if d not in ("CMakeFiles", "_deps", "Testing")]
        for name in names:
            path = os.path.join(root, name)
            if os.access(path, os.X_OK) and os.path.isfile(path) or name.endswith(".so"):
                found[path] = os.stat(path).st_mtime_ns
    return found


def test_list(build):
    data = json.loads(subprocess.run(["ctest", "--show-only=json-v1"], cwd=build, check=True, capture_output=True,
                                     text=True).stdout)
    tests = []
    for number, test in enumerate(data["tests"], 1):
        props = {p["name"]: p["value"] for p in test.get("properties", [])}
        labels = set(props.get("LABELS", []))
        if labels & SKIPPED_LABELS or not test.get("command"):
            continue
        tests.append({"number": number, "program": os.path.realpath(test["command"][0]), "e2e": "e2e" in labels})
    return tests


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--seed", type=int, default=20)
    parser.add_argument("--count", type=int, default=100)
    parser.add_argument("--tree", default=os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
    parser.add_argument("--build", help="build directory (default TREE/build/mutate)")
    parser.add_argument("--timeout", type=int, default=300, help="seconds for one mutant's build and tests")
    parser.add_argument("--list", action="store_true", help="print the sample and stop")
    parser.add_argument("--first", type=int, default=1, help="start at this mutant of the sample (resume a run)")
    parser.add_argument("--only", help="run only these mutants of the sample (numbers as the run prints them, "
                        "comma-separated), e.g. those another suite killed")
    args = parser.parse_args()
    tree = os.path.abspath(args.tree)
    only = {int(n) for n in args.only.split(",")} if args.only else None
    build = os.path.abspath(args.build or os.path.join(tree, "build", "mutate"))

    sites = candidate_sites(tree)
    # The five kinds in turn, each drawn from its own sites, so that the many constants do
    # not crowd out the rest.
    rng = random.Random(args.seed)
    by_kind = {kind: [i for i, s in enumerate(sites) if s["kind"] == kind] for kind in KINDS}
    for kind in KINDS:
        rng.shuffle(by_kind[kind])
    chosen = []
    while len(chosen) < min(args.count, len(sites)):
        for kind in KINDS:
            if by_kind[kind] and len(chosen) < args.count:
                chosen.append(by_kind[kind].pop())
    sample = [sites[i] for i in sorted(chosen)]
    print(f"{len(sites)} candidate sites, seed {args.seed}, {len(sample)} mutants", flush=True)
    if args.list:
        for s in sample:
            print(f"{s['file']}:{s['line']}: {s['kind']}: {s['what']}")
        return 0

    log = os.path.join(build, "mutate.log")
    os.makedirs(build, exist_ok=True)
    open(log, "w").close()
    print(f"building {build} (log {log})", flush=True)
    if run(["cmake", "-S", tree, "-B", build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug", "-DHM_BUILD_TESTS=ON",
            "-DHM_SANITIZE=", "-DHM_WERROR=OFF"], tree, None, log) != 0 or \
            run(["cmake", "--build", build, "-j2"], tree, None, log) != 0:
        print("the unmutated tree does not build: see the log", file=sys.stderr)
        return 2
    tests = test_list(build)
    programs = {t["program"] for t in tests}

    pending = {}  # path -> original text, put back on any exit

    def restore(*_):
        for path, text in pending.items():
            with open(path, "w", encoding="utf-8", errors="surrogateescape") as fh:
                fh.write(text)
        pending.clear()

    def interrupted(signum, _frame):
        stop_running()
        restore()
        raise KeyboardInterrupt

    signal.signal(signal.SIGINT, interrupted)
    signal.signal(signal.SIGTERM, interrupted)

    counts = {"killed": 0, "survived": 0, "build-failed": 0, "timed-out": 0, "untested": 0}
    survivors = []
    started = time.time()
    try:
        for index, site in enumerate(sample, 1):
            if index < args.first or (only and index not in only):
                continue
            t0 = time.time()
            path = os.path.join(tree, site["file"])
            with open(path, encoding="utf-8", errors="surrogateescape") as fh:
                text = fh.read()
            lines = text.splitlines(keepends=True)
            lines[site["line"] - 1] = site["new"]
            before = artifacts(build)
            pending[path] = text
            with open(path, "w", encoding="utf-8", errors="surrogateescape") as fh:
                fh.write("".join(lines))
            deadline = t0 + args.timeout
            code = run(["cmake", "--build", build, "-j2"], tree, args.timeout, log)
            if code is None:
                verdict = "timed-out"
            elif code != 0:
                verdict = "build-failed"
            else:
                after = artifacts(build)
                changed = {p for p, m in after.items() if before.get(p) != m}
                # A changed program or library outside the test programs (the daemon, the
                # service) reaches every end-to-end test, which starts them.
                others = bool(changed - programs)
                chosen = [t for t in tests if t["program"] in changed or (others and t["e2e"])]
                verdict = "untested" if not chosen else "survived"
                for tier in ([t for t in chosen if not t["e2e"]], [t for t in chosen if t["e2e"]]):
                    if not tier or verdict != "survived":
                        continue
                    left = deadline - time.time()
                    numbers = ",".join(str(t["number"]) for t in tier)
                    code = run(["ctest", "-j2", "--stop-on-failure", "--timeout", str(max(10, int(min(60, left)))),
                                "-I", f"0,0,0,{numbers}"], build, max(1, left), log) if left > 0 else None
                    if code is None:
                        verdict = "timed-out"
                    elif code != 0:
                        verdict = "killed"
            restore()
            counts[verdict] += 1
            where = f"{site['file']}:{site['line']}"
            if verdict == "survived":
                survivors.append(f"{where}: {site['kind']}: {site['what']}")
            print(f"[{index}/{len(sample)}] {verdict:12} {where}: {site['kind']}: {site['what']} "
                  f"({time.time() - t0:.0f} s)", flush=True)
    except KeyboardInterrupt:
        print("interrupted: the tree is restored; the figures below are partial", flush=True)
    finally:
        restore()
        # Put the build back in step with the restored tree.
        run(["cmake", "--build", build, "-j2"], tree, None, log)
    done = sum(counts.values())
    tested = counts["killed"] + counts["survived"]
    print(f"summary: seed {args.seed}, {done} mutants: {counts['killed']} killed, {counts['survived']} survived, "
          f"{counts['build-failed']} build-failed, {counts['timed-out']} timed-out, {counts['untested']} untested; "
          f"killed {counts['killed']}/{tested}; {(time.time() - started) / max(1, done):.0f} s per mutant")
    for s in survivors:
        print(f"survivor: {s}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
