#!/usr/bin/env python3
"""Makes small faults in the plug-in's sources, one at a time, and reports those that no fast test notices.

A fault (a mutant) is one flipped comparison, one changed number or text, one dropped call and so on. Each
worker has its own copy of the tree and its own build in build/mutate, so the working tree is never touched.
A mutant that does not compile says nothing and is left out of the score.
"""

import argparse
import concurrent.futures
import pathlib
import queue
import random
import re
import shutil
import subprocess
import sys
import time
from dataclasses import dataclass

ROOT = pathlib.Path(__file__).resolve().parents[2]
WORK = ROOT / "build" / "mutate"
# Test programs that finish in seconds, in the order in which they are asked: target and path in the build.
FAST_TESTS = [("tovik_plugin_tests", "tests/plugin/tovik_plugin_tests")]

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


@dataclass(frozen=True)
class Mutant:
    file: str
    line: int
    start: int
    end: int
    old: str
    new: str

    def __str__(self):
        return f"{self.file}:{self.line}: {self.old.strip()}  ->  {self.new.strip() or '(dropped)'}"


def other_number(text):
    digits = text.replace("'", "")
    return f"0x{int(digits, 16) + 1:X}" if digits.lower().startswith("0x") else str(int(digits) + 1)


def other_text(text):
    for index, letter in enumerate(text):
        if letter.isalpha() and text[index - 1] not in "\\%":
            return text[:index] + ("q" if letter != "q" else "z") + text[index + 1:]
    return text


def replacement(kind, text):
    if kind == "swap":
        return SWAPS[text]
    if kind == "flag":
        return "false" if text == "true" else "true"
    if kind == "number":
        return other_number(text)
    if kind == "string":
        return other_text(text)
    return ""  # a negation or a statement is dropped


def mutants_of(path):
    text = path.read_text()
    name = str(path.relative_to(ROOT))
    found = []
    position = 0
    while match := TOKEN.search(text, position):
        kind, old = match.lastgroup, match.group()
        # The parts of a statement that can be dropped are changed one by one as well.
        position = match.start() + len(old) - len(old.lstrip()) + 1 if kind == "statement" else match.end()
        if kind in ("swap", "flag", "number", "string", "negation", "statement"):
            new = replacement(kind, old)
            if new != old:
                line = text.count("\n", 0, match.start() + (kind == "statement")) + 1
                found.append(Mutant(name, line, match.start(), match.end(), old, new))
    return found


class Worker:
    def __init__(self, number):
        self.tree = WORK / str(number) / "tree"
        self.build = WORK / str(number) / "build"
        # With the build: a copy keeps the old dates, so the objects of the last mutant would pass for new.
        shutil.rmtree(WORK / str(number), ignore_errors=True)
        shutil.copytree(ROOT, self.tree, ignore=shutil.ignore_patterns("build", ".git"))
        run(["cmake", "-S", self.tree, "-B", self.build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
             "-DCMAKE_CXX_FLAGS=-w", "-DCMAKE_CXX_FLAGS_DEBUG=-O0",
             # Of the two linkers of binutils the quick one: every mutant links the tests again.
             "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=gold", "-DCMAKE_MODULE_LINKER_FLAGS=-fuse-ld=gold"], check=True)
        if not self.compile(jobs=2):
            sys.exit("the unchanged tree does not build: see " + str(self.build))
        self.limits = []
        for _, program in FAST_TESTS:
            start = time.monotonic()
            if run([self.build / program, "--gtest_brief=1"]).returncode != 0:
                sys.exit(f"{program} fails on the unchanged tree")
            self.limits.append(5 + 5 * (time.monotonic() - start))

    def compile(self, jobs=1):
        targets = ["FlashDeviceTovik"] + [target for target, _ in FAST_TESTS]
        return run(["ninja", "-C", self.build, f"-j{jobs}", *targets]).returncode == 0

    def notices(self, mutant):
        """True or False; None when the mutant does not compile."""
        path = self.tree / mutant.file
        original = path.read_text()
        path.write_text(original[:mutant.start] + mutant.new + original[mutant.end:])
        try:
            if not self.compile():
                return None
            return any(self.fails(program, limit) for (_, program), limit in zip(FAST_TESTS, self.limits))
        finally:
            path.write_text(original)

    def fails(self, program, limit):
        try:
            command = [self.build / program, "--gtest_brief=1", "--gtest_fail_fast"]
            return run(command, timeout=limit).returncode != 0
        except subprocess.TimeoutExpired:
            return True


def run(command, **options):
    return subprocess.run([str(part) for part in command], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                          **options)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("files", nargs="*", type=pathlib.Path, help="default: every file of source/")
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--sample", type=int, default=0, metavar="N", help="try only N mutants, drawn at random")
    parser.add_argument("--seed", type=int, default=1, help="of the draw")
    parser.add_argument("--list", action="store_true", help="print the mutants and stop")
    arguments = parser.parse_args()

    files = [file.resolve() for file in arguments.files] or sorted((ROOT / "source").rglob("*.[ch]*"))
    mutants = [mutant for file in files for mutant in mutants_of(file)]
    if arguments.sample and arguments.sample < len(mutants):
        mutants = random.Random(arguments.seed).sample(mutants, arguments.sample)
    if arguments.list:
        print(*mutants, sep="\n")
        return

    workers = queue.Queue()
    for number in range(arguments.jobs):
        print(f"Building copy {number + 1} of {arguments.jobs} ...", flush=True)
        workers.put(Worker(number))

    def judge(mutant):
        worker = workers.get()
        try:
            return mutant, worker.notices(mutant)
        finally:
            workers.put(worker)

    noticed = survived = 0
    with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
        for count, (mutant, verdict) in enumerate(pool.map(judge, mutants), 1):
            noticed += verdict is True
            survived += verdict is False
            if verdict is False:
                print(mutant, flush=True)
            if count % 50 == 0:
                print(f"-- {count} of {len(mutants)} tried: {noticed} noticed, {survived} survived", flush=True)
    if noticed + survived:
        score = 100 * noticed / (noticed + survived)
        print(f"{noticed} of {noticed + survived} mutants noticed ({score:.1f} %)")


if __name__ == "__main__":
    main()
