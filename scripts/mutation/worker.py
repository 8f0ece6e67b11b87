"""The worker behind scripts/mutants, which tells its arguments: draws mutants, builds each, runs the tests that reach it."""
import argparse
import collections
import concurrent.futures
import fcntl
import hashlib
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile
import time

import confined
import copy_tree
import mutator
import reach

ROOMS = ("common", "net", "platform/posix")
LIBRARIES = ("kqcommon", "kqnet")
# Tests of the tree and not of what runs: they read, build or install it.
NOT_RUN = re.compile(r"^(abi|lint|installed_headers|outside_host|reference|readme_example$|mutator$|missing\.)|_NOT_BUILT")
LONGEST_CASE = 30  # seconds: tests that last longer are left to the suite itself
BATCH_CASES = 40
BATCH_SECONDS = 4
VERDICTS = ("killed", "survived", "equivalent", "no test reaches it", "does not compile")

# seconds: without what starting the program takes.
Case = collections.namedtuple("Case", "name command folder environment seconds reached")


def say(text):
    print(text, flush=True)


class BUILD:
    """The copy of the tree with its build: everything is made here, in the cache folder."""

    def __init__(self, tree, place, jobs):
        self.tree, self.place, self.jobs = tree, place, jobs
        self.copy, self.folder = place / "tree", place / "build"

    def prepare(self):
        """Copies, configures and builds; the copy's state."""
        self.copy.mkdir(parents=True, exist_ok=True)
        state = copy_tree.copy_tree(self.tree, self.copy)
        say(f"== building {self.folder} (state {state})")
        os.environ["CCACHE_BASEDIR"] = str(self.copy)
        subprocess.run(["cmake", "-S", self.copy, "-B", self.folder, "-G", "Ninja", "--log-level=WARNING",
                        "-DCMAKE_BUILD_TYPE=Debug", "-DKQNET_REACH=ON", "-DKQNET_BUILD_BENCH=OFF"],
                       check=True, stdout=subprocess.DEVNULL)
        subprocess.run(["ninja", "-C", self.folder, "-j", str(self.jobs), "--quiet"], check=True)
        return state

    def library(self, name):
        return next((self.folder / "lib").glob(f"lib{name}.so.*.*.*"))

    def commands(self, library):
        """Source -> the command that compiles it, and the command that links the library; as the build gives them."""
        target = self.library(library).relative_to(self.folder)
        lines = subprocess.run(["ninja", "-C", self.folder, "-t", "commands", str(target)], check=True, text=True,
                               capture_output=True).stdout.splitlines()
        sources, link = {}, None
        for line in lines:
            words = [word for word in shlex.split(line) if not word.endswith("/ccache")]
            if "-c" in words:
                source = pathlib.Path(words[words.index("-c") + 1])
                if source.is_relative_to(self.copy):
                    sources[str(source.relative_to(self.copy))] = words
            elif "-shared" in words and str(target) in words:
                link = line.split("&&")[1] if "&&" in line else line
        return sources, shlex.split(link)


class MAKER:
    """Makes the libraries of one mutant at a time, beside those of the build."""

    def __init__(self, build):
        self.build = build
        self.folder = build.place / "mutant"
        self.folder.mkdir(exist_ok=True)
        self.links, self.compilers = {}, {}
        for library in LIBRARIES:
            sources, self.links[library] = build.commands(library)
            self.compilers.update({source: (library, command) for source, command in sources.items()
                                   if source not in self.compilers})

    def knows(self, source):
        return source in self.compilers

    def make(self, mutant, source_text):
        """False when it does not compile."""
        for file in self.folder.iterdir():
            file.unlink()
        library, command = self.compilers[mutant.file]
        source, object_file = self.folder / "mutant.cpp", self.folder / "mutant.o"
        source.write_text(mutant.apply(source_text))
        original = command[command.index("-o") + 1]
        words = []
        skip = False
        for word in command:
            if skip or word in ("-MD", "-fsanitize-coverage=trace-pc") or word.startswith("-g"):
                skip = False
            elif word in ("-MT", "-MF", "-o", "-c"):
                skip = True
            else:
                words.append(word)
        words += ["-w", "-g0", "-o", str(object_file), "-c", str(source)]
        if subprocess.run(words, cwd=self.build.folder, capture_output=True, check=False).returncode != 0:
            return False
        target = self.build.library(library)
        result = self.folder / target.name
        link = [str(object_file) if word == original else word for word in self.links[library]]
        link[link.index("-o") + 1] = str(result)
        if subprocess.run(link, cwd=self.build.folder, capture_output=True, check=False).returncode != 0:
            return False
        (self.folder / ".".join(target.name.split(".")[:3])).symlink_to(result.name)  # libkqnet.so.0
        return True


class SUITE:
    """The tests of a build, each with the places that it reaches."""

    def __init__(self, build):
        self.build = build
        self.cases = []
        self.lines = {}
        self.failed = []

    def run(self, command, folder, environment, seconds):
        return confined.run(command, folder, [self.build.folder], environment, seconds)

    def _list(self):
        text = subprocess.run(["ctest", "--test-dir", self.build.folder, "--show-only=json-v1"], check=True, text=True,
                              capture_output=True).stdout
        for test in json.loads(text)["tests"]:
            if NOT_RUN.search(test["name"]) or "command" not in test:
                continue
            properties = {item["name"]: item["value"] for item in test.get("properties", [])}
            environment = dict(item.split("=", 1) for item in properties.get("ENVIRONMENT", []))
            yield test["name"], test["command"], properties.get("WORKING_DIRECTORY", str(self.build.folder)), environment

    def load(self, state):
        """The map of this state, made when there is none."""
        place = self.build.place / "reach.json"
        addresses, base = {}, 0
        for library in LIBRARIES:
            addresses[library], lines = reach.read_places(self.build.library(library), self.build.copy)
            for (file, line), places in lines.items():
                mask = sum(1 << number for number in places) << base
                self.lines[file, line] = self.lines.get((file, line), 0) | mask
            base += max(addresses[library], default=0) + 1
        known = {}
        if place.exists():
            stored = json.loads(place.read_text())
            if stored["state"] == state:
                known = stored["cases"]
        tests = list(self._list())
        missing = [test for test in tests if test[0] not in known or not known[test[0]][0]]  # one may fail by chance
        if missing:
            say(f"== noting which places {len(missing)} of {len(tests)} tests reach")
        begin = written = time.monotonic()
        with concurrent.futures.ThreadPoolExecutor(self.build.jobs) as pool:
            noted = pool.map(lambda test: self._note(*test, addresses), missing)
            for number, (test, note) in enumerate(zip(missing, noted), 1):
                known[test[0]] = note
                if time.monotonic() - written > 60 or number == len(missing):
                    written = time.monotonic()
                    place.write_text(json.dumps({"state": state, "cases": known}))
                    say(f"   {number} of {len(missing)} after {written - begin:.0f} s")
        starting = collections.defaultdict(lambda: LONGEST_CASE)  # by program: its quickest test takes hardly more
        for name, command, *_ in tests:
            starting[command[0]] = min(starting[command[0]], known[name][1])
        for name, command, folder, environment in tests:
            passed, seconds, reached = known[name]
            if passed:
                seconds -= starting[command[0]]
                self.cases.append(Case(name, command, folder, environment, seconds, int(reached, 16)))
            else:
                self.failed.append(name)
        if self.failed:
            say(f"== left out, since they fail or last too long on the tree as it is: {', '.join(self.failed)}")

    def _note(self, _name, command, folder, environment, addresses):
        """[passed, seconds, places as hexadecimal text] of one test."""
        reached, base = 0, 0
        with tempfile.TemporaryDirectory(dir=self.build.folder) as notes:
            begin = time.monotonic()
            code, _ = self.run(command, folder, {**environment, "KQNET_REACH_FILE": f"{notes}/notes"}, LONGEST_CASE)
            seconds = time.monotonic() - begin
            found = {library: reach.read_notes(f"{notes}/notes.{library}", addresses[library]) for library in LIBRARIES}
        for library in LIBRARIES:
            reached |= found[library] << base
            base += max(addresses[library], default=0) + 1
        return [code == 0, round(seconds, 3), f"{reached:x}"]

    def that_reach(self, mutant):
        """The tests that run a line of the mutant: those of its own folder first, then by the time they take."""
        wanted = 0
        for line in range(mutant.line, mutant.last_line + 1):
            wanted |= self.lines.get((mutant.file, line), 0)
        for line in range(mutant.line - 1, max(0, mutant.line - 20), -1):  # a line of no code of its own
            wanted = wanted or self.lines.get((mutant.file, line), 0)
        return [case for case in self.cases if case.reached & wanted]


def batches(cases, file):
    """What to start, in order: groups of cases of one program. First those named after the source, then those of its folder,
    then the quick ones."""
    path = pathlib.PurePath(file)
    own = "kqtest_" + "_".join(path.parts[:-1])

    def distance(case):
        named = re.search(rf"\b{path.stem}(Test)?\b", case.name) is not None
        return 0 if named else 1 if pathlib.PurePath(case.command[0]).name.startswith(own) else 2

    groups = collections.defaultdict(list)
    for case in sorted(cases, key=lambda case: case.seconds):
        single = len(case.command) > 1 and case.command[1].startswith("--gtest_filter=") and not case.environment
        groups[distance(case), case.command[0] if single else case.name].append(case)
    found = []
    for group in groups.values():
        begin = 0
        while begin < len(group):
            count = 1
            while begin + count < len(group) and count < BATCH_CASES and \
                    sum(case.seconds for case in group[begin:begin + count + 1]) < BATCH_SECONDS:
                count += 1
            found.append(group[begin:begin + count])
            begin += count
    found.sort(key=lambda group: (distance(group[0]), sum(case.seconds for case in group)))
    return found


class JUDGE:
    """Runs the tests against a mutant until one fails."""

    def __init__(self, suite, maker, budget):
        self.suite, self.maker, self.budget = suite, maker, budget

    def _run(self, command, cases):
        limit = 20 + 5 * sum(case.seconds for case in cases)
        environment = {**cases[0].environment, "LD_LIBRARY_PATH": str(self.maker.folder)}
        return self.suite.run(command, cases[0].folder, environment, limit)

    def judge(self, mutant):
        """(verdict, by which test or how many ran)"""
        cases = self.suite.that_reach(mutant)
        if not cases:
            return "no test reaches it", ""
        begin, ran = time.monotonic(), 0
        for group in batches(cases, mutant.file):
            if ran and time.monotonic() - begin > self.budget:
                break
            killer = self._fails(group)
            if killer:
                return "killed", killer
            ran += len(group)
        return "survived", f"{ran} of {len(cases)} tests that reach it ran"

    def _fails(self, group):
        """The test that fails in the group; empty when all pass. What fails must fail a second time in two tries."""
        if len(group) > 1:
            joined = ":".join(case.command[1].split("=", 1)[1] for case in group)
            command = [group[0].command[0], f"--gtest_filter={joined}", "--gtest_also_run_disabled_tests",
                       "--gtest_fail_fast"]
        else:
            command = group[0].command
        code, output = self._run(command, group)
        if code == 0:
            return ""
        if code is None:
            return group[0].name + (" and others" if len(group) > 1 else "") + ", by the time limit"
        if code > 128:
            return f"{running(output) or group[0].name}, by a signal"
        failed = re.search(r"^\[  FAILED  \] ([^\s,]+)", output, re.MULTILINE)
        case = next((case for case in group if failed and case.name.endswith("." + failed[1])), None)
        if len(group) == 1:
            case = group[0]
        if case is None:
            return f"{group[0].name} and others"
        for _ in range(2):
            code, _ = self._run(case.command, [case])
            if code != 0:
                return case.name
        rest = [other for other in group if other is not case]  # nothing ran behind the one that failed by chance
        return self._fails(rest) if rest else ""


def running(output):
    """The case that a program was at when it ended."""
    begun = re.findall(r"^\[ RUN      \] (\S+)", output, re.MULTILINE)
    return begun[-1] if begun else ""


def read_equivalents(place):
    """Key -> reason, of tests/mutants-equivalent.txt: file | function | change, and the reason on the indented lines below."""
    found, key = {}, None
    for line in place.read_text().splitlines() if place.exists() else []:
        if line.startswith("#") or not line.strip():
            continue
        if line[0].isspace():
            found[key] = (found[key] + " " + line.strip()).strip()
        else:
            key = " | ".join(mutator.squeeze(part) for part in line.split(" | "))
            found[key] = ""
    return found


class RESULTS:
    """What is known of the mutants of this state, a line each, so that a run goes on where another was stopped."""

    def __init__(self, place, state):
        self.place, self.state, self.known = place, state, {}
        if place.exists():
            for line in place.read_text().splitlines():
                result = json.loads(line)
                if result["state"] == state:
                    self.known[result["key"]] = result

    def add(self, mutant, verdict, detail, seconds):
        result = {"state": self.state, "key": mutant.key, "line": mutant.line, "kind": mutant.kind, "verdict": verdict,
                  "detail": detail, "seconds": round(seconds, 1)}
        self.known[mutant.key] = result
        with open(self.place, "a", encoding="utf-8") as out:
            out.write(json.dumps(result) + "\n")
        return result


def find_all(tree, paths):
    """The mutants of all sources beneath the paths."""
    found = []
    for path in paths:
        place = tree / path
        sources = [place] if place.is_file() else sorted(place.rglob("*.cpp"))
        for source in sources:
            found += mutator.find_mutants(str(source.relative_to(tree)), source.read_text())
    return found


def draw(mutants, count, seed):
    """The first ones of an order that depends on seed and mutant alone: a larger count holds the smaller one, and where code
    changes the others stay drawn."""
    def place(mutant):
        return hashlib.sha256(f"{seed} {mutant.key}".encode()).digest()
    return sorted(mutants, key=place)[:count or None]


def report(results, equivalents, asked):
    """The text of the result: figures, then the survivors by file."""
    by_verdict = collections.Counter(result["verdict"] for result in results)
    judged = [result for result in results if result["verdict"] not in ("does not compile", "equivalent")]
    killed = by_verdict["killed"]
    lines = [f"{len(results)} of {asked} mutants drawn were tried: " +
             ", ".join(f"{by_verdict[verdict]} {verdict}" for verdict in VERDICTS if by_verdict[verdict])]
    if judged:
        lines.append(f"killed of those that can be: {killed} of {len(judged)}, {killed * 100 / len(judged):.1f} %")
    kinds = collections.defaultdict(collections.Counter)
    for result in judged:
        kinds[result["kind"]][result["verdict"] == "killed"] += 1
    for kind in sorted(kinds):
        lines.append(f"   {kind:<12} {kinds[kind][True]:>4} of {sum(kinds[kind].values()):>4}")
    left = sorted((result for result in judged if result["verdict"] != "killed"),
                  key=lambda result: (result["key"].split(" | ")[0], result["line"]))
    file = None
    for result in left:
        name, function, change = result["key"].split(" | ", 2)
        if name != file:
            file = name
            lines.append(f"\n{file}")
        lines.append(f"   {result['line']}: {function}: {change}\n      {result['verdict']}; {result['detail'] or 'no test'}")
    used = {result["key"] for result in results if result["verdict"] == "equivalent"}
    if used:
        lines.append(f"\nlisted as equivalent: {len(used)}")
        lines += [f"   {key}\n      {equivalents[key]}" for key in sorted(used)]
    return "\n".join(lines)


def parse_arguments(arguments):
    parser = argparse.ArgumentParser(prog="scripts/mutants", add_help=False)
    parser.add_argument("paths", nargs="*")
    parser.add_argument("--count", type=int, default=500)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--minutes", type=float, default=60)
    parser.add_argument("--budget", type=float, default=60)
    parser.add_argument("--jobs", type=int, default=1)
    parser.add_argument("--cache", type=pathlib.Path, required=True)
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--report", action="store_true")
    return parser.parse_args(arguments)


def main(arguments):
    options = parse_arguments(arguments)
    tree = copy_tree.tree_of_scripts()
    end = time.monotonic() + options.minutes * 60
    for path in options.paths:
        if not any(pathlib.PurePath(path).is_relative_to(room) for room in ROOMS) or not (tree / path).exists():
            sys.exit(f"scripts/mutants: {path} is no source or folder of {', '.join(ROOMS)}")
    paths = options.paths or ROOMS
    if options.list:
        for mutant in find_all(tree, paths):
            print(f"{mutant.file}:{mutant.line}: {mutant.kind}: {mutant.function}: {mutant.change}")
        return 0

    options.cache.mkdir(parents=True, exist_ok=True)
    equivalents = read_equivalents(tree / "tests" / "mutants-equivalent.txt")
    if options.report:
        drawn = draw(find_all(tree, paths), options.count, options.seed)
        results = RESULTS(options.cache / "results.jsonl", copy_tree.read_tree(tree)[1])
    else:
        build = BUILD(tree, options.cache, options.jobs)
        with open(options.cache / "lock", "w", encoding="utf-8") as lock:
            try:
                fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
            except OSError:
                sys.exit(f"scripts/mutants: another run is at work in {options.cache}")
            state = build.prepare()
            drawn = draw(find_all(build.copy, paths), options.count, options.seed)
            results = RESULTS(options.cache / "results.jsonl", state)
            try_all(build, state, drawn, results, equivalents, end, options.budget)
    text = report(known_of(drawn, results.known, equivalents), equivalents, len(drawn))
    (options.cache / "report.txt").write_text(text + "\n")
    print(f"\n{text}\n\n{options.cache / 'report.txt'}")
    return 0


def known_of(drawn, known, equivalents):
    """The results of those drawn; what is listed as an equivalent is one, unless a test has killed it all the same."""
    found = []
    for mutant in drawn:
        result = known.get(mutant.key)
        if mutant.key in equivalents and (result is None or result["verdict"] != "killed"):
            result = {"key": mutant.key, "line": mutant.line, "kind": mutant.kind, "verdict": "equivalent", "detail": ""}
        if result is not None:
            found.append(result)
    return found


def try_all(build, state, drawn, results, equivalents, end, budget):
    suite = SUITE(build)
    suite.load(state)
    maker = MAKER(build)
    judge = JUDGE(suite, maker, budget)
    texts = {}
    for number, mutant in enumerate(drawn, 1):
        if mutant.key in results.known or mutant.key in equivalents or not maker.knows(mutant.file):
            continue
        if time.monotonic() > end:
            say("== the time is over; the same command goes on from here")
            break
        begin = time.monotonic()
        text = texts.setdefault(mutant.file, (build.copy / mutant.file).read_text())
        if maker.make(mutant, text):
            verdict, detail = judge.judge(mutant)
        else:
            verdict, detail = "does not compile", ""
        result = results.add(mutant, verdict, detail, time.monotonic() - begin)
        say(f"{number:>4} {result['seconds']:>6} s  {verdict:<18} {mutant.file}:{mutant.line}: {mutant.change}  [{detail}]")


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
