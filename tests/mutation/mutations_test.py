"""Which mutations are made of which code."""

import unittest

from mutations import mutations_of


def mutants(source):
    return [mutation.apply(source) for mutation in mutations_of(source)]


class MutationsTest(unittest.TestCase):
    def expect(self, source, *expected):
        self.assertEqual(sorted(mutants(source)), sorted(expected))

    def test_comparisons(self):
        self.expect("f(a < b);", "f(a <= b);", "f(a >= b);")
        self.expect("f(a >= b);", "f(a > b);", "f(a < b);")
        self.expect("f(a == b);", "f(a != b);")
        self.expect("f(!a);", "f(a);")

    def test_angle_brackets_of_templates_are_no_comparisons(self):
        self.expect("std::vector<std::pair<A, B>> x;")
        self.expect("template <typename T> T* f(T&& x, const T& y);")

    def test_arithmetic(self):
        self.expect("x = a + b;", "x = a - b;")
        self.expect("x = a <<\n    b;", "x = a >>\n    b;")
        self.expect("x &= a;", "x |= a;")
        self.expect("++x;", "--x;")

    def test_signs_addresses_and_pointers_are_no_arithmetic(self):
        self.expect("x = -a;")
        self.expect("x = &a;")
        self.expect("char* const x = *a;")

    def test_numbers(self):
        self.expect("x = 0;", "x = 1;")
        self.expect("x = 1u;", "x = 0u;", "x = 2u;")
        self.expect("x = 0x10;", "x = 0xf;", "x = 0x11;")
        self.expect("x = -1;", "x = 1;", "x = -0;", "x = -2;")
        self.expect("x = true;", "x = false;")

    def test_operands(self):
        self.expect("x = a && b;", "x = true && b;", "x = a && true;", "x = a || b;")
        self.expect(
            "x = f(a) && b[c] && d;",
            "x = true && b[c] && d;",
            "x = f(a) && true && d;",
            "x = f(a) && b[c] && true;",
            "x = f(a) || b[c] && d;",
            "x = f(a) && b[c] || d;",
        )
        self.expect(
            "if (a || (b)) {}", "if (false || (b)) {}", "if (a || false) {}", "if (a && (b)) {}"
        )

    def test_an_operand_of_or_is_all_that_and_joins(self):
        self.expect(
            "x = a && b || c;",
            "x = true && b || c;",
            "x = a && true || c;",
            "x = a || b || c;",
            "x = false || c;",
            "x = a && b || false;",
            "x = a && b && c;",
        )

    def test_conditions_without_an_operator(self):
        self.expect("if (f(a)) {}", "if (!(f(a))) {}")
        self.expect("while (!f(a)) {}", "while (f(a)) {}")

    def test_results(self):
        self.expect("return f(a, b);", "return {};")
        self.expect("return a;", "return {};")
        self.expect("return nullptr;")
        self.expect("return 0x1u;", "return 0x0u;", "return 0x2u;")
        self.expect("return;")
        self.expect("return {};")
        self.expect("return -1;", "return 1;", "return -0;", "return -2;")

    def test_what_is_no_code_stays(self):
        self.expect("// a < b\n/* a + b */")
        self.expect('f("a < 1", \'1\', R"(a && b)");')
        self.expect("#if A < 1 && \\\n    B > 2\n#include <x>\n")
        self.expect("static_assert(sizeof(A) == 8 && f(1 + 2), \"\");")


if __name__ == "__main__":
    unittest.main()
