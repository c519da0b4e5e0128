"""What scripts/mutate does: see there."""

import argparse
import collections
import hashlib
import os
import pathlib
import re
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

import mutate_places

ROOT = pathlib.Path(__file__).resolve().parent.parent
WORK = ROOT / "build" / "mutate"
OUTCOMES = WORK / "outcomes.tsv"
ACCEPTED = ROOT / "tests" / "mutation" / "accepted.txt"

# What a program that a change has sent round in circles may take.
LONGEST_TEST_SECONDS = 120
LARGEST_ADDRESS_SPACE = 6 << 30
LARGEST_FILE = 256 << 20

# A program, what it is called with, how many processes share its tests, and the sources that it knows best.
Program = collections.namedtuple("Program", "path arguments processes sources", defaults=[[], 1, ()])

QUICK = [
    Program("libcf/tests/cf_core_tests", sources=("libcf/src/json", "libcf/src/text", "libcf/src/variant")),
    Program("libcf/tests/cf_rest_tests", processes=8, sources=("libcf/src/rest",)),
    Program("tests/unit/kai_unit_tests", sources=("src/",)),
    Program("tests/contract/kai_contract_tests", processes=3, sources=("src/",)),
    Program("tests/unit/kai_oracle_tests"),
    Program("libcf/tests/cf_allocation_tests"),
    Program("tests/unit/kai_no_assertions_tests"),
    Program("tests/unit/kai_allocation_tests"),
    Program("tests/unit/kai_http_client_tests"),
]
# For what those do not notice. They replace the C library's allocation or take long, so not under sanitizers.
SLOW = [
    Program("libcf/tests/cf_rest_memory_tests"),
    Program("tests/contract/kai_static_objects_program"),
    Program("tests/contract/kai_unload_program", ["{build}/src/libkai.so"]),
    Program("fuzz/fuzz_replay", ["{source}/fuzz"]),
    Program("tests/proof/kai_allocation_sweep", ["--every", "41"]),
    Program("tests/proof/kai_fault_matrix", ["--every", "37"]),
    Program("tests/proof/kai_threads", ["--share", "5"]),
    Program("tests/proof/kai_load", ["--share", "5"]),
    Program("tests/host/kai_program_test", processes=3),
]


def limit_resources():
    # Whoever runs this in the background may have them ignored; the tests of kai send them.
    for number in (signal.SIGHUP, signal.SIGINT, signal.SIGQUIT):
        signal.signal(number, signal.SIG_DFL)
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    resource.setrlimit(resource.RLIMIT_FSIZE, (LARGEST_FILE, LARGEST_FILE))


def limit_resources_and_memory():
    limit_resources()
    resource.setrlimit(resource.RLIMIT_AS, (LARGEST_ADDRESS_SPACE, LARGEST_ADDRESS_SPACE))


class Process:
    """A command whose output is kept; it ends with all that it has started."""

    def __init__(self, command, folder, environment, prepare):
        self.output = tempfile.TemporaryFile()
        self.process = subprocess.Popen(
            [str(word) for word in command], cwd=folder, env={**os.environ, **environment}, stdin=subprocess.DEVNULL,
            stdout=self.output, stderr=subprocess.STDOUT, start_new_session=True, preexec_fn=prepare)

    def is_running(self):
        return self.process.poll() is None

    def read_output(self):
        self.output.seek(0)
        return self.output.read().decode(errors="replace")

    def end(self):
        try:
            os.killpg(self.process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        self.process.wait()
        self.output.close()


class Tree:
    """A copy of the repository's files, built with one preset."""

    def __init__(self, name, preset, cmake_arguments, has_sanitizers=False):
        self.source = WORK / name
        self.build = self.source / "build" / preset
        self.preset, self.cmake_arguments = preset, cmake_arguments
        self.prepare = limit_resources if has_sanitizers else limit_resources_and_memory
        self.is_configured = False
        self.libraries = []

    def copy_files(self):
        names = subprocess.run(
            ["git", "-c", f"safe.directory={ROOT}", "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
            cwd=ROOT, check=True, capture_output=True).stdout.split(b"\0")
        for name in filter(None, names):
            source, target = ROOT / name.decode(), self.source / name.decode()
            if source.is_file() and not (target.exists() and source.read_bytes() == target.read_bytes()):
                target.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(source, target)

    def configure(self):
        if not self.is_configured:
            command = ["cmake", "--preset", self.preset, "-DBUILD_TESTING=ON", *self.cmake_arguments]
            subprocess.run(command, cwd=self.source, check=True, stdout=subprocess.DEVNULL)
            self.is_configured = True

    def build_programs(self, programs):
        """Whether they could be built."""
        # Both libraries as well, which are compared then.
        targets = ["cf", "kai_internal", *(pathlib.Path(program.path).name for program in programs)]
        # kai is started by the tests of the host, whose program does not depend on it.
        targets += ["kai_program"] if "kai_program_test" in targets else []
        return subprocess.run(
            ["ninja", "-C", str(self.build), *targets], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL).returncode == 0

    def hash_libraries(self):
        files = [self.build / "libcf/libcf.so", self.build / "src/libkai_internal.a"]
        return [hashlib.sha256(file.read_bytes()).digest() for file in files]

    def find_failure(self, program):
        """None when all tests of the program pass. A failure counts when it repeats."""
        failure = self.run(program, program.processes, [])
        if failure is None or failure == "no end":
            return failure
        first = re.match(r"test ([\w./]+)$", failure)
        return self.run(program, 1, [f"--gtest_filter={first.group(1)}"]) if first else self.run(program, 1, [])

    def run(self, program, count, filters):
        place = {"build": self.build, "source": self.source}
        arguments = [argument.format(**place) for argument in program.arguments]
        if not arguments:
            arguments = ["--gtest_fail_fast", "--gtest_brief=1", *filters]
        processes = [
            Process([self.build / program.path, *arguments], (self.build / program.path).parent,
                    {"GTEST_TOTAL_SHARDS": str(count), "GTEST_SHARD_INDEX": str(number)} if count > 1 else {},
                    self.prepare)
            for number in range(count)]
        try:
            return self.wait_for_failure(program, processes)
        finally:
            for process in processes:
                process.end()

    @staticmethod
    def wait_for_failure(program, processes):
        deadline = time.monotonic() + LONGEST_TEST_SECONDS
        while processes and time.monotonic() < deadline:
            ended = [process for process in processes if not process.is_running()]
            for process in ended:
                if process.process.returncode != 0:
                    return describe_failure(program, process)
            if len(ended) == len(processes):
                return None
            time.sleep(0.02)
        return "no end"


def describe_failure(program, process):
    failed = re.search(r"\[  FAILED  \] ([\w/.]+)", process.read_output())
    if failed:
        return f"test {failed.group(1)}"
    return f"{pathlib.Path(program.path).name}, status {process.process.returncode}"


class Outcomes:
    """What became of each change, kept in a file as soon as it is known."""

    def __init__(self):
        self.lock = threading.Lock()
        self.rows = {}
        WORK.mkdir(parents=True, exist_ok=True)
        if OUTCOMES.exists():
            for line in OUTCOMES.read_text().splitlines():
                outcome, key, by = line.split("\t")
                self.rows[key] = (outcome, by)

    def add(self, change, outcome, by):
        with self.lock:
            self.rows[change.key] = (outcome, by)
            with OUTCOMES.open("a") as file:
                file.write(f"{outcome}\t{change.key}\t{by}\n")

    def get(self, change):
        return self.rows.get(change.key, ("", ""))[0]


def try_change(tree, change, programs):
    """("noticed", by what), ("unnoticed", ""), ("void", "") for what does not compile or compiles to the same code."""
    target = tree.source / change.path
    target.write_text(change.changed_text)
    try:
        for program in sorted(programs, key=lambda row: not change.path.startswith(row.sources)):
            if not tree.build_programs([program]):
                return "void", "no valid code"
            if tree.hash_libraries() == tree.libraries:
                return "void", "same code"
            failure = tree.find_failure(program)
            if failure is not None:
                return "noticed", failure
        return "unnoticed", ""
    finally:
        target.write_text(change.text)


def try_all(trees, changes, programs, outcomes):
    """Each tree takes the next change as soon as it is done with one."""
    left = collections.deque(changes)
    started = time.monotonic()

    def work(tree):
        while True:
            try:
                change = left.popleft()
            except IndexError:
                return
            start = time.monotonic()
            outcome, by = try_change(tree, change, programs)
            outcomes.add(change, outcome, by)
            print(f"{time.monotonic() - started:5.0f} s, {len(left)} left: {outcome} {by} "
                  f"({time.monotonic() - start:.0f} s) [{change.kind}] {change.key}", flush=True)

    threads = [threading.Thread(target=work, args=[tree]) for tree in trees]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()


def prepare(trees, programs):
    for tree in trees:
        tree.copy_files()
        tree.configure()
        if not tree.build_programs(programs):
            sys.exit("scripts/mutate: the unchanged sources cannot be built")
        tree.libraries = tree.hash_libraries()
    for program in programs:
        failure = trees[0].find_failure(program)
        if failure is not None:
            sys.exit(f"scripts/mutate: the tests fail without a change: {failure}")


def try_changes(changes, jobs, outcomes):
    relink_less = "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON"
    trees = [Tree(f"tree{number}", "release", [relink_less, "-DKAI_LTO=OFF"]) for number in range(jobs)]
    strict = ["-DKAI_WARNINGS_AS_ERRORS=OFF", "-DCMAKE_CXX_FLAGS_DEBUG=-g1 -D_GLIBCXX_ASSERTIONS"]
    sanitize = Tree("sanitize", "sanitize", [relink_less, *strict], has_sanitizers=True)
    accepted = read_accepted()
    left = [change for change in changes
            if outcomes.get(change) not in ("noticed", "void") and change.key not in accepted]
    left.sort(key=lambda change: outcomes.get(change) == "unnoticed")
    for trees, programs in (trees, QUICK), (trees, SLOW), ([sanitize], QUICK):
        if left:
            prepare(trees, programs)
            try_all(trees, left, programs, outcomes)
            left = [change for change in left if outcomes.get(change) == "unnoticed"]


def read_accepted():
    lines = ACCEPTED.read_text().splitlines()
    return {line for line, reason in zip(lines, lines[1:]) if line[:1].strip("#") and reason.startswith("    ")}


def find_sources(arguments):
    sources = []
    for argument in arguments or ["src", "libcf/src"]:
        path = (ROOT / argument).resolve()
        if not path.exists() or not path.is_relative_to(ROOT):
            sys.exit(f"scripts/mutate: there is no {argument}")
        found = [path] if path.is_file() else sorted(p for p in path.rglob("*") if p.suffix in (".h", ".cpp"))
        sources.extend((str(source.relative_to(ROOT)), source.read_text()) for source in found)
    return sources


def report(changes, outcomes):
    """Whether every change was noticed or is accepted."""
    accepted = read_accepted()
    known = sum(change.key in accepted for change in changes)
    changes = [change for change in changes if change.key not in accepted]
    count = collections.Counter(outcomes.get(change) for change in changes)
    tried = count["noticed"] + count["unnoticed"] + known
    print(f"{tried} changes: {count['noticed']} noticed ({100 * count['noticed'] / max(tried, 1):.1f} %), "
          f"{known} known to make no difference, {count['unnoticed']} not noticed; "
          f"{count['void']} more are no valid code or compile to the same")
    for change in changes:
        if outcomes.get(change) == "unnoticed":
            print(f"not noticed: {change.key}")
    return count["unnoticed"] == 0


def main():
    parser = argparse.ArgumentParser(prog="scripts/mutate", add_help=False)
    parser.add_argument("--count", type=int, default=260)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--list", action="store_true")
    parser.add_argument("paths", nargs="*")
    arguments = parser.parse_args()
    changes = mutate_places.choose_changes(find_sources(arguments.paths), arguments.count, arguments.seed)
    if arguments.list:
        print(*(change.key for change in changes), sep="\n")
        return
    outcomes = Outcomes()
    try_changes(changes, arguments.jobs, outcomes)
    if not report(changes, outcomes):
        sys.exit(1)


main()
