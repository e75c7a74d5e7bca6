"""Sources in which every mutant stands behind a switch: they are compiled once for all of them."""

import re

from cpp_tokens import begin_of_expression, end_of_expression, tokens_of
from mutations import BOUNDARIES

_OPERATORS = {
    "<": "Less",
    "<=": "LessEqual",
    ">": "Greater",
    ">=": "GreaterEqual",
    "==": "Equal",
    "!=": "Unequal",
    "+": "Plus",
    "-": "Difference",
    "*": "Times",
    "/": "Over",
    "%": "Remainder",
    "&": "BitAnd",
    "|": "BitOr",
    "^": "ExclusiveOr",
    "<<": "ShiftLeft",
    ">>": "ShiftRight",
    "+=": "Add",
    "-=": "Subtract",
    "*=": "Multiply",
    "/=": "Divide",
    "%=": "Remain",
    "&=": "SetAnd",
    "|=": "SetOr",
    "^=": "SetExclusive",
    "<<=": "SetShiftLeft",
    ">>=": "SetShiftRight",
}


def with_switches(source, numbered, without_lines=()):
    """A source with all of its mutants that can be switched, line by line what it was.

    numbered: pairs of a mutation and the number of its switch
    without_lines: lines, counted from 1, that stay as they are"""
    writer = _Writer(source, without_lines)
    for mutation, number in numbered:
        writer.take(mutation, number)
    return writer.written()


class _Writer:
    def __init__(self, source, without_lines):
        self._source = source
        self._without_lines = set(without_lines)
        self._tokens = tokens_of(source)
        self._at = {token.start: index for index, token in enumerate(self._tokens)}
        self._on_tokens = {}  # index: mutants of that token alone
        self._on_conditions = {}  # first token, token after it: mutants of a condition with && or ||
        self._results = {}  # index of a return: number of the switch
        self._inverted = {}  # first token, token after it: number of the switch

    def take(self, mutation, number):
        if self._source.count("\n", 0, mutation.start) + 1 in self._without_lines:
            return
        index = self._at[mutation.start]
        token = self._tokens[index]
        text = mutation.replacement
        if text == "{}":
            self._results[index - 1] = number
        elif text in ("true", "false") and not (token.text in ("true", "false") and token.end == mutation.end):
            self._take_condition(index, mutation, number)
        elif text in ("&&", "||"):
            self._take_condition(index, mutation, number)
        elif text.startswith("!("):
            self._inverted[index, end_of_expression(self._tokens, index, ())] = number
        else:
            self._on_tokens.setdefault(index, []).append((text, number))

    def _take_condition(self, index, mutation, number):
        begin = begin_of_expression(self._tokens, index, BOUNDARIES)
        end = end_of_expression(self._tokens, index, BOUNDARIES)
        self._on_conditions.setdefault((begin, end), []).append((mutation, number))

    def written(self):
        tokens, source = self._tokens, self._source
        before, after, instead = {}, {}, {}  # position: texts
        for index, mutants in self._on_tokens.items():
            text = self._switched_token(index, mutants)
            if text is not None:
                instead[index] = text
        spans = []
        for (begin, end), mutants in self._on_conditions.items():
            spans.append((begin, end, self._switched_condition(begin, end, mutants) + "bool(", "))"))
        for (begin, end), number in self._inverted.items():
            if not any(token.text in ("=", ";") for token in tokens[begin:end]):
                spans.append((begin, end, f"mutants::On<{number}>() != bool(", ")"))
        for begin, number in self._results.items():
            end = end_of_expression(tokens, begin)
            spans.append((begin, end + 1, f"{{ if (mutants::On<{number}>()) return {{}}; ", " }"))
        for begin, end, prefix, suffix in sorted(spans, key=lambda span: (span[0], -span[1])):
            before[tokens[begin].start] = before.get(tokens[begin].start, "") + prefix
        for begin, end, prefix, suffix in sorted(spans, key=lambda span: (-span[0], span[1])):
            after[tokens[end - 1].end] = after.get(tokens[end - 1].end, "") + suffix
        parts, done = [], 0
        for index, token in enumerate(tokens):
            if not (token.start in before or token.end in after or index in instead):
                continue
            parts += [source[done : token.start], before.get(token.start, ""), instead.get(index, token.text)]
            parts.append(after.get(token.end, ""))
            done = token.end
        return "".join(parts) + source[done:]

    def _switched_token(self, index, mutants):
        token = self._tokens[index]
        numbers = ", ".join(str(number) for _, number in mutants)
        if token.kind == "number" or token.text in ("true", "false"):
            others = ", ".join(text for text, _ in mutants)
            return f"mutants::Number<{numbers}>({token.text}, {others})"
        if token.spaced and token.text in _OPERATORS:
            return f"{token.text} mutants::{_OPERATORS[token.text]}<{numbers}>{{}} {token.text}"
        unary = {"!": "Not", "-": "Minus", "++": "Increment", "--": "Decrement"}.get(token.text)
        postfix = self._tokens[index - 1].kind in ("name", "number") or self._tokens[index - 1].text in (")", "]")
        if unary and (not postfix or self._tokens[index - 1].text == "return"):
            return f"mutants::{unary}<{numbers}>{{}}->*"
        return None

    def _switched_condition(self, begin, end, mutants):
        """The mutants of a condition, each asked for before the condition itself."""
        start, stop = self._tokens[begin].start, self._tokens[end - 1].end
        asked = "("
        for mutation, number in mutants:
            mutant = mutation.apply(self._source)[start : stop + len(mutation.replacement) - mutation.end + mutation.start]
            asked += f"mutants::On<{number}>() ? bool({_on_one_line(mutant)}) : "
        return asked


def _on_one_line(text):
    return " ".join(re.sub(r"//[^\n]*", "", text).split())
