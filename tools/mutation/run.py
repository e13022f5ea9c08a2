#!/usr/bin/env python3
"""Builds each deliberately broken variant of mutants.txt and runs the test suite on it.

Usage: tools/mutation/run.py WORKTREE BUILD_DIR [--only ID,ID] [--out results.jsonl]

The mutants are read from every *.txt file beside this script, one file per room.

WORKTREE is a git checkout that this script may change (use a worktree of its own: every
mutant is applied there and undone with `git checkout`). BUILD_DIR is a configured build of
it with the tests. A mutant is caught when at least one test fails or times out. The quick
tests run first and all of them run, so that the result names every quick test that caught
the mutant; the slow scenario tests run only for a mutant nothing quick caught.
"""
import argparse
import json
import os
import re
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
SLOW = r"integration\.test_(daemon_lifecycle|crash_storm|prompt_window|install)$"


def parse(path):
    mutants, block = [], None
    for line in open(path, encoding="utf-8").read().split("\n"):
        if block is None:
            m = re.match(r"^=== (\S+) \| (\S+)$", line)
            if m:
                block = {"id": m.group(1), "file": m.group(2), "old": [], "new": [], "part": "old"}
            continue
        if line == "---" and block["part"] == "old":
            block["part"] = "new"
        elif line == "+++":
            mutants.append({k: ("\n".join(v) if k in ("old", "new") else v)
                            for k, v in block.items() if k != "part"})
            block = None
        else:
            block[block["part"]].append(line)
    return mutants


def failed_tests(output):
    names, listing = [], False
    for line in output.splitlines():
        if line.startswith("The following tests FAILED"):
            listing = True
        elif listing:
            m = re.match(r"^\s*\d+ - (\S+)", line)
            if m:
                names.append(m.group(1))
    return names


def ctest(build, pattern_args, jobs):
    cmd = ["ctest", "--test-dir", build, "-j", str(jobs), "--timeout", "90"] + pattern_args
    out = subprocess.run(cmd, capture_output=True, text=True)
    return out.returncode, failed_tests(out.stdout)


def run_one(tree, build, mutant, jobs):
    path = os.path.join(tree, mutant["file"])
    text = open(path, encoding="utf-8").read()
    if text.count(mutant["old"] + "\n") != 1:
        return {"id": mutant["id"], "result": "stale"}
    open(path, "w", encoding="utf-8").write(text.replace(mutant["old"] + "\n",
                                                         mutant["new"] + ("\n" if mutant["new"] else ""), 1))
    start = time.time()
    try:
        built = subprocess.run(["cmake", "--build", build, "-j", str(jobs)],
                               capture_output=True, text=True)
        if built.returncode != 0:
            return {"id": mutant["id"], "result": "does-not-build"}
        rc, names = ctest(build, ["-E", SLOW], jobs)
        if rc == 0:
            rc, names = ctest(build, ["-R", SLOW], jobs)
        return {"id": mutant["id"], "result": "caught" if rc != 0 else "missed",
                "by": names, "seconds": round(time.time() - start)}
    finally:
        subprocess.run(["git", "-C", tree, "checkout", "--", mutant["file"]], check=True)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("tree")
    ap.add_argument("build")
    ap.add_argument("--only", default="")
    ap.add_argument("--out", default="mutation-results.jsonl")
    ap.add_argument("--jobs", type=int, default=2)
    args = ap.parse_args()

    mutants = []
    for name in sorted(os.listdir(HERE)):
        if name.endswith(".txt"):
            mutants += parse(os.path.join(HERE, name))
    if args.only:
        wanted = set(args.only.split(","))
        mutants = [m for m in mutants if m["id"] in wanted]
    caught = 0
    with open(args.out, "a", encoding="utf-8") as out:
        for mutant in mutants:
            result = run_one(args.tree, args.build, mutant, args.jobs)
            caught += result["result"] == "caught"
            out.write(json.dumps(result) + "\n")
            out.flush()
            print(json.dumps(result), flush=True)
    # Leave the build matching the unbroken tree.
    subprocess.run(["cmake", "--build", args.build, "-j", str(args.jobs)], capture_output=True)
    print(f"caught {caught} of {len(mutants)}")
    return 0 if caught == len(mutants) else 1


if __name__ == "__main__":
    sys.exit(main())
