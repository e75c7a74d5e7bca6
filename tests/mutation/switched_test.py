"""A program with all of its mutants behind switches does what each of them does."""

import os
import subprocess
import tempfile
import unittest
from pathlib import Path

from mutations import mutations_of
from switched import with_switches

FUNCTION = """int F(int a, int b) {
    if (a < b && b != 3) {
        return a + 2;
    }
    return !a; // F(2, 2) and F(0, 3) come here
}
constexpr int kTwo = 2;
"""
MAIN = '#include <cstdio>\nint main() { std::printf("%d %d %d %d", F(1, 2), F(2, 2), F(0, 3), kTwo); }\n'
SWITCHES = Path(__file__).parent / "switches.h"


class SwitchedTest(unittest.TestCase):
    def test_each_switch_makes_its_mutant(self):
        mutations = mutations_of(FUNCTION)
        expected = [
            ("true", "3 4 1 2"),  # for a < b
            ("<=", "3 4 1 2"),
            (">=", "0 4 1 2"),
            ("||", "3 4 2 2"),
            ("true", "3 0 2 2"),  # for b != 3
            ("==", "0 0 2 2"),
            ("2", "0 0 2 2"),  # for 3
            ("4", "3 0 2 2"),
            ("{}", "0 0 1 2"),  # for a + 2
            ("-", "-1 0 1 2"),
            ("1", "2 0 1 2"),  # for 2
            ("3", "4 0 1 2"),
            ("", "3 2 0 2"),  # for !
            ("{}", "3 0 0 2"),  # for !a
            ("1", "3 0 1 2"),  # the compiler's constants stay
            ("3", "3 0 1 2"),
        ]
        self.assertEqual([mutation.replacement for mutation in mutations], [text for text, _ in expected])
        source = with_switches(FUNCTION, [(mutation, number) for number, mutation in enumerate(mutations)])
        self.assertEqual(source.count("\n"), FUNCTION.count("\n"))
        with tempfile.TemporaryDirectory() as scratch:
            program = self.built(source, scratch)
            self.assertEqual(self.printed(program, -1), "3 0 1 2")
            for number, (text, output) in enumerate(expected):
                self.assertEqual(self.printed(program, number), output, f"{number}: {text}")
            self.assertEqual(self.reached(program, scratch), list(range(14)))

    def test_each_comparison_has_its_switches_in_order(self):
        for operator in ("<", "<=", ">", ">=", "==", "!="):
            function = f"int F(int a, int b) {{ return int(a {operator} b); }}\nint kTwo;\n"
            mutations = [m for m in mutations_of(function) if m.replacement in ("<", "<=", ">", ">=", "==", "!=")]
            source = with_switches(function, [(mutation, number) for number, mutation in enumerate(mutations)])
            with tempfile.TemporaryDirectory() as scratch:
                program = self.built(source, scratch)
                for number, mutation in enumerate(mutations):
                    pairs = ((1, 2), (2, 2), (0, 3))
                    other = " ".join(str(int(eval(f"{a} {mutation.replacement} {b}"))) for a, b in pairs)
                    self.assertEqual(self.printed(program, number), other + " 0", f"{operator}: {mutation.replacement}")

    def test_lines_can_stay_as_they_are(self):
        mutations = mutations_of(FUNCTION)
        numbered = [(mutation, number) for number, mutation in enumerate(mutations)]
        self.assertEqual(with_switches(FUNCTION, numbered, {2, 3, 5, 7}), FUNCTION)

    def built(self, source, scratch):
        program = Path(scratch) / "program"
        command = ["g++", "-std=c++17", "-w", "-include", str(SWITCHES), "-x", "c++", "-", "-o", str(program)]
        subprocess.run(command, input=source + MAIN, text=True, check=True)
        return program

    def printed(self, program, mutant, **environment):
        environment = {**os.environ, "DISKACCESS_MUTANT": str(mutant), **environment}
        return subprocess.run([program], env=environment, check=True, capture_output=True, text=True).stdout

    def reached(self, program, scratch):
        trace = Path(scratch) / "reached"
        trace.write_bytes(bytes(16))
        self.printed(program, -1, DISKACCESS_MUTANTS_REACHED=str(trace))
        return [number for number, byte in enumerate(trace.read_bytes()) if byte]


if __name__ == "__main__":
    unittest.main()
