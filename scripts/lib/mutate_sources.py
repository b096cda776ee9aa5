"""Reads a C++ file into tokens and tells which of them stand in code that runs."""

import re
from dataclasses import dataclass

_TOKEN = re.compile(
    r"""(?P<comment>//[^\n]*|/\*.*?\*/)
      | (?P<directive>^[ \t]*\#(?:\\\n|[^\n])*)
      | (?P<string>(?:u8|[uUL])?"(?:\\.|[^"\\\n])*")
      | (?P<number>\b(?:0[xX][0-9A-Fa-f']+|[0-9][0-9']*)(?:[uUlL]+)?)
      | (?P<character>(?:u8|[uUL])?'(?:\\.|[^'\\\n])*')
      | (?P<word>[A-Za-z_]\w*)
      | (?P<operator><<=|>>=|<=>|<=|>=|==|!=|&&|\|\||->|::|\+\+|--|[-+*/%&|^]=|<<|>>|\S)""",
    re.VERBOSE | re.MULTILINE | re.DOTALL,
)

NOT_A_CALL = {
    "if", "for", "while", "switch", "return", "case", "default", "do", "else", "try", "catch", "break", "continue",
    "using", "static_assert", "template", "typename", "goto", "throw", "struct", "class", "enum", "constexpr", "static",
    "const", "auto", "namespace", "public", "private", "protected",
}  # fmt: skip


@dataclass
class Token:
    kind: str
    text: str
    start: int
    end: int
    line: int
    scope: str = ""  # "code" inside a function, "constant" in the initialiser of a declaration outside one
    block: int = 0  # the innermost braces that hold it, by the index of their opening
    parens: int = 0  # how deep in brackets and parentheses of its own block


@dataclass
class Statement:
    """One that ends with a semicolon and holds no block; `last` is the semicolon."""

    kind: str  # call, assignment, step, return, jump, lock, declaration
    first: int
    last: int


class Source:
    """The text of one file, its tokens without comments and directives, and its simple statements."""

    def __init__(self, path, text):
        self.path = path
        self.text = text
        self.lines = text.split("\n")
        self.tokens = []
        self._value_closings = set()
        line, seen = 1, 0
        for match in _TOKEN.finditer(text):
            line += text.count("\n", seen, match.start())
            seen = match.start()
            if match.lastgroup not in ("comment", "directive"):
                self.tokens.append(Token(match.lastgroup, match.group(), match.start(), match.end(), line))
        self._find_scopes()
        self._forget_assertions()
        self.statements = list(self._find_statements())

    def line_text(self, number):
        return " ".join(self.lines[number - 1].split())

    def is_spaced(self, index):
        """A binary operator has a blank or a line end on both sides; '<' of a template, or '*' of a type, has not."""
        token = self.tokens[index]
        return self.text[token.start - 1].isspace() and self.text[token.end].isspace()

    def closing(self, index):
        """The index of the bracket that closes the one at `index`."""
        depth = 0
        for i in range(index, len(self.tokens)):
            if self.tokens[i].text in ("(", "[", "{"):
                depth += 1
            elif self.tokens[i].text in (")", "]", "}"):
                depth -= 1
                if depth == 0:
                    return i
        return len(self.tokens) - 1

    def _find_scopes(self):
        scopes, parens, blocks = [], [0], [0]
        begin, after_equals = 0, False
        for i, token in enumerate(self.tokens):
            inside = scopes[-1] if scopes else "namespace"
            if inside == "code" and self._is_value_brace(i):
                parens[-1] += 1 if token.text == "{" else -1
            elif token.text == "{":
                kind = self._scope_opened(inside, self.tokens[begin:i], after_equals)
                if kind == "constant":
                    after_equals = True
                else:
                    begin, after_equals = i + 1, False
                scopes.append(kind)
                parens.append(0)
                blocks.append(i)
            elif token.text == "}" and scopes:
                scopes.pop()
                parens.pop()
                blocks.pop()
                if inside != "constant":
                    begin = i + 1
                inside = scopes[-1] if scopes else "namespace"
            elif token.text in ("(", "["):
                parens[-1] += 1
            elif token.text in (")", "]"):
                parens[-1] -= 1
            elif token.text == ";" and parens[-1] == 0:
                begin, after_equals = i + 1, False
            elif token.text == "=" and parens[-1] == 0:
                after_equals = True
            if inside == "code":
                token.scope = "code"
            elif inside == "constant" or (inside in ("namespace", "type") and after_equals):
                token.scope = "constant"
            token.block, token.parens = blocks[-1], parens[-1]

    def _is_value_brace(self, index):
        """True for the braces round a value, which are no block: T{1}, return {}."""
        if self.tokens[index].text == "}":
            return index in self._value_closings
        if self.tokens[index].text != "{" or index == 0:
            return False
        before = self.tokens[index - 1]
        is_value = before.text in ("=", "(", ",", ">", "{") or (
            before.kind == "word"
            and before.text not in ("else", "do", "try", "const", "noexcept", "override", "mutable")
        )
        if is_value and before.text != "{":
            self._value_closings.add(self.closing(index))
        elif before.text == "{":
            is_value = self.closing(index - 1) in self._value_closings
            if is_value:
                self._value_closings.add(self.closing(index))
        return is_value

    @staticmethod
    def _scope_opened(inside, before, after_equals):
        words = [t.text for t in before]
        if inside == "code":
            return "code"
        if inside == "constant" or after_equals:
            return "constant"
        if "consteval" in words or "detail" in words or inside == "compiling":
            return "compiling"  # what runs while the compiler does is not there to be mutated
        if "namespace" in words:
            return "namespace"
        if "enum" in words and "(" not in words:
            return "enum"
        if any(w in words for w in ("class", "struct", "union")) and ")" not in words:
            return "type"
        return "code" if ")" in words else "constant"

    def _forget_assertions(self):
        for i, token in enumerate(self.tokens):
            leave = token.text == "static_assert" or (token.text == "if" and self.tokens[i + 1].text == "constexpr")
            if leave:
                while self.tokens[i].text not in (";", "{"):
                    self.tokens[i].scope = ""
                    i += 1

    def _find_statements(self):
        first = 0
        for i, token in enumerate(self.tokens):
            if token.text in ("{", "}") and not self._is_value_brace(i):
                first = i + 1
            elif token.text == ":" and self.tokens[first].text in ("case", "default"):
                first = i + 1
            elif token.text == ";" and token.parens == 0:
                if token.scope == "code" and i > first:
                    kind = self._classify(self.tokens[first:i])
                    if kind:
                        yield Statement(kind, first, i)
                first = i + 1

    @staticmethod
    def _classify(tokens):
        words = [t.text for t in tokens]
        if words[0] == "return":
            return "return"
        if words in (["break"], ["continue"]):
            return "jump"
        if "ScopedLock" in words[:2]:
            return "lock"
        if words[0] in ("++", "--"):
            return "step"
        if words[0] in (")", "]", ","):
            return ""  # the end of a statement that holds a block, such as a lambda's
        if words[0] in NOT_A_CALL:
            return "declaration" if words[0] in ("const", "constexpr", "static", "auto") else ""
        depth = 0
        for i, token in enumerate(tokens):
            if token.text in ("(", "["):
                depth += 1
            elif token.text in (")", "]"):
                depth -= 1
            elif depth == 0:
                if token.text in ("=", "+=", "-=", "*=", "/=", "|=", "&="):
                    return "assignment"
                previous = tokens[i - 1] if i else None
                if token.kind == "word" and previous and (previous.kind == "word" or previous.text in "*&>"):
                    return "declaration"
        if words[-1] in ("++", "--"):
            return "step"
        return "call" if words[-1] == ")" else ""
