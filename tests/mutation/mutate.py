#!/usr/bin/env python3
"""Makes small faults in the product, one at a time, and writes down which tests notice each of them.

A fault (a mutant) is one flipped comparison, one changed number or text, one dropped call and so on. Each
worker has its own copy of the tree and its own build in build/mutate, so the working tree is never touched.
A mutant that does not compile says nothing and is left out of the score.

build/mutate/matrix.json holds every mutant with the tests that noticed it, and the tests that were nobody's
only witness. A program that crashes or takes too long tells of the tests up to there. Slower programs are asked only of
what the quicker ones have not noticed, and the slowest stops at the first test that fails.
"""

import argparse
import concurrent.futures
import itertools
import json
import os
import pathlib
import queue
import random
import re
import resource
import shutil
import subprocess
import sys
import time
import typing

ROOT = pathlib.Path(__file__).resolve().parents[2]
WORK = ROOT / "build" / "mutate"

# Who is asked about a fault in which folder, of which the longest that fits counts: test programs of the build,
# the quickest first, without the tests that take minutes.
WITNESSES = {
    "source": ["plugin/tovik_plugin_tests", "load/tovik_load_tests"],
    "include": ["plugin/tovik_plugin_tests"],
    "simulator": ["simulator/tovik_simulator_tests", "load/tovik_load_tests"],
    "host": ["host/tovik_image_tests", "host/tovik_host_tests", "load/tovik_load_tests",
             "host/tovik_program_tests"],
    "host/cli": ["host/tovik_program_tests"],
    "host/gdb": ["gdb/tovik_gdb_tests"],
    "host/cli/GdbserverVerb.cpp": ["gdb/tovik_gdb_tests"],
}
SLOW_TESTS = "*Sweep*:*PowerCut*"

SWAPS = {
    " < ": " <= ", " <= ": " < ", " > ": " >= ", " >= ": " > ", " == ": " != ", " != ": " == ",
    " && ": " || ", " || ": " && ", " + ": " - ", " - ": " + ", " & ": " | ", " | ": " & ",
    " << ": " >> ", " >> ": " << ",
}
# clang-format puts blanks around binary operators, which tells them from template brackets and pointers.
TOKEN = re.compile(
    r'(?P<string>"(?:[^"\\\n]|\\.)*")'
    r"|(?P<char>'(?:[^'\\\n]|\\.)+')"
    r"|(?P<comment>//[^\n]*|/\*.*?\*/)"
    r"|(?P<directive>^\s*#[^\n]*|^\s*static_assert\([^;]*;)"
    r"|(?P<swap> (?:<=|>=|==|!=|&&|\|\||<<|>>|[<>+\-&|]) )"
    r"|(?P<flag>\b(?:true|false)\b)"
    r"|(?P<number>\b(?:0x[0-9A-Fa-f']+|\d[\d']*)\b)"
    r"|(?P<negation>!(?=[\w(]))"
    r"|(?P<statement>(?<=\n)[ ]+(?:throw\b|(?!return\b|delete\b|else\b)[\w.:>\-]+\()[^;{}\n]*;)",
    re.MULTILINE | re.DOTALL,
)


class Mutant(typing.NamedTuple):
    file: str
    line: int
    start: int
    end: int
    old: str
    new: str

    def __str__(self):
        return f"{self.file}:{self.line}: {self.old.strip()}  ->  {self.new.strip(' ;') or '(dropped)'}"


def other_number(text):
    digits = text.replace("'", "")
    return f"0x{int(digits, 16) + 1:X}" if digits.lower().startswith("0x") else str(int(digits) + 1)


REPLACEMENTS = {
    "swap": SWAPS.get,
    "flag": lambda text: "false" if text == "true" else "true",
    "number": other_number,
    "string": lambda text: re.sub(r"(?<![\\%])[A-Za-z]", lambda letter: "z" if letter[0] == "q" else "q", text, 1),
    "negation": lambda text: "",
    "statement": lambda text: ";",  # which may follow an if
}


def mutants_of(path):
    text = path.read_text()
    position = 0
    while match := TOKEN.search(text, position):
        kind, old = match.lastgroup, match.group()
        # The parts of a statement that can be dropped are changed one by one as well.
        position = match.start() + len(old) - len(old.lstrip()) + 1 if kind == "statement" else match.end()
        new = REPLACEMENTS.get(kind, str)(old)
        if new != old:
            line = text.count("\n", 0, match.start() + (kind == "statement")) + 1
            yield Mutant(str(path.relative_to(ROOT)), line, match.start(), match.end(), old, new)


def witnesses_of(file):
    folders = [folder for folder in WITNESSES if (file + "/").startswith(folder + "/")]
    return WITNESSES[max(folders, key=len)] if folders else sys.exit(f"{file}: no test program is known")


class Worker:
    def __init__(self, number, programs):
        self.tree = WORK / str(number) / "tree"
        self.build = WORK / str(number) / "build"
        # With the build: a copy keeps the old dates, so the objects of the last mutant would pass for new.
        shutil.rmtree(WORK / str(number), ignore_errors=True)
        shutil.copytree(ROOT, self.tree, ignore=shutil.ignore_patterns("build", ".git"))
        run(["cmake", "-S", self.tree, "-B", self.build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
             "-DCMAKE_CXX_FLAGS=-w", "-DCMAKE_CXX_FLAGS_DEBUG=-O0", "-DTOVIK_UNITY=OFF",
             # Of the two linkers of binutils the quick one: every mutant links the tests again.
             "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=gold", "-DCMAKE_MODULE_LINKER_FLAGS=-fuse-ld=gold"])
        if not self.compile(programs, jobs=2):
            sys.exit(f"the unchanged tree does not build: see {self.build}")
        self.limits = dict.fromkeys(programs, 600)
        self.tests = set()
        for program in programs:
            start = children_seconds()
            tests, failing = self.run_tests(program)
            if failing:
                sys.exit(f"fails on the unchanged tree: {failing}")
            self.limits[program] = int(5 + 5 * (children_seconds() - start))
            self.tests |= tests

    def compile(self, programs, jobs=1):
        targets = ["FlashDeviceTovik"] + [pathlib.Path(program).name for program in programs]
        return run(["ninja", "-C", self.build, f"-j{jobs}", *targets]).returncode == 0

    def noticed_by(self, mutant):
        """The tests that fail, by name; None when the mutant does not compile."""
        path, programs = self.tree / mutant.file, witnesses_of(mutant.file)
        original = path.read_text()
        path.write_text(original[:mutant.start] + mutant.new + original[mutant.end:])
        try:
            for program in programs:
                if not self.compile([program]):
                    return None
                if noticed := self.run_tests(program, stops=program == programs[-1])[1]:
                    break
            return sorted(noticed)
        finally:
            path.write_text(original)

    def run_tests(self, program, stops=False):
        """The tests that were run, and those of them that failed."""
        limit = self.limits[program]
        command = ["prlimit", f"--cpu={limit}", self.build / "tests" / program, f"--gtest_filter=-{SLOW_TESTS}",
                   f"--gtest_fail_fast={int(stops)}"]
        try:
            # What waits for ever uses no processor; what waits for one has many times its share to come.
            done = run(command, timeout=20 * limit, env={**os.environ, "RC_PARAMS": "seed=1 noshrink=1"})
            output, failed = done.stdout.decode(errors="replace"), done.returncode != 0
        except subprocess.TimeoutExpired as late:
            output, failed = (late.stdout or b"").decode(errors="replace"), True
        tests = set(re.findall(r"\[ RUN      \] (\S+)", output))
        failing = tests - set(re.findall(r"\[ +(?:OK|SKIPPED) \] ([^\s,]+)", output))
        return tests, failing or ({program} if failed else set())


def children_seconds():
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


def run(command, **options):
    return subprocess.run([str(part) for part in command], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                          **options)


def drawn_mutants(arguments):
    """Of each place the first so many of a shuffled list: a smaller sample is part of a larger one."""
    places = [place.resolve() for place in arguments.places] or [ROOT / "source"]
    if arguments.changed:
        changed = run(["git", "-C", ROOT, "diff", "--name-only", "--diff-filter=d", arguments.changed, "--", *WITNESSES])
        places = [ROOT / name for name in changed.stdout.decode().split()]
    drawn = []
    for place in places:
        files = sorted(file for file in ([place] if place.is_file() else place.rglob("*"))
                       if file.suffix in (".cpp", ".h"))
        mutants = [mutant for file in files for mutant in mutants_of(file)]
        if arguments.sample:
            random.Random(arguments.seed).shuffle(mutants)
        drawn.append(mutants[:arguments.sample or None])
    # By turns, so that a run that is broken off tells of every place.
    return [mutant for row in itertools.zip_longest(*drawn) for mutant in row if mutant]


def write_matrix(verdicts, all_tests):
    """Returns the tests without which every fault would still have been noticed."""
    spare = all_tests - {tests[0] for tests in verdicts.values() if tests and len(tests) == 1}
    rows = [{"mutant": str(mutant), "compiles": tests is not None, "noticedBy": tests or []}
            for mutant, tests in verdicts.items()]
    matrix = {"mutants": rows, "nobodysOnlyWitness": sorted(spare)}
    (WORK / "matrix.json").write_text(json.dumps(matrix, indent=1) + "\n")
    return spare


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("places", nargs="*", type=pathlib.Path, help="files or folders (default: source)")
    parser.add_argument("--changed", metavar="BASE", help="the files that differ from this commit")
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--sample", type=int, default=0, metavar="N",
                        help="try only N mutants of each place, drawn at random")
    parser.add_argument("--seed", type=int, default=1, help="of the draw")
    parser.add_argument("--list", action="store_true", help="print the mutants and stop")
    arguments = parser.parse_args()

    mutants = drawn_mutants(arguments)
    programs = list(dict.fromkeys(program for mutant in mutants for program in witnesses_of(mutant.file)))
    if arguments.list or not mutants:
        print(*mutants, sep="\n")
        return

    # For everything that is started here: a loop that never ends takes all there is otherwise.
    resource.setrlimit(resource.RLIMIT_AS, (4 << 30, 4 << 30))
    workers = queue.Queue()
    for number in range(arguments.jobs):
        print(f"Building copy {number + 1} of {arguments.jobs} ...", flush=True)
        workers.put(Worker(number, programs))
    all_tests = workers.queue[0].tests

    def judge(mutant):
        worker = workers.get()
        tests = worker.noticed_by(mutant)
        workers.put(worker)
        return mutant, tests

    verdicts = {}
    with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
        for mutant, tests in pool.map(judge, mutants):
            verdicts[mutant] = tests
            if tests == []:
                print(mutant, flush=True)
            spare = write_matrix(verdicts, all_tests)
            if len(verdicts) % 50 == 0:
                print(f"-- {len(verdicts)} of {len(mutants)} tried", flush=True)
    for folder in sorted({mutant.file.split("/")[0] for mutant in verdicts}):
        judged = [tests for mutant, tests in verdicts.items() if mutant.file.startswith(folder + "/")]
        compiled = sum(tests is not None for tests in judged)
        noticed = sum(bool(tests) for tests in judged)
        print(f"{folder}: {noticed} of {compiled} mutants noticed ({100 * noticed / max(compiled, 1):.1f} %)")
    print(f"{len(spare)} tests are nobody's only witness: build/mutate/matrix.json")


if __name__ == "__main__":
    main()
