"""The small changes that can be made to a source file: where each is, and what the text is then.

libclang says where operators, conditions, statements and calls begin and end; what is written there comes from the
file's own tokens, so a change never begins or ends inside a macro's text.
"""
import hashlib
from collections import Counter
from dataclasses import dataclass

from clang.cindex import CursorKind as Kind
from clang.cindex import Index, TokenKind, TypeKind

# Of changes that the same tests would find, the one that is found less easily: a limit moved rather than the comparison
# inverted, an operand left out rather than "or" for "and", a decision always taken rather than inverted.
COMPARISONS = {"<": "<=", ">": ">=", "<=": "<", ">=": ">", "==": "!=", "!=": "=="}
ARITHMETIC = {"+": "-", "-": "+", "*": "/", "/": "*", "%": "*", "&": "|", "|": "&", "<<": ">>", ">>": "<<",
              "+=": "-=", "-=": "+=", "|=": "&=", "&=": "|=", "++": "--", "--": "++"}
FUNCTIONS = (Kind.FUNCTION_DECL, Kind.CXX_METHOD, Kind.CONSTRUCTOR, Kind.DESTRUCTOR, Kind.CONVERSION_FUNCTION,
             Kind.FUNCTION_TEMPLATE)
JUMPS = (Kind.RETURN_STMT, Kind.BREAK_STMT, Kind.CONTINUE_STMT, Kind.GOTO_STMT)
UNORDERED = JUMPS + (Kind.NULL_STMT, Kind.LABEL_STMT, Kind.CASE_STMT, Kind.DEFAULT_STMT)
NAMING = (Kind.DECL_REF_EXPR, Kind.MEMBER_REF_EXPR, Kind.VAR_DECL)
# Their text is read by the compiler alone, or says nothing about the program.
UNTOUCHED = (Kind.STATIC_ASSERT, Kind.TEMPLATE_NON_TYPE_PARAMETER, Kind.ALIGNED_ATTR, Kind.USING_DIRECTIVE,
             Kind.ENUM_DECL, Kind.TYPE_ALIAS_DECL)


@dataclass(frozen=True)
class Change:
    """One mutant. What was and what is are the lines that it touches, with single blanks."""
    file: str
    line: int
    function: str
    kind: str
    was: str
    is_now: str
    begin: int
    end: int
    text: str
    ordinal: int

    @property
    def key(self):
        """What stays while neither the lines nor the function's name change, whatever moves around them."""
        words = (self.file, self.function, self.kind, self.was, self.is_now, str(self.ordinal))
        return hashlib.sha256("\n".join(words).encode()).hexdigest()[:16]

    def applied_to(self, source):
        return source[:self.begin] + self.text + source[self.end:]


def blanks_to_one(text):
    return " ".join(text.split())


def written(cursors):
    """The names that are declared or assigned to there."""
    names = set()
    for cursor in cursors:
        if cursor.kind == Kind.VAR_DECL:
            names.add(cursor.spelling)
        elif cursor.kind in (Kind.BINARY_OPERATOR, Kind.COMPOUND_ASSIGNMENT_OPERATOR, Kind.UNARY_OPERATOR):
            target = next(cursor.get_children(), None)
            names |= {c.spelling for c in target.walk_preorder() if c.kind in NAMING} if target else set()
    return names


def is_local(cursor):
    kind = cursor.referenced.kind if cursor.referenced else None
    return cursor.kind == Kind.VAR_DECL or kind == Kind.PARM_DECL or kind == Kind.VAR_DECL and \
        cursor.referenced.semantic_parent.kind in FUNCTIONS or kind == Kind.ENUM_CONSTANT_DECL


class Finder:
    def __init__(self, root, file, arguments):
        self.file = file
        self.source = (root / file).read_text(encoding="latin-1") # libclang counts bytes
        self.unit = Index.create().parse(str(root / file), args=[*arguments, "-x", "c++"])
        errors = [d for d in self.unit.diagnostics if d.severity >= d.Error]
        if errors:
            raise RuntimeError(f"{file}: {errors[0]}")
        tokens = self.unit.get_tokens(extent=self.unit.cursor.extent)
        self.tokens = [(t.extent.start.offset, t.extent.end.offset, t.spelling, t.kind) for t in tokens
                       if t.kind != TokenKind.COMMENT]
        self.begins = {t[0]: i for i, t in enumerate(self.tokens)}
        self.ends = {t[1]: i for i, t in enumerate(self.tokens)}
        self.decided = set() # what an if decides on, and what stands behind an exclamation mark
        self.unused = set() # statements that are values
        self.found = {} # by place and text: the same change has one kind
        self.function = ""

    def changes(self):
        for cursor in self.unit.cursor.get_children():
            self.visit(cursor, False)
        seen = Counter()
        result = []
        for (begin, end, text), (kind, function) in sorted(self.found.items()):
            first = self.source.rfind("\n", 0, begin) + 1
            last = self.source.find("\n", max(begin, end - 1))
            was = blanks_to_one(self.source[first:last])
            is_now = blanks_to_one(self.source[first:begin] + text + self.source[end:last])
            if was == is_now:
                continue
            seen[kind, function, was, is_now] += 1
            result.append(Change(self.file, self.source.count("\n", 0, begin) + 1, function, kind, was, is_now,
                                 begin, end, text, seen[kind, function, was, is_now]))
        return result

    def add(self, kind, begin, end, text):
        self.found.setdefault((begin, end, text), (kind, self.function))

    def extent(self, cursor):
        """(begin, end) in this file, or None where that is not a row of whole tokens with paired parentheses."""
        begin, end = cursor.extent.start.offset, cursor.extent.end.offset
        if begin not in self.begins or end not in self.ends:
            return None
        depth = 0
        for token in self.tokens[self.begins[begin]:self.ends[end] + 1]:
            depth += (token[2] in "([{") - (token[2] in ")]}") if len(token[2]) == 1 else 0
            if depth < 0:
                return None
        return (begin, end) if depth == 0 and begin < end else None

    def text(self, extent):
        return self.source[extent[0]:extent[1]]

    def statement(self, cursor):
        """The extent with its semicolon."""
        extent = self.extent(cursor)
        if extent is None:
            return None
        after = self.ends[extent[1]] + 1
        ended = self.text(extent).endswith(("}", ";")) and not cursor.kind.is_expression()
        if after < len(self.tokens) and self.tokens[after][2] == ";" and not ended:
            return extent[0], self.tokens[after][1]
        return extent if self.text(extent).endswith(("}", ";")) else None

    def visit(self, cursor, inside):
        if cursor.location.file and cursor.location.file.name != self.unit.spelling:
            return
        if cursor.kind in UNTOUCHED or cursor.kind.is_attribute():
            return
        outer = self.function
        if cursor.kind in FUNCTIONS:
            parent = cursor.semantic_parent
            scope = parent.spelling + "::" if parent and parent.kind.is_declaration() and parent.kind in (
                Kind.CLASS_DECL, Kind.STRUCT_DECL, Kind.CLASS_TEMPLATE) else ""
            self.function = scope + cursor.spelling.split("<")[0]
            inside = True
        handler = self.HANDLERS.get(cursor.kind)
        if handler:
            handler(self, cursor)
        if inside and cursor.kind == Kind.CALL_EXPR and cursor.type.get_canonical().kind == TypeKind.BOOL:
            self.invert(cursor)
        for child in cursor.get_children():
            self.visit(child, inside)
        self.function = outer

    def operator(self, right):
        """The token that stands before the right operand."""
        at = self.begins.get(right.extent.start.offset, 0)
        return self.tokens[at - 1] if at else None

    def binary(self, cursor):
        operands = list(cursor.get_children())
        if len(operands) != 2:
            return
        token = self.operator(operands[1])
        if token is None:
            return
        begin, end, spelling, _ = token
        if spelling in COMPARISONS:
            self.compare(cursor, token)
        if spelling in ("&&", "||"):
            whole, left, right = (self.extent(c) for c in (cursor, *operands))
            if whole and left and right:
                self.add("condition", *whole, self.text(left))
                self.add("condition", *whole, self.text(right))
        if spelling in ARITHMETIC:
            self.add("arithmetic", begin, end, ARITHMETIC[spelling])

    def call(self, cursor):
        """An operator of a class is a call for the compiler."""
        parts = list(cursor.get_children())
        if cursor.spelling.startswith("operator") and len(parts) == 3:
            at = self.begins.get(parts[1].extent.start.offset)
            if at is not None:
                self.compare(cursor, self.tokens[at])

    def compare(self, cursor, token):
        begin, end, spelling, _ = token
        other = COMPARISONS.get(spelling)
        if other and (spelling not in ("==", "!=") or self.extent(cursor) not in self.decided):
            self.add("comparison", begin, end, other)

    def unary(self, cursor):
        extent = self.extent(cursor)
        if extent is None:
            return
        for begin, end, spelling, _ in (self.tokens[self.begins[extent[0]]], self.tokens[self.ends[extent[1]]]):
            if spelling == "!":
                self.decided.add((end, extent[1]))
                if extent not in self.decided:
                    self.add("inverted", begin, end, "")
            elif spelling in ("-", "~"):
                self.add("arithmetic", begin, end, "")
            elif spelling in ("++", "--"):
                self.add("arithmetic", begin, end, ARITHMETIC[spelling])

    def invert(self, cursor):
        extent = self.extent(cursor)
        if extent and extent not in self.decided | self.unused and self.text(extent) not in ("true", "false"):
            self.add("inverted", *extent, f"!({self.text(extent)})")

    def decision(self, cursor):
        """An if, a loop, or a choice between two values: always taken, or never."""
        condition = next((c for c in cursor.get_children() if c.kind.is_expression()), None)
        extent = condition and self.extent(condition)
        if not extent or self.text(extent) in ("true", "false"):
            return
        if cursor.kind != Kind.CONDITIONAL_OPERATOR and self.tokens[self.begins[extent[0]] - 1][2] not in ("(", ";"):
            return
        if cursor.kind in (Kind.IF_STMT, Kind.CONDITIONAL_OPERATOR):
            self.add("condition", *extent, "true")
            self.decided.add(extent)
        self.add("condition", *extent, "false")

    def number(self, cursor):
        at = self.begins.get(cursor.extent.start.offset)
        if at is None or self.tokens[at][3] != TokenKind.LITERAL:
            return
        begin, end, spelling, _ = self.tokens[at]
        digits = spelling.rstrip("uUlLzZ")
        suffix = spelling[len(digits):]
        octal = len(digits) > 1 and digits[0] == "0" and digits.isdigit()
        try:
            value = int(digits.replace("'", ""), 8 if octal else 0)
        except ValueError:
            return
        self.add("constant", begin, end, f"{value + 1}{suffix}")

    def truth(self, cursor):
        extent = self.extent(cursor)
        if extent and self.text(extent) in ("true", "false"):
            self.add("constant", *extent, "false" if self.text(extent) == "true" else "true")

    def character(self, cursor):
        extent = self.extent(cursor)
        if extent:
            self.add("constant", *extent, "'~'")

    def string(self, cursor):
        extent = self.extent(cursor)
        if extent is None:
            return
        for begin, end, spelling, kind in self.tokens[self.begins[extent[0]]:self.ends[extent[1]] + 1]:
            if kind == TokenKind.LITERAL and spelling.endswith('"'):
                self.add("constant", begin, end, spelling[:-1] + '~"')

    def result(self, cursor):
        value = next(iter(cursor.get_children()), None)
        extent = value and self.extent(value)
        if not extent:
            return
        kind = value.type.get_canonical().kind
        if kind == TypeKind.BOOL:
            self.invert(value)
        elif kind == TypeKind.POINTER and self.text(extent) != "nullptr":
            self.add("inverted", *extent, "nullptr")
        elif TypeKind.CHAR_U.value <= kind.value <= TypeKind.INT128.value and value.kind != Kind.INTEGER_LITERAL:
            self.add("inverted", *extent, f"({self.text(extent)}) + 1")

    def block(self, cursor):
        statements = [(s, self.statement(s)) for s in cursor.get_children()]
        for statement, _ in statements: # "(void)" before it leaves it unused as well, and the end of its temporaries
            while statement.kind in (Kind.CSTYLE_CAST_EXPR, Kind.UNEXPOSED_EXPR):
                statement = list(statement.get_children())[-1]
            self.unused.add(self.extent(statement))
        for statement, extent in statements:
            if extent and self.can_go(statement):
                self.add("left out", *extent, ";")
        for (first, one), (second, two) in zip(statements, statements[1:]):
            declarations = [first.kind, second.kind].count(Kind.DECL_STMT)
            if one and two and one[1] <= two[0] and declarations < 2 and first.kind not in UNORDERED and second.kind not in UNORDERED \
                    and not self.declares_for(first, two) \
                    and not self.moves_freely(first, second) and not self.moves_freely(second, first):
                between = self.source[one[1]:two[0]]
                if "//" not in between and "#" not in between: # neither a comment nor a directive may move
                    self.add("order", one[0], two[1], self.text(two) + between + self.text(one))

    def can_go(self, statement):
        if statement.kind == Kind.DECL_STMT: # one that is there for what its end does
            names = [v.spelling for v in statement.get_children() if v.kind == Kind.VAR_DECL]
            return names and not any(t[2] in names and t[0] > statement.extent.end.offset for t in self.tokens)
        return statement.kind.is_expression() or statement.kind in (Kind.BREAK_STMT, Kind.CONTINUE_STMT) \
            or statement.kind == Kind.RETURN_STMT and not list(statement.get_children())

    def declares_for(self, statement, extent):
        names = [v.spelling for v in statement.get_children() if v.kind == Kind.VAR_DECL] \
            if statement.kind == Kind.DECL_STMT else []
        return any(t[2] in names for t in self.tokens[self.begins[extent[0]]:self.ends[extent[1]] + 1])

    @staticmethod
    def moves_freely(statement, other):
        """Whether the statement computes with nothing but local variables, and the other one with other ones."""
        mine, others = list(statement.walk_preorder()), list(other.walk_preorder())
        if statement.kind != Kind.DECL_STMT and not statement.kind.is_expression() \
                or any(c.kind in (Kind.CALL_EXPR, Kind.ARRAY_SUBSCRIPT_EXPR) for c in mine):
            return False
        writes, calls = written(others), any(c.kind == Kind.CALL_EXPR for c in others)
        names = {c.spelling for c in others if c.kind in NAMING}
        if calls or any(c.kind == Kind.UNARY_OPERATOR for c in others): # by reference, or through a pointer
            writes |= {c.spelling for c in others if c.kind in NAMING and not c.type.is_const_qualified()}
        local = all(is_local(c) or c.type.is_const_qualified() for c in mine if c.kind in NAMING)
        return local and not written(mine) & names and not {c.spelling for c in mine if c.kind in NAMING} & writes

    HANDLERS = {
        Kind.BINARY_OPERATOR: binary, Kind.COMPOUND_ASSIGNMENT_OPERATOR: binary, Kind.CALL_EXPR: call,
        Kind.UNARY_OPERATOR: unary, Kind.IF_STMT: decision, Kind.WHILE_STMT: decision, Kind.FOR_STMT: decision,
        Kind.CONDITIONAL_OPERATOR: decision, Kind.INTEGER_LITERAL: number, Kind.CXX_BOOL_LITERAL_EXPR: truth,
        Kind.CHARACTER_LITERAL: character, Kind.STRING_LITERAL: string, Kind.RETURN_STMT: result,
        Kind.COMPOUND_STMT: block,
    }


def changes_of(root, file, arguments):
    return Finder(root, file, arguments).changes()
