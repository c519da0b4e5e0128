"""The places of the libraries' sources that scripts/mutate changes, and how."""

import collections
import hashlib
import re


def swap(one, other):
    return lambda match: other if match.group() == one else one


def increment(match):
    return re.sub(r"[0-9A-Fa-f]+$", lambda digits: count_up(digits.group(), match.group()), match.group())


def count_up(digits, number):
    return f"{int(digits, 16) + 1:X}" if number.startswith("0x") else str(int(digits) + 1)


# (name, pattern, replacement): one change for each match. The patterns see code whose comments, literals and
# preprocessor lines are blanked out. What is no valid code afterwards is not counted.
KINDS = [
    ("comparison", r"(?<= )<=(?= )", "<"),
    ("comparison", r"(?<=[\w)\]] )<(?= )", "<="),
    ("comparison", r"(?<= )>=(?= )", ">"),
    ("comparison", r"(?<=[\w)\]] )>(?= )", ">="),
    ("comparison", r"(?<= )[!=]=(?= )", swap("==", "!=")),
    ("logic", r"(?<= )(?:&&|\|\|)(?= )", swap("&&", "||")),
    ("bits", r"(?<= )[&|](?= )", swap("&", "|")),
    ("sign", r"(?<= )[+-](?= )", swap("+", "-")),
    ("sign", r"(?<= )[+-]=(?= )", swap("+=", "-=")),
    ("sign", r"(?<=[(,?:=] )-(?=[A-Za-z])", ""),
    ("truth", r"\b(?:true|false)\b", swap("true", "false")),
    ("negation", r"(?<=[( ])!(?=[\w(])", ""),
    ("constant", r"(?<![\w.'\[])(?:0x[0-9A-Fa-f]+|\d+)(?![\w.'\]])(?! *>)", increment),
    ("range", r"\bstd::(?:min|max)\b(?=\()", swap("std::min", "std::max")),
    ("range", r"\b(?:front|back)\b(?=\(\))", swap("front", "back")),
    ("range", r"\b(?:begin|end)\b(?=\(\))", swap("begin", "end")),
    ("range", r"\bfind_(?:first|last)(?=_)", swap("find_first", "find_last")),
    ("range", r"\bremove_(?:prefix|suffix)\b", swap("remove_prefix", "remove_suffix")),
    ("range", r"\b(?:starts|ends)_with\b", swap("starts_with", "ends_with")),
    ("statement", r"(?m)^ +[\w:.>-]+\([^;{}]*\);$", " ;"),
    ("statement", r"(?m)^ +[\w.>\[\]-]+ (?:[+|&-]?=) [^;{}]*;$", " ;"),
    ("early end", r"(?m)^ +(?:return\b[^;{}]*|break|continue);$(?=\n +\}\n)", " ;"),
]

# Lines whose changes make no difference to what a program does: they only choose how much room is set aside, or are
# evaluated by the compiler.
LEFT_OUT = re.compile(r"\breserve\(|\bstatic_assert\b|\btemplate\b|\bnoexcept\(|\balignas\(|\[\[")

CODE_TO_BLANK_OUT = re.compile(
    r'//[^\n]*|/\*.*?\*/|R"\(.*?\)"|"(?:\\.|[^"\\\n])*"|(?<!\w)\'(?:\\.|[^\'\\\n])+\'|(?m:^#[^\n]*)', re.S)


def blank_out(text):
    """The text with comments, literals and preprocessor lines replaced by NULs, as long as before."""
    return CODE_TO_BLANK_OUT.sub(lambda match: re.sub(r"[^\n]", "\x00", match.group()), text)


def join_lines(code):
    return " ".join(re.sub(r" // .*| ///.*", "", code).split())


class Change:
    """One place of a source and what stands there instead."""

    def __init__(self, path, kind, text, span, replacement):
        self.path, self.kind, self.text = path, kind, text
        start, end = span
        self.changed_text = text[:start] + replacement + text[end:]
        first, last = text.rfind("\n", 0, start) + 1, text.find("\n", end)
        before, after = join_lines(text[first:last]), join_lines(text[first:start] + replacement + text[end:last])
        # Named by what stands there, since lines move.
        self.key = f"{path}: {before} => {after}"


def list_changes(path, text):
    code = blank_out(text)
    changes, seen = [], collections.Counter()
    for kind, pattern, replacement in KINDS:
        for match in re.finditer(pattern, code):
            line = code[code.rfind("\n", 0, match.start()) + 1 : code.find("\n", match.end())]
            if LEFT_OUT.search(line):
                continue
            new = replacement(match) if callable(replacement) else replacement
            change = Change(path, kind, text, match.span(), new)
            seen[change.key] += 1
            if seen[change.key] > 1:
                change.key += f" ({seen[change.key]})"
            changes.append(change)
    return changes


def choose_changes(sources, count, seed):
    """`count` changes, from each source in proportion to its places. A change of one source leaves the choice of places
    in the others nearly as it was."""
    ranked = []
    for path, text in sources:
        changes = list_changes(path, text)
        changes.sort(key=lambda change: hash_text(f"{seed} {change.key}"))
        offset = hash_text(f"{seed} {path}") / 2**64
        ranked.extend(((number + offset) / len(changes), change.key, change) for number, change in enumerate(changes))
    ranked.sort(key=lambda row: row[:2])
    return [change for _, _, change in ranked[:count]]


def hash_text(text):
    return int.from_bytes(hashlib.sha256(text.encode()).digest()[:8], "big")
