"""The rules by which one small fault is put into a source file. A rule yields (operator, detail, line, edits)."""

from dataclasses import dataclass, field

# How likely an operator is to be drawn for a file that offers it.
WEIGHTS = {
    "boundary": 4, "equality": 4, "logic": 4, "arithmetic": 3, "constant": 4, "truth": 2, "negation": 3, "condition": 3,
    "choice": 2, "call": 6, "assignment": 4, "return": 4, "jump": 2, "extreme": 2, "swap": 1, "lock": 1,
}  # fmt: skip

_BINARY = {
    "<": ("boundary", "<="), "<=": ("boundary", "<"), ">": ("boundary", ">="), ">=": ("boundary", ">"),
    "==": ("equality", "!="), "!=": ("equality", "=="), "&&": ("logic", "||"), "||": ("logic", "&&"),
    "+": ("arithmetic", "-"), "-": ("arithmetic", "+"), "/": ("arithmetic", "*"), "%": ("arithmetic", "/"),
    "|": ("arithmetic", "&"), "&": ("arithmetic", "|"), "+=": ("arithmetic", "-="), "-=": ("arithmetic", "+="),
}  # fmt: skip
_JUDGING = ("==", "!=", "&&", "||", "<", ">=")
_WORDS = {
    "true": ("truth", "false"), "false": ("truth", "true"), "TRUE": ("truth", "FALSE"), "FALSE": ("truth", "TRUE"),
    "max": ("extreme", "min"), "min": ("extreme", "max"),
    "fetch_add": ("arithmetic", "fetch_sub"), "fetch_sub": ("arithmetic", "fetch_add"),
}  # fmt: skip


@dataclass
class Mutation:
    path: str
    operator: str
    detail: str
    line: int
    text: str  # the line's text, blanks normalised: the part of the identity that survives an edit elsewhere
    edits: list = field(default_factory=list)  # (start, end, replacement), ascending

    @property
    def identity(self):
        return f"{self.path} :: {self.operator} :: {self.detail} :: {self.text}"

    @property
    def place(self):
        return f"{self.path}:{self.line}"

    def apply(self, text):
        for start, end, replacement in reversed(self.edits):
            text = text[:start] + replacement + text[end:]
        return text


def mutations_of(source):
    """Every mutation that the rules know for this file, each with an identity of its own."""
    seen = {}
    for rule in (_tokens, _conditions, _statements, _returns, _swaps, _locks):
        for operator, detail, line, edits in rule(source):
            mutation = Mutation(source.path, operator, detail, line, source.line_text(line), edits)
            count = seen[mutation.identity] = seen.get(mutation.identity, 0) + 1
            if count > 1:
                mutation.detail += f" (no. {count})"
            yield mutation


def _tokens(source):
    for i, token in enumerate(source.tokens):
        if not token.scope:
            continue
        found = None
        if token.kind == "operator" and token.scope == "code" and token.text in _BINARY and source.is_spaced(i):
            found = _BINARY[token.text]
        elif token.kind == "word" and token.text in _WORDS and not _is_idle_start(source, i):
            found = _WORDS[token.text]
        elif token.text in ("++", "--") and token.scope == "code":
            found = ("arithmetic", "--" if token.text == "++" else "++")
        elif token.text == "!" and token.scope == "code":
            found = ("negation", "")
        if found:
            yield found[0], f"{token.text} becomes {found[1] or 'nothing'}", token.line, [
                (token.start, token.end, found[1])
            ]
        if token.kind == "number" and source.tokens[i - 1].text != "case" and not _is_idle_start(source, i):
            yield from _numbers(token)


def _numbers(token):
    digits = token.text.rstrip("uUlL")
    suffix = token.text[len(digits) :]
    value = int(digits.replace("'", ""), 16 if digits[:2] in ("0x", "0X") else 10)
    for other in (value + 1, value - 1) if value else (1,):
        text = (hex(other) if digits[:2] in ("0x", "0X") else str(other)) + suffix
        yield "constant", f"{token.text} becomes {text}", token.line, [(token.start, token.end, text)]


def _is_idle_start(source, index):
    """The start value of a local variable, all by itself: mostly an output that a call fills, or overwritten."""
    tokens = source.tokens
    return (
        tokens[index].scope == "code"
        and tokens[index - 1].text == "="
        and tokens[index + 1].text == ";"
        and tokens[index].parens == 0
        and tokens[index - 3].text not in (".", "->", ";", "{", "}", ")")
    )


def _conditions(source):
    for i, token in enumerate(source.tokens):
        if token.scope != "code" or token.text != "if" or source.tokens[i + 1].text != "(":
            continue
        close = source.closing(i + 1)
        inner = (source.tokens[i + 1].end, source.tokens[close].start)
        if any(t.text in (";", "=") for t in source.tokens[i + 2 : close]):
            continue
        condition = source.text[slice(*inner)]
        yield "negation", "the condition is negated", token.line, [(*inner, f"!({condition})")]
        for value, tail in (("false", "&& false"), ("true", "|| true")):
            yield "condition", f"the condition is always {value}", token.line, [(*inner, f"({condition}) {tail}")]


def _statements(source):
    words = {"call": "call", "assignment": "assignment", "step": "assignment", "jump": "jump"}
    for statement in source.statements:
        if statement.kind in words:
            first, last = source.tokens[statement.first], source.tokens[statement.last]
            yield words[statement.kind], "the statement is left out", first.line, [(first.start, last.start, "")]


def _returns(source):
    for statement in source.statements:
        if statement.kind != "return" or statement.last == statement.first + 1:
            continue
        first, value = source.tokens[statement.first], source.tokens[statement.first + 1]
        text = source.text[value.start : source.tokens[statement.last].start]
        if text in ("true", "false"):
            continue  # a truth of its own
        name = value.text
        fork = _fork_of(source, statement)
        if fork:
            condition = (value.start, fork.start)
            negated = f"!({source.text[slice(*condition)].strip()}) "
            yield "choice", "the condition is negated", first.line, [(*condition, negated)]
        is_result = name in ("hr", "S_OK") or name.startswith(("E_", "MF_E_", "CLASS_E_", "RvTraceResult"))
        is_result = is_result or (source.tokens[statement.first + 2].text == "->" and not fork)
        if is_result:
            others = ["E_FAIL"] if name == "S_OK" else ["S_OK"]
        elif any(t.text in _JUDGING for t in source.tokens[statement.first : statement.last]):
            others = ["true", "false"] if "?" not in text else []
        else:
            others = []
        for other in others:
            yield "return", f"returns {other}", first.line, [
                (value.start, source.tokens[statement.last].start, other)
            ]


def _fork_of(source, statement):
    """The question mark on which a returned value depends as a whole."""
    depth = 0
    for token in source.tokens[statement.first : statement.last]:
        depth += (token.text in "([{") - (token.text in ")]}")
        if depth == 0 and token.text == "?":
            return token
    return None


def _swaps(source):
    simple = [s for s in source.statements if s.kind in ("call", "assignment", "step", "lock")]
    for a, b in zip(simple, simple[1:]):
        first, second = source.tokens[a.first], source.tokens[b.first]
        if b.first != a.last + 1 or first.block != second.block or "lock" in (a.kind, b.kind):
            continue
        one = source.text[first.start : source.tokens[a.last].end]
        two = source.text[second.start : source.tokens[b.last].end]
        if one == two or _are_independent(source, a, b):
            continue
        yield "swap", "changes places with the next statement", first.line, [
            (first.start, source.tokens[a.last].end, two),
            (second.start, source.tokens[b.last].end, one),
        ]


def _are_independent(source, a, b):
    """Two plain stores into different places: nobody can tell their order."""
    def stores_plainly(statement):
        tokens = source.tokens[statement.first : statement.last]
        return statement.kind == "assignment" and all(t.text != "(" for t in tokens)

    def target(statement):
        words = [t.text for t in source.tokens[statement.first : statement.last]]
        return words[: words.index("=")] if "=" in words else words

    if not (stores_plainly(a) and stores_plainly(b)):
        return False
    words_a = {t.text for t in source.tokens[a.first : a.last] if t.kind == "word"}
    words_b = {t.text for t in source.tokens[b.first : b.last] if t.kind == "word"}
    return target(a)[-1] not in words_b and target(b)[-1] not in words_a


def _locks(source):
    for statement in source.statements:
        if statement.kind != "lock":
            continue
        tokens = source.tokens
        first = tokens[statement.first]
        name = tokens[statement.first + (2 if first.text == "const" else 1)].text
        edits = [(first.start, tokens[statement.last].end, "")]
        for other in source.statements:
            if other.first > statement.first and other.kind == "call":
                a = tokens[other.first]
                words = [t.text for t in tokens[other.first : other.first + 3]]
                if a.block >= first.block and words == [name, ".", "Unlock"]:
                    edits.append((a.start, tokens[other.last].end, ""))
                    if a.block == first.block:
                        break
        yield "lock", "the lock is not taken", first.line, edits
