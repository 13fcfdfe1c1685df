"""Finds the places of a source file at which a small change can be made, in clang's syntax tree."""

import dataclasses
import hashlib
import re

from clang.cindex import CursorKind as Kind
from clang.cindex import Index, TranslationUnit, TypeKind

COMPARISONS = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}
ARITHMETIC = {"+": "-", "-": "+", "*": "/", "/": "*", "%": "*", "&": "|", "|": "&", "^": "&", "<<": ">>", ">>": "<<"}
LOGICAL = {"&&": "||", "||": "&&"}
ASSIGNMENTS = {"+=": "-=", "-=": "+=", "*=": "/=", "/=": "*=", "|=": "&=", "&=": "|=", "<<=": ">>=", ">>=": "<<="}

FUNCTIONS = {
    Kind.FUNCTION_DECL,
    Kind.CXX_METHOD,
    Kind.CONSTRUCTOR,
    Kind.DESTRUCTOR,
    Kind.CONVERSION_FUNCTION,
    Kind.FUNCTION_TEMPLATE,
}
BLOCKS = {Kind.COMPOUND_STMT, Kind.CASE_STMT, Kind.DEFAULT_STMT}
NUMBERS = {
    TypeKind.BOOL, TypeKind.CHAR_S, TypeKind.SCHAR, TypeKind.UCHAR, TypeKind.SHORT, TypeKind.USHORT,
    TypeKind.INT, TypeKind.UINT, TypeKind.LONG, TypeKind.ULONG, TypeKind.LONGLONG, TypeKind.ULONGLONG,
    TypeKind.FLOAT, TypeKind.DOUBLE, TypeKind.LONGDOUBLE, TypeKind.DEPENDENT,
}  # fmt: skip
# Of which nothing is changed by the order of what they are given.
SYMMETRIC = {b"std::max", b"std::min", b"qMax", b"qMin"}
# Macros at the beginning of a statement that can be left out as a whole.
LEAVABLE = {"qWarning", "qDebug", "qInfo", "qCritical", "Q_EMIT"}
TRIVIAL_RETURN = re.compile(r"^(\{\}|false|0|nullptr|std::nullopt|[A-Z]\w*(\(\)|\{\}))$")
ORDER = re.compile(r"\bstd::memory_order_(release|acquire|acq_rel|seq_cst)\b")


@dataclasses.dataclass
class Place:
    """One small change. start and end are bytes of the file; text is what stands there instead of them."""

    kind: str  # what sort of change, for the table
    form: str  # how it is written: instead (another expression), negated, or before (a prefix)
    start: int
    end: int
    text: str
    line: int
    function: str
    shape: str  # a digest of the text of the function
    before: str = ""  # form before: what is put in front of the statement, with {n} for the condition
    prefix_at: int = 0
    file: str = ""
    change: str = ""
    occurrence: int = 1
    id: str = ""
    number: int = 0


def without_comments(text):
    """One line, so that a change does not move what is below it. None if that is not possible."""
    pieces = re.split(r'("(?:\\.|[^"\\])*"|\'(?:\\.|[^\'\\])*\')', text)
    for i in range(0, len(pieces), 2):
        pieces[i] = re.sub(r"//[^\n]*|/\*.*?\*/", " ", pieces[i], flags=re.S)
        if re.search(r"^\s*#", pieces[i], flags=re.M):
            return None
        pieces[i] = re.sub(r"\s+", " ", pieces[i])
    return "".join(pieces).strip()


class Finder:
    """The places of one file of a translation unit."""

    def __init__(self, path, source):
        self.path = path
        self.source = source
        self.places = []
        self.macros = []  # (start, end, name)
        self.function = ""
        self.shape = ""
        self.result = None

    def run(self, own):
        """@p own are the declarations and macros of the file."""
        for cursor in own:
            if cursor.kind == Kind.MACRO_INSTANTIATION:
                self.macros.append((cursor.extent.start.offset, cursor.extent.end.offset, cursor.spelling))
        for cursor in own:
            if not cursor.kind.is_preprocessing():
                self._outside(cursor, "")
        return self.places

    def _text(self, start, end):
        return self.source[start:end].decode()

    def _span(self, cursor):
        return cursor.extent.start.offset, cursor.extent.end.offset

    def _macro_around(self, start, end):
        """Whether the bytes are part of what a macro is given, and so may not be rewritten."""
        return any(a <= start and end <= b for a, b, _ in self.macros)

    # Declarations.

    def _outside(self, cursor, scope):
        if cursor.kind in FUNCTIONS:
            self._function(cursor, scope)
            return
        if cursor.kind in (Kind.NAMESPACE, Kind.CLASS_DECL, Kind.STRUCT_DECL, Kind.CLASS_TEMPLATE,
                           Kind.CLASS_TEMPLATE_PARTIAL_SPECIALIZATION, Kind.LINKAGE_SPEC, Kind.UNEXPOSED_DECL):  # fmt: skip
            name = f"{scope}{cursor.spelling}::" if cursor.spelling else scope
            for child in cursor.get_children():
                self._outside(child, name)

    def _function(self, cursor, scope):
        if not cursor.is_definition():
            return
        start, end = self._span(cursor)
        children = list(cursor.get_children())
        body = next((c for c in children if c.kind == Kind.COMPOUND_STMT), None)
        if body is None or "constexpr" in self._text(start, body.extent.start.offset).split():
            return
        owner = cursor.semantic_parent
        if owner is not None and owner.spelling and owner.kind not in (Kind.NAMESPACE, Kind.TRANSLATION_UNIT):
            name = f"{owner.spelling}::{cursor.spelling}"
        else:
            name = cursor.spelling
        self.function = name
        self.shape = hashlib.sha1((without_comments(self._text(start, end)) or "").encode()).hexdigest()[:8]
        self.result = cursor.result_type if cursor.kind not in (Kind.CONSTRUCTOR, Kind.DESTRUCTOR) else None
        for child in children:
            if child.kind == Kind.COMPOUND_STMT or (
                cursor.kind == Kind.CONSTRUCTOR and child.kind.is_expression()
            ):
                self._inside(child, cursor)

    # Statements and expressions.

    def _inside(self, cursor, parent):
        kind = cursor.kind
        if kind in (Kind.STATIC_ASSERT, Kind.TYPE_REF, Kind.TEMPLATE_REF, Kind.NAMESPACE_REF):
            return
        if kind in (Kind.CLASS_DECL, Kind.STRUCT_DECL, Kind.ENUM_DECL, Kind.CXX_UNARY_EXPR):
            return
        start, end = self._span(cursor)
        if kind == Kind.VAR_DECL:
            words = self._text(start, max(start, end)).split("=")[0].split("{")[0].split()
            if "constexpr" in words or "static" in words:
                return
        if kind == Kind.IF_STMT and re.match(rb"if\s+constexpr", self.source[start:]):
            for child in list(cursor.get_children())[1:]:
                self._inside(child, cursor)
            return
        self._statement(cursor, parent)
        self._condition(cursor)
        self._expression(cursor, parent, start, end)
        children = list(cursor.get_children())
        if kind == Kind.CASE_STMT:
            children = children[1:]
        elif kind == Kind.LAMBDA_EXPR:
            result, self.result = self.result, None
            for child in children:
                if child.kind == Kind.COMPOUND_STMT:
                    self._inside(child, cursor)
            self.result = result
            return
        for child in children:
            self._inside(child, cursor)

    def _add(self, kind, form, start, end, text, **more):
        if text is None or end <= start:
            return
        line = self.source.count(b"\n", 0, start) + 1
        self.places.append(
            Place(kind, form, start, end, text, line, self.function, self.shape, file=self.path, **more)
        )

    def _instead(self, kind, start, end, text):
        if not self._macro_around(start, end):
            self._add(kind, "instead", start, end, text)

    # What stands as a statement of its own in a block.
    def _statement(self, cursor, parent):
        if parent.kind not in BLOCKS:
            return
        start, end = self._span(cursor)
        if self._macro_around(start, start + 1):
            if not any(a == start and name in LEAVABLE for a, _, name in self.macros):
                return
            kind = cursor.kind if cursor.kind == Kind.RETURN_STMT else Kind.CALL_EXPR
        else:
            kind = cursor.kind
        semicolon = self.source.find(b";", end)
        if kind == Kind.RETURN_STMT:
            self._return(cursor, start, end)
        elif kind in (Kind.CALL_EXPR, Kind.UNEXPOSED_EXPR, Kind.CXX_DELETE_EXPR) and semicolon >= 0:
            if self.source[end:semicolon].strip():
                return
            text = self._text(start, end)
            is_assignment = re.match(r"^[\w.\->\[\]()*]+ = ", text) is not None
            is_fence = "atomic_thread_fence" in text
            sort = "fence" if is_fence else "assignment" if is_assignment else "call"
            self._before(sort, start, semicolon + 1, "if (!tesselMutant({n})) ", ";")
        elif kind in (Kind.BINARY_OPERATOR, Kind.COMPOUND_ASSIGNMENT_OPERATOR, Kind.UNARY_OPERATOR):
            if semicolon >= 0 and not self.source[end:semicolon].strip():
                self._before("assignment", start, semicolon + 1, "if (!tesselMutant({n})) ", ";")

    def _before(self, kind, start, end, before, text):
        self._add(kind, "before", start, end, text, before=before, prefix_at=start)

    def _return(self, cursor, start, end):
        children = list(cursor.get_children())
        semicolon = self.source.find(b";", end)
        if self.result is None or semicolon < 0 or self.source[end:semicolon].strip():
            return
        if not children:
            self._before("return", start, semicolon + 1, "if (!tesselMutant({n})) ", ";")
            return
        value = children[0]
        a, b = self._span(value)
        result = self.result.get_canonical()
        if self._macro_around(a, a + 1) and not self._macro_covers(a, b):
            return
        text = self._text(a, b).strip()
        if result.kind == TypeKind.BOOL:
            is_compared = value.kind == Kind.BINARY_OPERATOR and self._operator(value)[2] in COMPARISONS
            is_constant = value.kind == Kind.CXX_BOOL_LITERAL_EXPR
            if not is_compared and not is_constant and not self._macro_around(a, b):
                self._add("return", "negated", a, b, f"!({without_comments(text)})")
        elif result.kind in (TypeKind.LVALUEREFERENCE, TypeKind.RVALUEREFERENCE, TypeKind.VOID, TypeKind.AUTO,
                             TypeKind.ENUM, TypeKind.DEPENDENT, TypeKind.UNEXPOSED):  # fmt: skip
            return
        elif not TRIVIAL_RETURN.match(text):
            self._before("return", start, semicolon + 1, "if (tesselMutant({n})) { return {}; } ", "return {};")

    def _macro_covers(self, start, end):
        return any(a == start and b >= end for a, b, _ in self.macros)

    def _condition(self, cursor):
        children = list(cursor.get_children())
        if cursor.kind in (Kind.IF_STMT, Kind.WHILE_STMT):
            if any(child.kind == Kind.VAR_DECL for child in children):
                return
            condition = next((c for c in children if c.kind.is_expression()), None)
        elif cursor.kind == Kind.DO_STMT:
            condition = children[-1] if children and children[-1].kind.is_expression() else None
        elif cursor.kind == Kind.CONDITIONAL_OPERATOR:
            condition = children[0]
        else:
            return
        if condition is None:
            return
        start, end = self._span(condition)
        if self._macro_around(start, end):
            return
        inner = self._bare(condition)
        if inner.kind == Kind.BINARY_OPERATOR and self._operator(inner)[2] in COMPARISONS:
            return  # which is changed as a comparison
        if inner.kind == Kind.CXX_BOOL_LITERAL_EXPR:
            return  # which is changed as a constant
        self._add("condition", "negated", start, end, f"!({without_comments(self._text(start, end))})")

    def _bare(self, cursor):
        while cursor.kind in (Kind.UNEXPOSED_EXPR, Kind.PAREN_EXPR):
            children = list(cursor.get_children())
            if len(children) != 1 or self._span(children[0]) != self._span(cursor):
                break
            cursor = children[0]
        return cursor

    def _operator(self, cursor):
        """The operator of two operands: where it is, and its text."""
        children = list(cursor.get_children())
        if len(children) != 2:
            return 0, 0, ""
        return self._between(children[0].extent.end.offset, children[1].extent.start.offset)

    def _between(self, start, end):
        text = self._text(start, end)
        found = re.search(r"[^\s\w()]+", re.sub(r"//[^\n]*", lambda m: " " * len(m.group()), text))
        if found is None:
            return 0, 0, ""
        return start + found.start(), start + found.end(), found.group()

    def _with_operator(self, kind, start, end, operator, table):
        a, b, text = operator
        if text in table and start < a < b < end:
            left, right = without_comments(self._text(start, a)), without_comments(self._text(b, end))
            if left is not None and right is not None:
                self._instead(kind, start, end, f"{left} {table[text]} {right}")

    def _expression(self, cursor, parent, start, end):
        kind = cursor.kind
        if kind == Kind.BINARY_OPERATOR:
            operator = self._operator(cursor)
            self._with_operator("comparison", start, end, operator, COMPARISONS)
            self._with_operator("logic", start, end, operator, LOGICAL)
            if all(part.type.get_canonical().kind in NUMBERS for part in [cursor, *cursor.get_children()]):
                self._with_operator("arithmetic", start, end, operator, ARITHMETIC)
        elif kind == Kind.COMPOUND_ASSIGNMENT_OPERATOR:
            if cursor.type.get_canonical().kind in NUMBERS:
                self._with_operator("arithmetic", start, end, self._operator(cursor), ASSIGNMENTS)
        elif kind == Kind.CALL_EXPR:
            self._call(cursor, start, end)
        elif kind == Kind.UNARY_OPERATOR and self.source[start : start + 1] == b"-":
            text = without_comments(self._text(start + 1, end))
            if cursor.type.get_canonical().kind in NUMBERS and not text.startswith("-"):
                self._instead("arithmetic", start, end, text)
        else:
            self._literal(cursor, parent, start, end)

    def _call(self, cursor, start, end):
        arguments = list(cursor.get_arguments())
        target = cursor.referenced
        if cursor.spelling in ("operator==", "operator!=", "operator<", "operator>", "operator<=", "operator>="):
            if len(arguments) == 2:
                operator = self._between(arguments[0].extent.end.offset, arguments[1].extent.start.offset)
                self._with_operator("comparison", start, end, operator, COMPARISONS)
            return
        if cursor.spelling.startswith("operator") or (target is not None and target.kind == Kind.CONSTRUCTOR):
            return
        spans = [self._span(argument) for argument in arguments]
        spans = [span for span in spans if start < span[0] < span[1] <= end]
        if not self.source[:end].endswith(b")") or any(a[1] > b[0] for a, b in zip(spans, spans[1:])):
            return
        if len(spans) == len(arguments):
            for i in range(len(arguments) - 1):
                self._swapped(start, end, arguments[i : i + 2], spans[i : i + 2])
        for a, b in spans:
            found = ORDER.fullmatch(self._text(a, b).strip())
            if found:
                self._pieced("order", start, end, [(a, b, "std::memory_order_relaxed")])

    def _swapped(self, start, end, pair, spans):
        kinds = [re.sub(r"\bconst\b|&|\s", "", a.type.get_canonical().spelling) for a in pair]
        texts = [without_comments(self._text(*span)) for span in spans]
        if self.source[start:end].split(b"(")[0] in SYMMETRIC:
            return
        if kinds[0] != kinds[1] or "dependent" in kinds[0] or None in texts or texts[0] == texts[1]:
            return
        self._pieced("swap", start, end, [(*spans[0], texts[1]), (*spans[1], texts[0])])

    def _pieced(self, kind, start, end, pieces):
        text, at = "", start
        for a, b, instead in pieces:
            text += self._text(at, a) + instead
            at = b
        self._instead(kind, start, end, without_comments(text + self._text(at, end)))

    def _literal(self, cursor, parent, start, end):
        text = self._text(start, end)
        if cursor.kind == Kind.INTEGER_LITERAL and re.match(r"^\d", text):
            is_nothing = int(re.sub(r"[uUlL']+$", "", text).replace("'", ""), 0) == 0 if not text[-1:] in "_" else False
            self._instead("constant", start, end, "1" if is_nothing else f"{text} + 1")
            if not is_nothing and text != "1":
                self._instead("constant", start, end, "0")
        elif cursor.kind == Kind.FLOATING_LITERAL and re.match(r"^[\d.]", text):
            self._instead("constant", start, end, f"{text} + 1")
        elif cursor.kind == Kind.CXX_BOOL_LITERAL_EXPR and text in ("true", "false"):
            self._instead("constant", start, end, "false" if text == "true" else "true")
        elif cursor.kind == Kind.CHARACTER_LITERAL and text.startswith("'"):
            self._instead("constant", start, end, f"static_cast<char>({text} + 1)")
        elif cursor.kind == Kind.STRING_LITERAL:
            self._string(parent, start, end, text)

    def _string(self, parent, start, end, text):
        if text.startswith('"') and not (parent.kind == Kind.VAR_DECL or parent.kind == Kind.INIT_LIST_EXPR):
            self._instead("constant", start, end, '"x"' if text == '""' else '""')
            return
        # QStringLiteral wants a literal and nothing else: another one stands beside it.
        for a, b, name in self.macros:
            if name == "QStringLiteral" and a <= start < b:
                outer = [m for m in self.macros if m[0] <= a and b <= m[1] and m != (a, b, name)]
                known = any(p.start == a and p.kind == "constant" for p in self.places)
                if not outer and not known and b > a:
                    self._add("constant", "instead", a, b, "QString()")


def find_places(path, arguments, wanted):
    """The places of the files @p wanted (absolute paths) that the translation unit @p path holds.

    A tuple of them by file and of what the compiler did not understand.
    """
    options = TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD
    unit = Index.create().parse(path, args=arguments, options=options)
    faults = [str(d) for d in unit.diagnostics if d.severity >= 3]
    included = {path} | {str(i.include) for i in unit.get_includes()}
    own = {name: [] for name in wanted & included}
    for cursor in unit.cursor.get_children():
        file = cursor.location.file
        if file is not None and file.name in own:
            own[file.name].append(cursor)
    found = {}
    for name in sorted(own):
        with open(name, "rb") as file:
            source = file.read()
        if b'R"' not in source:
            found[name] = Finder(name, source).run(own[name])
    return found, faults


def identify(places, root, sources):
    """Gives each of the places what it is known by: a digest of where it stands and what it changes."""
    seen = {}
    for place in places:
        source = sources[place.file]
        old = without_comments(source[place.start : place.end].decode()) or ""
        place.change = f"{old} -> {place.text}"
        place.file = place.file[len(root) + 1 :]
        key = (place.file, place.function, place.change)
        seen[key] = place.occurrence = seen.get(key, 0) + 1
        text = "\0".join([*key, str(place.occurrence)])
        place.id = hashlib.sha1(text.encode()).hexdigest()[:12]
