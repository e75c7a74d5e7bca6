"""The small mistakes that the tests must notice: one token changed, or one condition or result left out."""

import re
from typing import NamedTuple

from cpp_tokens import begin_of_expression, end_of_expression, tokens_of

_BINARY = {
    "<": ("<=", ">="),
    "<=": ("<", ">"),
    ">": (">=", "<="),
    ">=": (">", "<"),
    "==": ("!=",),
    "!=": ("==",),
    "&&": ("||",),
    "||": ("&&",),
    "+": ("-",),
    "-": ("+",),
    "*": ("/",),
    "/": ("*",),
    "%": ("*",),
    "&": ("|",),
    "|": ("&",),
    "^": ("&",),
    "<<": (">>",),
    ">>": ("<<",),
    "+=": ("-=",),
    "-=": ("+=",),
    "*=": ("/=",),
    "/=": ("*=",),
    "%=": ("*=",),
    "&=": ("|=",),
    "|=": ("&=",),
    "^=": ("&=",),
    "<<=": (">>=",),
    ">>=": ("<<=",),
}
_STEPS = {"++": "--", "--": "++"}
_WORDS = {"true": "false", "false": "true"}
_CONDITIONS = ("<", "<=", ">", ">=", "==", "!=", "&&", "||")
# What a condition can begin after or end before, besides brackets.
BOUNDARIES = ("return", ";", ",", "?", ":", "=", "&=", "|=")


class Mutation(NamedTuple):
    start: int  # in the source
    end: int
    replacement: str

    def apply(self, source):
        return source[: self.start] + self.replacement + source[self.end :]


def mutations_of(source):
    """All mutations of a source, in their order."""
    tokens = tokens_of(source)
    found = set()
    for index, token in enumerate(tokens):
        for replacement in _instead_of(tokens, index):
            found.add(Mutation(token.start, token.end, replacement))
        if token.spaced and token.text in ("&&", "||"):
            found.update(_operands_left_out(tokens, index))
        if token.text == "return":
            found.update(_result_left_out(tokens, index))
        if token.text in ("if", "while"):
            found.update(_condition_inverted(source, tokens, index))
    return sorted(found)


def _instead_of(tokens, index):
    """What can stand in the place of one token."""
    token = tokens[index]
    if token.kind == "number":
        return _other_numbers(token.text)
    if token.kind == "name":
        return [_WORDS[token.text]] if token.text in _WORDS else []
    if token.spaced:
        return _BINARY.get(token.text, ())
    if token.text in _STEPS:
        return [_STEPS[token.text]]
    if token.text == "!" or (token.text == "-" and tokens[index + 1].kind == "number"):
        return [""]
    return ()


def _other_numbers(text):
    digits, suffix = re.fullmatch(r"(.*?)([uUlL]*)", text).groups()
    if "." in digits:
        return []
    number = int(digits, 0) if digits != "0" * len(digits) else 0
    write = hex if digits[:2] in ("0x", "0X") else str
    others = [1] if number == 0 else [number - 1, number + 1]
    return [write(other) + suffix for other in others]


def _operands_left_out(tokens, index):
    """A condition without what stands to the right, or, of the first of several, to the left of && or ||."""
    operator = tokens[index].text
    nothing = "true" if operator == "&&" else "false"
    # && binds closer than ||.
    weaker = ("||",) if operator == "&&" else ()
    stops = BOUNDARIES + weaker
    end = end_of_expression(tokens, index + 1, stops + (operator,)) - 1
    yield Mutation(tokens[index + 1].start, tokens[end].end, nothing)
    begin = begin_of_expression(tokens, index, stops + (operator,))
    if tokens[begin - 1].text != operator:
        yield Mutation(tokens[begin].start, tokens[index - 1].end, nothing)


def _result_left_out(tokens, index):
    """A function that returns nothing but zero."""
    begin, end = index + 1, end_of_expression(tokens, index + 1)
    result = "".join(token.text for token in tokens[begin:end])
    # Numbers and words are changed as such.
    if result not in ("", "{}", "nullptr", *_WORDS) and not re.fullmatch(r"-?\d\w*", result):
        yield Mutation(tokens[begin].start, tokens[end - 1].end, "{}")


def _condition_inverted(source, tokens, index):
    """A condition that has no operator of its own to be changed."""
    begin, end = index + 2, end_of_expression(tokens, index + 2, ())
    condition = tokens[begin:end]
    depth = 0
    for token in condition:
        depth += (token.text in ("(", "[")) - (token.text in (")", "]"))
        if depth == 0 and (token.text in _CONDITIONS or token.text == "!"):
            return
    text = source[tokens[begin].start : tokens[end - 1].end]
    yield Mutation(tokens[begin].start, tokens[end - 1].end, "!(" + text + ")")
