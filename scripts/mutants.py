# SPDX-License-Identifier: MIT
"""Finds the possible changes of a C++ source, one token or statement at a time; used by scripts/mutate.

The source is split into tokens, not parsed. A wrong guess gives a mutant that does not compile, and
such a mutant is not counted.
"""

import re
from dataclasses import dataclass

TOKEN = re.compile(
    r"""
    (?P<skip>   \s+ | //[^\n]* | /\*.*?\*/ | ^[ \t]*\#(?:\\\n|[^\n])*)
  | (?P<text>   R"(?P<raw>[^(]*)\(.*?\)(?P=raw)" | "(?:\\.|[^"\\])*" | '(?:\\.|[^'\\])*')
  | (?P<number> \d(?:'?[\w.])*)
  | (?P<word>   [A-Za-z_]\w*)
  | (?P<mark>   <<= | >>= | \.\.\. | -> | \+\+ | -- | << | >> | && | \|\| | :: |
                [-+*/%&|^<>=!]= | .)
    """,
    re.VERBOSE | re.DOTALL | re.MULTILINE,
)

# Only with spaces on both sides: clang-format puts none around a reference, a pointer or a bracket.
BINARY = {
    "==": ["!="], "!=": ["=="],
    "<": ["<=", ">="], ">=": [">", "<"], ">": [">=", "<="], "<=": ["<", ">"],
    "&&": ["||"], "||": ["&&"],
    "+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"], "%": ["*"],
    "&": ["|"], "|": ["&"], "^": ["|"], "<<": [">>"], ">>": ["<<"],
    "+=": ["-="], "-=": ["+="], "&=": ["|="], "|=": ["&="],
}  # fmt: skip
ANYWHERE = {
    "++": ["--"], "--": ["++"], "!": [""],
    "true": ["false"], "false": ["true"],
    # The new operators bind less tightly than almost any condition before them.
    "?": ["|| true ?", "&& false ?"],
}  # fmt: skip

TYPE_SCOPES = {"namespace", "class", "struct", "union", "enum"}
NOT_MUTATED = {"assert", "static_assert", "using", "typedef"}
KEPT_STATEMENTS = NOT_MUTATED | TYPE_SCOPES | {
    "if", "else", "for", "while", "do", "switch", "case", "default", "try", "catch", "template",
    "{",
}  # fmt: skip
NO_TYPE = {"return", "throw", "delete", "break", "continue", "case", "else"}
CLOSERS = {"(": ")", "[": "]", "{": "}"}
DECLARATION = re.compile(
    r"(?:\[\[\w+\]\]\s*)?(?:(?:const|static|constexpr)\s+)*(?P<type>[\w:]+)(?:<.*?>)?[&*]*\s+"
    r"[&*]*(?P<name>\w+)\s*[=({;]",
    re.DOTALL,
)


@dataclass(frozen=True)
class Mutant:
    file: str
    line: int
    kind: str
    function: str  # the last unindented line before it, as in a diff
    before: str
    after: str
    source: str  # of the whole file

    def key(self):
        """@return its identity, which holds as long as its lines do not change."""
        return self.file, squeezed(self.before), squeezed(self.after)

    def diff(self):
        lines = [f"{self.file}: {self.function}" if self.function else self.file]
        for sign, text in ("-", self.before), ("+", self.after):
            lines += [sign + line for line in text.splitlines() if line.strip()]
        return "\n".join(lines)


def squeezed(text):
    return " ".join(text.split())


def mutantsOf(file, source):
    """@return all mutants of a file, in the order of the places that they change."""
    return [mutantAt(file, source, *change) for change in Changes(source).all()]


def mutantAt(file, source, start, end, new, kind):
    # With as many lines as before, because the text of an assertion contains its line number.
    new += "\n" * source.count("\n", start, end)
    first = source.rfind("\n", 0, start) + 1
    last = source.find("\n", end)
    heads = re.findall(r"^(?!p\w+:)[A-Za-z].*", source[:first], re.MULTILINE)
    return Mutant(
        file=file,
        line=source.count("\n", 0, start) + 1,
        kind=kind,
        function=heads[-1] if heads else "",
        before=source[first:last],
        after=source[first:start] + new + source[end:last],
        source=source[:start] + new + source[end:],
    )


class Changes:
    """Finds the changes of a source as (start, end, new text, kind)."""

    def __init__(self, source):
        self.source = source
        self.tokens = [m for m in TOKEN.finditer(source) if m.lastgroup not in ("skip", "raw")]
        self.texts = [token.group() for token in self.tokens]
        self.inCode = self.findCode()

    def all(self):
        position = 0
        while position < len(self.texts):
            if self.texts[position] in NOT_MUTATED:
                position = self.endOfStatement(position) or position
            else:
                yield from self.at(position)
            position += 1

    def at(self, position):
        if self.startsStatement(position):
            yield from self.deletions(position)
        text, kind = self.texts[position], self.tokens[position].lastgroup
        if kind == "number":
            for new in self.otherNumbers(position):
                yield self.change(position, position, new, "constant")
        elif text in ("if", "while"):
            yield from self.conditions(position)
        elif text in ANYWHERE:
            name = "condition" if text == "?" else "operator"
            for new in ANYWHERE[text]:
                yield self.change(position, position, new, name)
        elif text in BINARY and self.hasSpaces(position) and not self.writesText(position):
            for new in BINARY[text]:
                yield self.change(position, position, new, "operator")
        elif text == "~" and self.inCode[position]:
            yield self.change(position, position, "", "operator")

    def change(self, first, last, new, kind):
        return self.tokens[first].start(), self.tokens[last].end(), new, kind

    def textAt(self, position):
        return self.texts[position] if 0 <= position < len(self.texts) else ""

    # ---- operators and constants

    def hasSpaces(self, position):
        token = self.tokens[position]
        return self.source[token.start() - 1].isspace() and self.source[token.end()].isspace()

    def writesText(self, position):
        """@return whether a `<<` belongs to a stream."""
        if self.texts[position] not in ("<<", ">>"):
            return False
        first = position
        while first > 0 and self.texts[first - 1] not in ";{}":
            first -= 1
        last = self.endOfStatement(position) or position
        return any(token.lastgroup == "text" for token in self.tokens[first:last])

    def otherNumbers(self, position):
        number = re.fullmatch(r"(0[xX])?([0-9a-fA-F']+)([uUlLzZ]*)", self.texts[position])
        if not number or self.isArraySize(position):
            return
        prefix, digits, suffix = number.groups()
        value = int(digits.replace("'", ""), 16 if prefix else 10)
        for other in (value + 1, value - 1):
            if other >= 0:
                yield f"{prefix}{other:X}{suffix}" if prefix else f"{other}{suffix}"

    def isArraySize(self, position):
        """@return whether it is the array size in a declaration: one more or less hardly ever shows."""
        if self.textAt(position - 1) != "[" or position < 3:
            return False
        word = self.tokens[position - 3]
        return word.lastgroup == "word" and word.group() not in NO_TYPE

    # ---- conditions

    def conditions(self, position):
        if self.textAt(position + 1) != "(":
            return
        last = self.closing(position + 1) - 1
        news = ["false"] if self.texts[position] == "while" else ["true", "false"]
        for new in news:
            if self.texts[position + 2 : last + 1] != [new]:
                yield self.change(position + 2, last, new, "condition")

    def closing(self, position):
        """@return the position of the bracket that closes the one at `position`, or the end."""
        opener = self.texts[position]
        depth = 0
        for place in range(position, len(self.texts)):
            depth += (self.texts[place] == opener) - (self.texts[place] == CLOSERS[opener])
            if depth == 0:
                return place
        return len(self.texts)

    # ---- statements

    def findCode(self):
        """@return for each token whether it is in a function's block, outside of round brackets."""
        scopes = [False]
        head = 0
        inside = []
        for position, text in enumerate(self.texts):
            inside.append(scopes[-1])
            if text == "{":
                words = self.texts[head:position]
                scopes.append("(" in words or not TYPE_SCOPES & set(words))
            elif text in "([":
                scopes.append(False)
            elif text in ")]}" and len(scopes) > 1:
                scopes.pop()
            if text in ";{}":
                head = position + 1
        return inside

    def startsStatement(self, position):
        if not self.inCode[position] or self.texts[position] in KEPT_STATEMENTS:
            return False
        previous = self.textAt(position - 1)
        return previous in (";", "{", "}") or (previous == ":" and self.isLabel(position - 1))

    def isLabel(self, position):
        while position > 0 and self.texts[position - 1] not in (";", "{", "}", "?"):
            position -= 1
            if self.texts[position] in ("case", "default"):
                return True
        return False

    def endOfStatement(self, position):
        """@return the position of its semicolon, or None if it has none."""
        while position < len(self.texts):
            text = self.texts[position]
            if text == ";":
                return position
            if text in (")", "]", "}"):
                return None
            position = self.closing(position) + 1 if text in CLOSERS else position + 1
        return None

    def deletions(self, first):
        last = self.endOfStatement(first)
        if last is None or last == first or self.returnsValue(first, last):
            return
        kind = "statement"
        statement = self.source[self.tokens[first].start() : self.tokens[last].end()]
        declaration = DECLARATION.match(statement)
        if declaration and declaration["type"] not in NO_TYPE:
            if self.isUsedAfter(declaration["name"], last):
                return
            kind = "lock" if "lock" in statement.lower() else "guard"
        yield self.change(first, last, ";", kind)

    def returnsValue(self, first, last):
        return self.texts[first] == "return" and last > first + 1

    def isUsedAfter(self, name, last):
        """@return whether the rest of the block uses a variable. If not, its lifetime is its effect."""
        depth = 0
        for text in self.texts[last + 1 :]:
            depth += (text == "{") - (text == "}")
            if depth < 0:
                return False
            if text == name:
                return True
        return False
