"""The tokens of a C++ source that was formatted by clang-format."""

import re
from typing import NamedTuple

_TOKEN = re.compile(
    r"""
    (?P<comment>//[^\n]*|/\*.*?\*/)
  | (?P<preprocessor>^[ \t]*\#(?:\\\n|[^\n])*)
  | (?P<string>R"(?P<fence>[^(]*)\(.*?\)(?P=fence)"|"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])*')
  | (?P<number>(?:0[xX][0-9a-fA-F]+|\d+(?:\.\d+)?)[uUlL]*)
  | (?P<name>[A-Za-z_]\w*)
  | (?P<operator><<=|>>=|\.\.\.|::|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|[-+*/%&|^~!<>=?:;,.(){}\[\]])
    """,
    re.VERBOSE | re.DOTALL | re.MULTILINE,
)

_OPENING = "([{"
_CLOSING = ")]}"


class Token(NamedTuple):
    kind: str  # of the groups of _TOKEN
    text: str
    start: int
    spaced: bool  # blanks or line ends on both sides: so stand binary operators, and no others

    @property
    def end(self):
        return self.start + len(self.text)


def tokens_of(source):
    """All tokens of the code proper: no comments, no preprocessor lines, no static assertions, no attributes."""
    tokens = []
    for match in _TOKEN.finditer(source):
        if match.lastgroup in ("comment", "preprocessor"):
            continue
        kind = "string" if match["string"] is not None else match.lastgroup
        start, end = match.span()
        spaced = source[start - 1 : start].isspace() and source[end : end + 1].isspace()
        tokens.append(Token(kind, match[0], start, spaced))
    return _without_checks(tokens)


def _without_checks(tokens):
    """Without what only the compiler looks at."""
    kept = []
    index = 0
    while index < len(tokens):
        if tokens[index].text == "static_assert":
            index = end_of_expression(tokens, index)
        if tokens[index].text == "__attribute__":
            index = end_of_expression(tokens, index + 2, ()) + 1
            continue
        kept.append(tokens[index])
        index += 1
    return kept


def end_of_expression(tokens, index, stops=(";",)):
    """The index of the first of some tokens after an index that stands in no brackets opened after it."""
    depth = 0
    while index < len(tokens):
        text = tokens[index].text
        if depth == 0 and (text in stops or text in _CLOSING):
            return index
        depth += (text in _OPENING) - (text in _CLOSING)
        index += 1
    return index


def begin_of_expression(tokens, index, stops):
    """The index after the last of some tokens before an index that stands in no brackets closed before it."""
    depth = 0
    while index > 0:
        text = tokens[index - 1].text
        if depth == 0 and (text in stops or text in _OPENING):
            return index
        depth += (text in _CLOSING) - (text in _OPENING)
        index -= 1
    return index
