"""Tests of scripts/mutation: which changes it finds in a source, what it leaves alone, and how it keeps its books.

usage: mutation_test.py
"""
import os
import pathlib
import subprocess
import sys
import tempfile
import time
import unittest

TREE = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(TREE / "scripts" / "mutation"))
sys.dont_write_bytecode = True
import confined  # noqa: E402
import copy_tree  # noqa: E402
import mutator  # noqa: E402
import reach  # noqa: E402
import worker  # noqa: E402


def changes(body):
    """What can be changed in the body of a function."""
    return [mutant.change for mutant in mutator.find_mutants("a.cpp", f"void Work()\n{{\n{body}\n}}\n")]


class Found(unittest.TestCase):
    def test_Condition_EachSignAndTheWhole(self):
        self.assertEqual(changes("if (a < 1 && b)\n x = y;"),
                         ["if ({{a < 1 && b => !(a < 1 && b)}})", "if (a {{< => <=}} 1 && b)", "if (a < {{1 => 2}} && b)",
                          "if (a < 1 {{&& => ||}} b)", "{{x = y => }};"])

    def test_ConditionOfOneComparison_NotTurnedTwice(self):
        self.assertEqual(changes("if (a == b)\n return;"), ["if (a {{== => !=}} b)"])
        self.assertEqual(changes("while (!IsDone(a, b))\n ;"), ["while ({{! => }}IsDone(a, b))"])

    def test_ConditionBehindAnInitializer_OnlyTheCondition(self):
        self.assertEqual(changes("if (int a = Get(); a)\n return;"), ["if (int a = Get(); {{a => !(a)}})"])
        self.assertEqual(changes("if (const auto a = Get())\n return;"), [])

    def test_Constants_OneMoreOrTheOther(self):
        self.assertEqual(changes("return Get(0x1FU, 1'000, true);"),
                         ["return Get({{0x1FU => 32U}}, 1'000, true);", "return Get(0x1FU, {{1'000 => 1001}}, true);",
                          "return Get(0x1FU, 1'000, {{true => false}});"])

    def test_NumberWithAPoint_LeftAlone(self):
        self.assertEqual(changes("return Get(1.5, 2e-3);"), [])

    def test_Arithmetic_TheOtherSign(self):
        self.assertEqual(changes("return a + b * ++c;"),
                         ["return a {{+ => -}} b * ++c;", "return a + b {{* => /}} ++c;", "return a + b * {{++ => --}}c;"])

    def test_Lock_LeftOut(self):
        for lock in ("std::lock_guard lock(m_mutex);", "const std::scoped_lock lock(m_a, m_b);",
                     "const ThreadGatewayGuard guard(m_lock);", "std::unique_lock<std::mutex> lock(m_mutex);"):
            self.assertEqual(changes(lock), [f"{{{{{lock} => ;}}}}"])

    def test_Call_LeftOut(self):
        self.assertEqual(changes("a->b.Work(c);"), ["{{a->b.Work(c) => }};"])
        self.assertEqual(changes("if (a)\n Work();\nelse\n Rest();"), ["if ({{a => !(a)}})", "{{Work() => }};", "{{Rest() => }};"])

    def test_CallOverLines_LeftOutWhole(self):
        self.assertEqual(changes("Work(a,\n     b);"), ["{{Work(a, b) => }};"])

    def test_CallInALambda_LeftOut(self):
        self.assertEqual(changes("Run([&] { Work(); });"), ["Run([&] { {{Work() => }}; });"])

    def test_CallInACase_LeftOut(self):
        self.assertEqual(changes("switch (a) {\ncase 5:\n Work();\n break;\ndefault:\n Rest();\n}"),
                         ["{{Work() => }};", "{{break => }};", "{{Rest() => }};"])

    def test_Loop_PartsOfTheHeadAreNoStatements(self):
        self.assertEqual(changes("for (i = 0; i != n; Step(i))\n ;"),
                         ["for (i = {{0 => 1}}; i != n; Step(i))", "for (i = 0; i {{!= => ==}} n; Step(i))"])

    def test_Declarations_Kept(self):
        self.assertEqual(changes("const int a = b;\nString c(d);\nauto& e = f;\nVector<int> g;\nNet::Socket h(i);"), [])

    def test_SeveralFunctions_NamedEach(self):
        source = ("namespace a {\nint One() { return 1; }\n\nNet::Net(int x)\n    : m_x{2}\n    , m_y(3)\n{\n    Work();\n}\n"
                  "Net::~Net() { Work(); }\ntemplate <class T> bool Box<T>::operator==(const Box& other) const\n{\n"
                  "    return 2;\n}\nstruct S\n{\n    void In() const noexcept { Work(); }\n};\n} // namespace a\n")
        self.assertEqual([(mutant.function, mutant.change.split("{{")[1]) for mutant in mutator.find_mutants("a.cpp", source)],
                         [("One", "1 => 2}}; }"), ("Net::Net", "Work() => }};"), ("Net::~Net", "Work() => }}; }"),
                          ("Box::operator==", "2 => 3}};"), ("In", "Work() => }}; }")])

    def test_Apply_OnlyThePlaceChanges(self):
        source = "void Work()\n{\n    if (a < b)\n        Rest();\n}\n"
        mutants = mutator.find_mutants("a.cpp", source)
        self.assertEqual([mutant.apply(source) for mutant in mutants],
                         [source.replace("a < b", "!(a < b)"), source.replace("<", "<="), source.replace("Rest()", "")])
        self.assertEqual([mutant.line for mutant in mutants], [3, 3, 4])

    def test_Key_SameAfterLinesWereAddedAbove(self):
        source = "void Work()\n{\n    return 1;\n}\n"
        keys = [[mutant.key for mutant in mutator.find_mutants("a.cpp", text)] for text in (source, "// more\n\n" + source)]
        self.assertEqual(keys[0], ["a.cpp | Work | return {{1 => 2}};"])
        self.assertEqual(keys[0], keys[1])

    def test_SameLineTwice_TwoKeys(self):
        keys = [mutant.key for mutant in mutator.find_mutants("a.cpp", "void W()\n{\n    x = y;\n    x = y;\n}\n")]
        self.assertEqual(keys, ["a.cpp | W | {{x = y => }};", "a.cpp | W | {{x = y => }}; | 2"])


class LeftAlone(unittest.TestCase):
    def test_Comments(self):
        self.assertEqual(changes("// if (a < 1) b();\n/* c = 2;\n d(); */"), [])

    def test_Texts(self):
        self.assertEqual(changes(r'''Use("a < 1 \" && b();"); Use('<'); Use('\'');'''),
                         [r'''{{Use("a < 1 \" && b();") => }}; Use('<'); Use('\'');''',
                          r'''Use("a < 1 \" && b();"); {{Use('<') => }}; Use('\'');''',
                          r'''Use("a < 1 \" && b();"); Use('<'); {{Use('\'') => }};'''])

    def test_RawTexts(self):
        self.assertEqual(changes('return R"x(a < 1 " ) && 2;\n)" )x";'), [])

    def test_PreprocessorLines(self):
        self.assertEqual(changes("#if A < 1 && \\\n    B > 2\n#define C(x) d(x) + 1\n#endif"), [])

    def test_Templates(self):
        self.assertEqual(changes("return static_cast<Map<int, 4>>(a);"), [])
        self.assertEqual(changes("std::array<char, 16> b;"), [])

    def test_References(self):
        self.assertEqual(changes("auto&& a = *b;\nconst auto& c = d;\nString&& e = f();"), [])

    def test_CompileTime(self):
        self.assertEqual(changes("constexpr int a = 5 + 1;\nstatic_assert(a == 6);"), [])
        self.assertEqual(changes("if constexpr (a < 5)\n return;"), [])

    def test_OutsideFunctions(self):
        source = "const int a = 5;\nconst B c[] = {{1, true}, {2, false}};\nenum class D : char { E = 1 };\nint f(int a = 1);\n"
        self.assertEqual(mutator.find_mutants("a.cpp", source), [])

    def test_CaseLabelsAndAttributes(self):
        self.assertEqual(changes("switch (a) {\ncase 1:\n [[fallthrough]];\ncase 2:\n return;\n}"), [])

    def test_NamesOfOperators(self):
        self.assertEqual(mutator.find_mutants("a.cpp", "bool operator<(A a, B b)\n{\n    return Less(a, b);\n}\n"), [])

    def test_SizeOfAnArray(self):
        self.assertEqual(changes("char text[64];\nstd::array<char, 4>* a[2 * 8 + 1];"), [])
        self.assertEqual(changes("text[64]->Work();"), ["{{text[64]->Work() => }};", "text[{{64 => 65}}]->Work();"])


class OnOurSources(unittest.TestCase):
    """What the formatting of this tree promises holds in each source."""

    def test_EverySource_BracketsMatchAndChangesStayWhereTheyAre(self):
        total = 0
        for room in worker.ROOMS:
            for path in sorted((TREE / room).rglob("*.cpp")):
                source = path.read_text()
                tokens = mutator.tokenize(source)
                pairs = mutator.match_brackets(tokens)
                brackets = [index for index, token in enumerate(tokens) if token.kind == "sign" and token.text in "()[]{}"]
                self.assertEqual(sorted(pairs), brackets, path)
                mutants = mutator.find_mutants(str(path), source)
                self.assertEqual(len({mutant.key for mutant in mutants}), len(mutants), path)
                total += len(mutants)
        self.assertGreater(total, 3000)


class Reach(unittest.TestCase):
    DUMP = """
0000000000001000 <F>:
F():
/tree/net/A.cpp:3
    1000:\tpush   %rbp
/tree/net/A.cpp:4 (discriminator 2)
    1001:\tcall   2000 <__sanitizer_cov_trace_pc>
    1006:\tmov    %rax,%rbx
/usr/include/c++/12/vector:9
    1010:\tcall   2000 <__sanitizer_cov_trace_pc@plt>
    1015:\tret
/tree/net/A.cpp:6
    1016:\tcall   3000 <Other>
/tree/build/../net/A.cpp:7
    101b:\tcall   2000 <__sanitizer_cov_trace_pc>
    1020:\tret
""".splitlines()

    def test_Places_EachLineBelongsToTheNoteBeforeIt(self):
        addresses, lines = reach.parse_places(self.DUMP, "/tree/")
        self.assertEqual(dict(lines), {("net/A.cpp", 4): {0}, ("net/A.cpp", 6): {1}, ("net/A.cpp", 7): {2}})
        self.assertEqual(addresses, {0: 0x1006, 1: 0x1015, 2: 0x1020})

    def test_Notes_BitsOfTheFile(self):
        with tempfile.TemporaryDirectory() as folder:
            notes = pathlib.Path(folder) / "notes"
            content = bytearray(1024)
            content[0x1006 >> 3] |= 1 << (0x1006 & 7)
            content[0x1020 >> 3] |= 1 << (0x1020 & 7)
            notes.write_bytes(content)
            addresses = {0: 0x1006, 1: 0x1015, 2: 0x1020}
            self.assertEqual(reach.read_notes(notes, addresses), 0b101)
            self.assertEqual(reach.read_notes(notes.with_name("none"), addresses), 0)


class ScriptedSuite:
    """Tests that end as a list says: of each start the exit code and the output."""

    def __init__(self, cases, *ends):
        self.cases, self.ends, self.started = cases, list(ends), []

    def that_reach(self, _mutant):
        return self.cases

    def run(self, command, _folder, environment, seconds):
        assert environment["LD_LIBRARY_PATH"] == "/mutant"
        self.started.append((command[1:], seconds))
        return self.ends.pop(0)


class ScriptedMaker:
    folder = "/mutant"


class Judging(unittest.TestCase):
    MUTANT = mutator.find_mutants("net/dns/NetDNS.cpp", "void W()\n{\n    x = y;\n}\n")[0]
    FAILED_B = (1, "[ RUN      ] A.b\n[  FAILED  ] A.b (3 ms)\n[  FAILED  ] 1 test, listed below:\n")
    PASSED = (0, "")

    def judge(self, *ends, seconds=0.1, budget=60):
        suite = ScriptedSuite([case("A.a", seconds), case("A.b", seconds)] if ends else [], *ends)
        verdict = worker.JUDGE(suite, ScriptedMaker, budget).judge(self.MUTANT)
        self.assertEqual(suite.ends, [])
        self.started = suite.started
        return verdict

    def test_NothingReachesIt(self):
        self.assertEqual(self.judge(), ("no test reaches it", ""))

    def test_AllPass_Survived(self):
        self.assertEqual(self.judge(self.PASSED), ("survived", "2 of 2 tests that reach it ran"))
        self.assertEqual(self.started[0][0][0], "--gtest_filter=A.a:A.b")

    def test_FailsTwice_KilledByThatTest(self):
        self.assertEqual(self.judge(self.FAILED_B, self.FAILED_B), ("killed", "kqtest_net_dns.A.b"))
        self.assertEqual(self.started[1][0], ["--gtest_filter=A.b"])

    def test_FailsByChance_TheOthersDecide(self):
        self.assertEqual(self.judge(self.FAILED_B, self.PASSED, self.PASSED, self.PASSED)[0], "survived")
        self.assertEqual(self.started[-1][0], ["--gtest_filter=A.a"])

    def test_TimeLimit_Killed(self):
        self.assertEqual(self.judge((None, "")), ("killed", "kqtest_net_dns.A.a and others, by the time limit"))
        self.assertEqual(self.started[0][1], 21)

    def test_Signal_KilledByTheTestThatRan(self):
        self.assertEqual(self.judge((139, "[ RUN      ] A.a\n[       OK ] A.a\n[ RUN      ] A.b\n")),
                         ("killed", "A.b, by a signal"))

    def test_BudgetUsedUp_NoFurtherTest(self):
        self.assertEqual(self.judge(self.PASSED, seconds=5, budget=0), ("survived", "1 of 2 tests that reach it ran"))


class Confined(unittest.TestCase):
    """Runs that must do no harm. Left out where no namespaces can be had."""

    def setUp(self):
        if confined.run(["true"], "/", [], {}, 20)[0] != 0:
            if os.environ.get("CI", "") not in ("", "0", "false"):
                self.fail("missing, though CI is set: namespaces")
            self.skipTest("no namespaces can be made here")

    def test_Run_CodeAndOutput(self):
        self.assertEqual(confined.run(["sh", "-c", "echo $A; exit 3"], "/", [], {"A": "told"}, 20), (3, "told\n"))

    def test_Run_OnlyTheFolderGivenCanBeWritten(self):
        with tempfile.TemporaryDirectory(dir=os.getcwd()) as folder:
            os.mkdir(folder + "/in")
            run = confined.run(["sh", "-c", "touch in/a; touch b; touch /tmp/c"], folder, [folder + "/in"], {}, 20)
            self.assertEqual(run[0], 0)
            self.assertEqual([os.listdir(folder), os.listdir(folder + "/in")], [["in"], ["a"]])

    def test_Run_TimeIsOver_NothingIsLeft(self):
        mark = f"KQ_MUTANTS_TEST={os.getpid()}"
        command = ["sh", "-c", "(setsid sleep 1000 &) ; sleep 1000"]
        self.assertIsNone(confined.run(command, "/", [], dict([mark.split("=")]), 1)[0])
        deadline = time.monotonic() + 20
        while any(mark.encode() in self.environment(pid) for pid in os.listdir("/proc") if pid.isdigit()):
            self.assertLess(time.monotonic(), deadline)

    @staticmethod
    def environment(pid):
        try:
            return pathlib.Path(f"/proc/{pid}/environ").read_bytes()
        except OSError:
            return b""


def case(name, seconds, program="kqtest_net_dns", filtered=True):
    command = [f"/b/{program}"] + ([f"--gtest_filter={name}"] if filtered else [])
    return worker.Case(f"{program}.{name}", command, "/b", {}, seconds, 1)


class Books(unittest.TestCase):
    def test_Batches_OwnFolderFirstThenTheQuickOnes(self):
        cases = [case("A.slow", 9), case("B.x", 0.1, "kqtest_tools_kq"), case("A.a", 0.1), case("A.b", 0.2),
                 case("live", 9, "python3", False)]
        names = [[one.name for one in group] for group in worker.batches(cases, "net/dns/NetDNS.cpp")]
        self.assertEqual(names, [["kqtest_net_dns.A.a", "kqtest_net_dns.A.b"], ["kqtest_net_dns.A.slow"],
                                 ["kqtest_tools_kq.B.x"], ["python3.live"]])

    def test_Batches_NamedAfterTheSourceFirst(self):
        cases = [case("NetDNSCacheTest.a", 0.1), case("NetDNSTest.slow", 7), case("B.x", 0, "kqtest_tools_kq")]
        names = [[one.name for one in group] for group in worker.batches(cases, "net/dns/NetDNS.cpp")]
        self.assertEqual(names, [["kqtest_net_dns.NetDNSTest.slow"], ["kqtest_net_dns.NetDNSCacheTest.a"],
                                 ["kqtest_tools_kq.B.x"]])

    def test_Draw_SameSeedSameMutantsAndALargerCountHoldsTheSmaller(self):
        mutants = mutator.find_mutants("a.cpp", "void W()\n{\n" + "\n".join(f"    x = {n};" for n in range(50)) + "\n}\n")
        first = [mutant.key for mutant in worker.draw(mutants, 10, 7)]
        self.assertEqual(first, [mutant.key for mutant in worker.draw(mutants[::-1], 20, 7)][:10])
        self.assertNotEqual(first, [mutant.key for mutant in worker.draw(mutants, 10, 8)])
        gone = [mutant for mutant in mutants if mutant.key != first[0]]
        self.assertEqual(first[1:], [mutant.key for mutant in worker.draw(gone, 9, 7)])
        self.assertEqual(len(worker.draw(mutants, 0, 7)), len(mutants))

    def test_Results_OnlyThoseOfThisStateAreKnownAgain(self):
        mutant = mutator.find_mutants("a.cpp", "void W()\n{\n    x = y;\n}\n")[0]
        with tempfile.TemporaryDirectory() as folder:
            place = pathlib.Path(folder) / "results"
            worker.RESULTS(place, "one").add(mutant, "killed", "by a test", 1.23)
            self.assertEqual(worker.RESULTS(place, "one").known[mutant.key]["verdict"], "killed")
            self.assertEqual(worker.RESULTS(place, "two").known, {})

    def test_Equivalents_KeyAndReason(self):
        with tempfile.TemporaryDirectory() as folder:
            place = pathlib.Path(folder) / "list"
            place.write_text("# a remark\n\na.cpp | W |  {{x = y => }};\n    Nobody reads it:\n    it is empty.\n")
            self.assertEqual(worker.read_equivalents(place), {"a.cpp | W | {{x = y => }};": "Nobody reads it: it is empty."})

    def test_EquivalentsOfThisTree_EachNamesAMutantAndHasAReason(self):
        listed = worker.read_equivalents(TREE / "tests" / "mutants-equivalent.txt")
        known = {mutant.key for mutant in worker.find_all(TREE, worker.ROOMS)} if listed else set()
        self.assertEqual([key for key, reason in listed.items() if key not in known or not reason], [])

    def test_Report_ShareOfThoseThatCanBeKilled(self):
        def result(number, verdict):
            return {"key": f"a.cpp | W | c{number}", "line": number, "kind": "call", "verdict": verdict, "detail": ""}
        text = worker.report([result(1, "killed"), result(2, "killed"), result(3, "survived"), result(4, "no test reaches it"),
                              result(5, "does not compile"), result(6, "equivalent")], {"a.cpp | W | c6": "why"}, 9)
        self.assertIn("6 of 9 mutants drawn were tried", text)
        self.assertIn("2 of 4, 50.0 %", text)
        self.assertIn("\na.cpp\n   3: W: c3\n      survived; no test\n   4: W: c4\n", text)

    def test_Known_ListedAsEquivalentCountsUnlessKilled(self):
        drawn = mutator.find_mutants("a.cpp", "void W()\n{\n    a = b;\n    c = d;\n    e = f;\n    g = h;\n}\n")
        keys = [mutant.key for mutant in drawn]
        known = {keys[0]: {"verdict": "survived"}, keys[1]: {"verdict": "killed"}, keys[2]: {"verdict": "survived"}}
        found = worker.known_of(drawn, known, {keys[0]: "why", keys[1]: "why"})
        self.assertEqual([result["verdict"] for result in found], ["equivalent", "killed", "survived"])
        found = worker.known_of(drawn, {}, {keys[3]: "why"})
        self.assertEqual([(result["key"], result["verdict"]) for result in found], [(keys[3], "equivalent")])

    def test_CopyTree_SameStateForTheSameCodeAndWhatIsGoneGoes(self):
        with tempfile.TemporaryDirectory() as folder:
            tree, copy = pathlib.Path(folder) / "tree", pathlib.Path(folder) / "copy"
            (tree / "docs").mkdir(parents=True)
            copy.mkdir()
            subprocess.run(["git", "init", "-q", tree], check=True)
            (tree / "a.cpp").write_text("one")
            (tree / "b.cpp").write_text("two")
            first = copy_tree.copy_tree(tree, copy)
            self.assertEqual((copy / "a.cpp").read_text(), "one")
            stamp = (copy / "a.cpp").stat().st_mtime_ns
            (tree / "docs" / "page.md").write_text("no code")
            self.assertEqual(copy_tree.copy_tree(tree, copy), first)
            (tree / "b.cpp").unlink()
            self.assertNotEqual(copy_tree.copy_tree(tree, copy), first)
            self.assertFalse((copy / "b.cpp").exists())
            self.assertEqual((copy / "a.cpp").stat().st_mtime_ns, stamp)


if __name__ == "__main__":
    unittest.main()
