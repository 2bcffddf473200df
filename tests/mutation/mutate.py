#!/usr/bin/env python3
"""Makes small faults in the product, one at a time, and writes down which tests notice each of them.

A fault (a mutant) is one flipped comparison, one changed number or text, one dropped call and so on. Each
worker has its own copy of the tree and its own build in build/mutate, so the working tree is never touched.
What is built stays as it is: the files that a mutant changes are compiled, not optimized, beside it and linked in
its place. A mutant that does not compile says nothing and is left out of the score, and so is one that the compiler,
when it optimizes, makes the same code of as without it: no test can tell the two.

build/mutate/matrix.json holds every mutant with the tests that noticed it, and the tests that were nobody's
only witness. A program that crashes or takes too long tells of the tests up to there. Slower programs are asked only of
what the quicker ones have not noticed, and stop at the first test that fails.
"""

import argparse
import collections
import concurrent.futures
import contextlib
import filecmp
import itertools
import json
import os
import pathlib
import queue
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import typing

ROOT = pathlib.Path(__file__).resolve().parents[2]
WORK = ROOT / "build" / "mutate"

# Each replays its seeds.
FUZZERS = [f"fuzz/{name}_fuzzer tests/data/fuzz/{name}"
           for name in ("Plugin", "ImageFiles", "DeviceFiles", "GdbPackets", "ProbeAnswers")]
# Who is asked about a fault in which folder, of which the longest that fits counts: test programs of the build,
# the quickest first, some of them for a part of their tests, otherwise without those that take long or are done for
# each device.
WITNESSES = {
    "source": ["plugin/tovik_plugin_tests", "load/tovik_load_tests"],
    "include": ["plugin/tovik_plugin_tests"],
    "simulator": ["simulator/tovik_simulator_tests", "load/tovik_load_tests", "host/tovik_program_tests",
                  "load/tovik_load_tests *Sweep*serin_s20:*PowerCut*serin_s20"],
    "host": ["host/tovik_image_tests", "host/tovik_host_tests", "host/tovik_program_tests", "load/tovik_load_tests",
             "check/tovik_check_tests", "gdb/tovik_gdb_tests", "openocd/tovik_openocd_tests", *FUZZERS,
             "load/tovik_load_tests *Sweep*serin_s20:*PowerCut*serin_s20"],
    "host/probe/OpenProbe.cpp": ["host/tovik_program_tests", "gdb/tovik_gdb_tests NetworkProbe*",
                                 "openocd/tovik_openocd_tests", "usb/tovik_probe_gadget"],
    "host/probe/UsbProbes.cpp": ["usb/tovik_probe_gadget"],
    "host/probe/cmsisdap/UsbBulkLink.cpp": ["usb/tovik_probe_gadget"],
    "host/probe/cmsisdap/UsbHidLink.cpp": ["usb/tovik_probe_gadget"],
    "host/cli/ProbesVerb.cpp": ["host/tovik_program_tests", "gdb/tovik_gdb_tests NetworkProbe*",
                                "usb/tovik_probe_gadget"],
    "host/check": ["check/tovik_check_tests", "host/tovik_program_tests"],
    "host/gdb": ["gdb/tovik_gdb_tests", FUZZERS[3]],
    "host/net": ["gdb/tovik_gdb_tests"],
}
SLOW_TESTS = "*Sweep.*:*PowerCut.*:*Whichever*/corvel*:*Wherever*/corvel*:*/corvel_h40*"
# Not tests by themselves: a script asks them, whose rows are the tests.
SCRIPTS = {"usb/tovik_probe_gadget": "tests/usb/check"}
# What else the product is linked into, besides the test programs.
LINKED = ["libFlashDeviceTovik.so", "host/tovik-flash", "tests/openocd/libtovik_stand_in_hidapi.so"]
# All of their tests are asked, so that the matrix tells which of them see the same faults.
ASKED_WHOLE = ["plugin/tovik_plugin_tests"]

SWAPS = {
    " < ": " <= ", " <= ": " < ", " > ": " >= ", " >= ": " > ", " == ": " != ", " != ": " == ",
    " && ": " || ", " || ": " && ", " + ": " - ", " - ": " + ", " & ": " | ", " | ": " & ",
    " << ": " >> ", " >> ": " << ",
}
# clang-format puts blanks around binary operators, which tells them from template brackets and pointers.
TOKEN = re.compile(
    r'(?P<raw>\bR"\(.*?\)")|'
    r'(?P<string>"(?:[^"\\\n]|\\.)*")'
    r"|(?P<char>'(?:[^'\\\n]|\\.)+')"
    r"|(?P<comment>//[^\n]*|/\*.*?\*/)"
    r"|(?P<directive>^\s*#[^\n]*|^\s*static_assert\([^;]*;)"
    r"|(?P<swap> (?:<=|>=|==|!=|&&|\|\||<<|>>|[<>+\-&|]) )"
    r"|(?P<flag>\b(?:true|false)\b)"
    r"|(?P<number>\b(?:0x[0-9A-Fa-f']+|\d[\d']*)\b)"
    r"|(?P<negation>!(?=[\w(]))"
    r"|(?P<statement>(?<=\n)[ ]+(?:throw\b|(?!return\b|delete\b|else\b|\w+\.reserve\()[\w.:>\-]+\()[^;{}\n]*;)",
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
        old, new = (text.partition("\n")[0] for text in (self.old.strip(), self.new.strip(" ;")))
        return f"{self.file}:{self.line}: {old}  ->  {new or '(dropped)'}"


def other_number(text):
    digits = text.replace("'", "")
    return f"0x{int(digits, 16) + 1:X}" if digits.lower().startswith("0x") else str(int(digits) + 1)


REPLACEMENTS = {
    "swap": SWAPS.get,
    "flag": lambda text: "false" if text == "true" else "true",
    "number": other_number,
    "string": lambda text: re.sub(r"(?<![\\%])[A-Za-z]", lambda letter: "z" if letter[0] == "q" else "q", text, 1),
    "raw": lambda text: 'R"' + REPLACEMENTS["string"](text[2:]),
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


def target_of(program):
    name = program.split()[0]
    return name if name.startswith("fuzz/") else f"tests/{name}"


class Worker:
    def __init__(self, number, programs):
        self.tree = WORK / str(number)
        # Where it lies seen from the sources as in every build, so that a compiler's cache knows the objects.
        self.build = self.tree / "build" / "release"
        self.environment = {**os.environ, "CCACHE_BASEDIR": str(self.tree), "RC_PARAMS": "seed=1 noshrink=1"}
        # A copy keeps its dates: of a build that is there, only what depends on a change since is built again.
        kept = WORK / f"{number}.build"
        if self.build.exists():
            os.rename(self.tree / "build", kept)
        shutil.rmtree(self.tree, ignore_errors=True)
        shutil.copytree(ROOT, self.tree, ignore=shutil.ignore_patterns("build", ".git"))
        if kept.exists():
            os.rename(kept, self.tree / "build")
        for left in self.build.rglob("*.unchanged"):  # by a run that was broken off
            os.replace(left, left.with_suffix(""))
        run(["cmake", "--preset", "release", "-DTOVIK_UNITY=OFF",
             # Of the two linkers of binutils the quick one: every mutant links the tests again.
             "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=gold", "-DCMAKE_MODULE_LINKER_FLAGS=-fuse-ld=gold"], cwd=self.tree)
        commands = [entry["command"] for entry in json.loads((self.build / "compile_commands.json").read_text())]
        self.compiling = {command.split(" -o ")[1].split()[0]: command for command in commands}
        if self.ninja("-j2", *(target_of(program) for program in programs)).returncode != 0:
            sys.exit(f"the unchanged tree does not build: see {self.build}")
        self.read_dependencies()
        self.parts = {program: self.parts_of(target_of(program)) for program in programs}
        self.limits = dict.fromkeys(programs, 600)
        self.tests = set()
        for program in programs:
            start = children_seconds()
            tests, failing = self.run_tests(program)
            if failing:
                sys.exit(f"fails on the unchanged tree: {failing}")
            self.limits[program] = int(3 + 2 * (children_seconds() - start))
            self.tests |= tests

    def ninja(self, *arguments):
        return run(["ninja", "-C", self.build, "--quiet", *arguments], env=self.environment)

    def tell(self, *arguments):
        return self.ninja("-t", *arguments).stdout.decode().splitlines()

    def read_dependencies(self):
        self.objects_with = collections.defaultdict(set)
        for line in self.tell("deps"):
            if line.startswith("    "):
                self.objects_with[os.path.normpath(self.build / line.strip())].add(output)
            else:
                output = line.split(":")[0]

    def parts_of(self, program):
        """What is linked for a program: each file, how it is linked, and the objects in it."""
        inputs = set(self.tell("inputs", program))
        parts = []
        for file in [*(part for part in LINKED if part in inputs), program]:
            command = self.tell("commands", "-s", file)[-1]
            archives = [word for word in command.split() if word.endswith(".a") and word in inputs]
            packing = [line for archive in archives for line in self.tell("commands", "-s", archive)]
            words = " ".join([command, *packing]).split()
            parts.append((file, command, {word for word in words if word.endswith(".o")}))
        return parts

    def noticed_by(self, mutant):
        """The tests that fail, by name; None when the mutant says nothing."""
        path, programs = self.tree / mutant.file, witnesses_of(mutant.file)
        original, date = path.read_text(), path.stat().st_mtime_ns
        path.write_text(original[:mutant.start] + mutant.new + original[mutant.end:])
        compiled, linked = set(), {}
        changed = self.objects_with[str(path)]
        tests = {output for output in changed if output.startswith("tests/")}
        # Many tests take long to compile: they are, where they have not noticed as they were.
        rounds = [changed - tests, changed] if len(tests) > 5 else [changed]
        try:
            for changed, program in itertools.product(rounds, programs):
                isAsked = False
                for file, command, objects in self.parts[program]:
                    affected = objects & changed
                    if linked.get(file, set()) == affected:
                        # With the fault in it for another program: this one has not been asked in the first round.
                        isAsked |= bool(affected) and changed is rounds[0]
                        continue
                    if not all(self.compile(output) for output in affected - compiled):
                        return None
                    compiled |= affected
                    if file not in linked:
                        os.rename(self.build / file, self.build / f"{file}.unchanged")
                    linked[file] = affected
                    if not self.link(file, command, affected):
                        return None
                    isAsked = True
                if isAsked and (noticed := self.run_tests(program, stops=program not in ASKED_WHOLE)[1]):
                    return sorted(noticed)
            if all(self.is_same_code(output) for output in changed - tests):
                print(f"{mutant}: the same code", flush=True)
                return None
            return []
        finally:
            path.write_text(original)
            os.utime(path, ns=(date, date))
            for file in linked:
                os.replace(self.build / f"{file}.unchanged", self.build / file)

    def compile(self, output, options="-O0 -D_GLIBCXX_ASSERTIONS"):
        """Beside the object of the unchanged tree, so that nothing is built twice; and not optimized.

        With the assertions that the tests with sanitizers have, too.
        """
        command = self.compiling[output].replace(f" -o {output} ", f" {options} -w -o {output}.changed ")
        return run(["sh", "-c", command], cwd=self.build).returncode == 0

    def is_same_code(self, output):
        return self.compile(output, options="") and filecmp.cmp(
            self.build / output, self.build / f"{output}.changed", shallow=False)

    def link(self, file, command, affected):
        for output in affected:
            if f" {output} " in command:
                command = command.replace(f" {output} ", f" {output}.changed ")
            else:  # in an archive, of which then that object is not taken
                command = command.replace(f" -o {file} ", f" -o {file} {output}.changed ")
        return run(["sh", "-c", command], cwd=self.build).returncode == 0

    def run_tests(self, program, stops=False):
        """The tests that were run, and those of them that failed."""
        limit = self.limits[program]
        _, _, chosen = program.partition(" ")
        command = ["prlimit", f"--cpu={limit}"]
        if program in SCRIPTS:
            command += [self.tree / SCRIPTS[program]]
        elif program in FUZZERS:
            command += [self.build / target_of(program), self.tree / chosen]
        else:
            command += [self.build / target_of(program), f"--gtest_filter={chosen or '*-' + SLOW_TESTS}",
                        f"--gtest_fail_fast={int(stops)}"]
        with tempfile.TemporaryFile() as output:
            asked = subprocess.Popen(command, stdout=output, stderr=subprocess.DEVNULL, env=self.environment,
                                     start_new_session=True)
            try:  # What waits for ever uses no processor; what waits for one has many times its share to come.
                failed = asked.wait(20 * limit) != 0
            except subprocess.TimeoutExpired:
                failed = True
            with contextlib.suppress(ProcessLookupError):
                os.killpg(asked.pid, signal.SIGKILL)  # and what it has started and left
            asked.wait()
            output.seek(0)
            said = output.read().decode(errors="replace")
        tests = set(re.findall(r"\[ RUN      \] (\S+)", said))
        failing = tests - set(re.findall(r"\[ +(?:OK|SKIPPED) \] ([^\s,]+)", said))
        if program in SCRIPTS:
            rows = re.findall(r"^(ok|FAILED) +\d+ s +(.*)$", said, re.MULTILINE)
            tests, failing = {name for _, name in rows}, {name for result, name in rows if result != "ok"}
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
        changed = run(["git", "-C", ROOT, "diff", "--name-only", "--diff-filter=d", arguments.changed, "--",
                       *WITNESSES])
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
    rows = [{"mutant": str(mutant), "counts": tests is not None, "noticedBy": tests or []}
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
    parser.add_argument("--again", action="store_true", help="those of the places that the last run left unnoticed")
    parser.add_argument("--list", action="store_true", help="print the mutants and stop")
    arguments = parser.parse_args()

    if arguments.again:
        arguments.sample = 0  # the same seed draws others once the product has changed
    mutants = drawn_mutants(arguments)
    if arguments.again:
        last = json.loads((WORK / "matrix.json").read_text())["mutants"]
        unnoticed = {row["mutant"] for row in last if row["counts"] and not row["noticedBy"]}
        mutants = [mutant for mutant in mutants if str(mutant) in unnoticed]
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
        counted = sum(tests is not None for tests in judged)
        noticed = sum(bool(tests) for tests in judged)
        print(f"{folder}: {noticed} of {counted} mutants noticed ({100 * noticed / max(counted, 1):.1f} %)")
    print(f"{len(spare)} tests are nobody's only witness: build/mutate/matrix.json")


if __name__ == "__main__":
    main()
