"""Finds the places of a C++ source that a mutant can break, and writes copies in which a switch breaks them.

A place is found in clang's syntax tree and replaced in the text: `a < b` becomes `(VeltoMutant(7) ? (a <= b) : (a < b))`.
Only one mutant is active in a process, so the broken half needs no switches of the places inside it. Where no switch can
be, as in a case label, the mutant is "separate": it needs its own compilation.
"""

import dataclasses
import hashlib
import re

import clang.cindex
from clang.cindex import CursorKind, TypeKind

KINDS = ("relation", "logic", "condition", "constant", "arithmetic", "return", "call", "assignment", "jump", "lock")
HEADER = '#include "tests/mutants/mutant.h"'

RELATIONS = {"<": ("<=", "!="), "<=": ("<", "=="), ">": (">=", "!="), ">=": (">", "=="), "==": ("!=",), "!=": ("==",)}
ARITHMETIC = {"+": "-", "-": "+", "*": "/", "/": "*", "%": "*", "&": "|", "|": "&", "^": "&", "<<": ">>", ">>": "<<"}
COMPOUND = {f"{op}=": f"{other}=" for op, other in ARITHMETIC.items()}
STEPS = {"++": "--", "--": "++"}

LITERALS = (CursorKind.INTEGER_LITERAL, CursorKind.FLOATING_LITERAL, CursorKind.CHARACTER_LITERAL,
            CursorKind.CXX_BOOL_LITERAL_EXPR, CursorKind.STRING_LITERAL)
# These contain types, or code that never runs.
SKIPPED = (CursorKind.STATIC_ASSERT, CursorKind.CXX_UNARY_EXPR, CursorKind.TEMPLATE_TYPE_PARAMETER,
           CursorKind.TEMPLATE_NON_TYPE_PARAMETER, CursorKind.TEMPLATE_TEMPLATE_PARAMETER, CursorKind.CXX_TYPEID_EXPR)
FUNCTIONS = (CursorKind.FUNCTION_DECL, CursorKind.CXX_METHOD, CursorKind.CONSTRUCTOR, CursorKind.DESTRUCTOR,
             CursorKind.FUNCTION_TEMPLATE, CursorKind.CONVERSION_FUNCTION)
NUMBERS = (TypeKind.BOOL, TypeKind.CHAR_U, TypeKind.UCHAR, TypeKind.CHAR16, TypeKind.CHAR32, TypeKind.USHORT, TypeKind.UINT,
           TypeKind.ULONG, TypeKind.ULONGLONG, TypeKind.CHAR_S, TypeKind.SCHAR, TypeKind.WCHAR, TypeKind.SHORT, TypeKind.INT,
           TypeKind.LONG, TypeKind.LONGLONG, TypeKind.FLOAT, TypeKind.DOUBLE, TypeKind.LONGDOUBLE, TypeKind.ENUM)
UNKNOWN = (TypeKind.DEPENDENT, TypeKind.UNEXPOSED, TypeKind.INVALID, TypeKind.AUTO)
LOCK = re.compile(r"(?:const\s+)?std::(lock_guard|unique_lock|shared_lock)(?:<[^<>]*>)?\s+(\w+)\s*\((.*)\)\s*;?", re.DOTALL)


@dataclasses.dataclass
class Mutant:
    file: str
    line: int
    kind: str
    change: str        # "a < b → a <= b", in one line
    content: str       # of the source line
    separate: bool     # needs its own compilation
    constexpr: bool = False  # in a constexpr function: the compiler may evaluate the place
    key: str = ""      # the same for the same place and change, whatever the line number
    number: int = 0    # argument of the switch


@dataclasses.dataclass
class Edit:
    """Replaces text[start:end]. Of several edits of a range, those with a smaller order are further out."""
    start: int
    end: int
    order: int
    mutant: Mutant
    switched: object   # function of the number and the text inside: the replacement with the switch; None without one
    forced: object = None  # the replacement of a separate compilation; None where another edit of the mutant is


def one_line(text):
    text = re.sub(r"//[^\n]*", " ", text)
    return re.sub(r"\s+", " ", text).strip()


def shortened(text, limit=70):
    text = one_line(text)
    return text if len(text) <= limit else f"{text[:limit - 1]}…"


def difference(old, new, limit=70):
    """Both texts, shortened to the part that differs if they are long."""
    old, new = one_line(old), one_line(new)
    if max(len(old), len(new)) > limit:
        start = 0
        while start < min(len(old), len(new)) and old[start] == new[start]:
            start += 1
        end = 0
        while end < min(len(old), len(new)) - start and old[-1 - end] == new[-1 - end]:
            end += 1
        if max(len(old), len(new)) - start - end < limit:
            start, end = max(0, start - 15), max(0, end - 15)
            old, new = (f"{'…' if start else ''}{text[start:len(text) - end]}{'…' if end else ''}" for text in (old, new))
    return f"{shortened(old, 110)} → {shortened(new, 110)}"


def changed_literal(kind, text):
    """The text of another value of the same type; None for a form that is not known."""
    if kind == CursorKind.CXX_BOOL_LITERAL_EXPR:
        return {"true": "false", "false": "true"}.get(text)
    if kind == CursorKind.INTEGER_LITERAL:
        found = re.fullmatch(r"(0[xX][0-9a-fA-F']+|[0-9']+)([uUlLzZ]*)", text)
        if not found or (text.startswith("0") and re.fullmatch(r"0[0-7']+[uUlLzZ]*", text)):
            return None
        value = int(found[1].replace("'", ""), 0)
        new = 0 if value == 1 else value + 1
        return (f"0x{new:X}" if found[1][:2].lower() == "0x" else str(new)) + found[2]
    if kind == CursorKind.FLOATING_LITERAL:
        return f"(2 * {text})" if re.search("[1-9]", text.split("e")[0]) else text.replace("0", "1", 1)
    quote = '"' if kind == CursorKind.STRING_LITERAL else "'"
    found = re.fullmatch(rf"((?:u8|u|U|L)?{quote})(\\x[0-9a-fA-F]+|\\[0-7]{{1,3}}|\\.|[^\\{quote}])(.*)", text, re.DOTALL)
    if found:
        return f"{found[1]}{'@' if found[2] == '#' else '#'}{found[3]}"
    return text.replace('""', '"#"', 1) if kind == CursorKind.STRING_LITERAL and re.match(r'(u8|u|U|L)?""', text) else None


class Scanner:
    """Collects the mutants and edits of one file from the syntax tree of a source that includes it."""

    def __init__(self, name, path, text, macros):
        self.name, self.path, self.text, self.macros = name, path, text, macros
        self.mutants, self.edits = [], []
        self.constants = {}   # by the declaration's offset: the mutants of a constant and its new values
        self.references = {}  # by the declaration's offset: ranges of its uses, None for a use in a constant expression
        self.lines = text.split("\n")

    # --- Collecting ------------------------------------------------------------------------------

    def mutant(self, start, kind, change, separate=False, constexpr=False):
        line = self.text.count("\n", 0, start) + 1
        found = Mutant(self.name, line, kind, change, self.lines[line - 1].strip(), separate, constexpr)
        self.mutants.append(found)
        return found

    def source(self, cursor):
        return self.text[cursor.extent.start.offset:cursor.extent.end.offset]

    def replace(self, cursor, kind, new, context, change=None, order=0, cast=None, at=None):
        """A mutant whose expression becomes `new`. `cast`: the type that both halves of the switch have. `at`: the offset
        that the mutant's line contains, if it is not where the expression starts."""
        start, end = cursor.extent.start.offset, cursor.extent.end.offset
        old = self.text[start:end]
        change = change or difference(old, new)
        separate = context.constant
        mutant = self.mutant(start if at is None else at, kind, change, separate, context.constexpr)
        call = "VeltoConstexprMutant" if context.constexpr else "VeltoMutant"

        def switched(number, inner):
            return f"({call}({number}) ? ({new}) : {f'static_cast<{cast}>({inner})' if cast else f'({inner})'})"

        def forced(_inner):
            return new if kind == "constant" else f"({new})"

        self.edits.append(Edit(start, end, order, mutant, None if separate else switched, forced))
        if context.constants is not None and start >= context.constants[1]:
            begin, stop = context.constants[1:]
            context.constants[0].append((mutant, self.text[begin:start] + new + self.text[end:stop]))

    def choose_by_call(self, kind, new):
        """Switches in a lambda, because g++ 12 evaluates the index of a conditional expression in one of its halves only."""
        self.edits[-1].switched = lambda number, inner: \
            f"[](bool broken) -> {kind} {{ if (broken) return {new}; return {inner}; }}(VeltoMutant({number}))"

    def statement(self, cursor, kind, context, change="deleted"):
        """A mutant in which this statement is deleted."""
        start, end = cursor.extent.start.offset, cursor.extent.end.offset
        end = self.text.index(";", end) + 1
        mutant = self.mutant(start, kind, f"{shortened(self.text[start:end], 110)} → {change}", False, context.constexpr)
        call = "VeltoConstexprMutant" if context.constexpr else "VeltoMutant"
        self.edits.append(Edit(start, end, -1, mutant, lambda number, inner: f"{{ if (!{call}({number})) {{ {inner} }} }}",
                               lambda inner: ";"))

    # --- Walking ---------------------------------------------------------------------------------

    def visit(self, cursor, context):
        kind = cursor.kind
        if cursor.location.file is None or cursor.location.file.name != self.path:
            return
        start, end = cursor.extent.start.offset, cursor.extent.end.offset
        if kind in SKIPPED or kind.is_attribute() or kind.is_preprocessing():
            return
        if kind.is_expression() or kind.is_statement():
            if start == end or any(first <= start and end <= last and (first, last) != (start, end)
                                   for first, last in self.macros):
                return
            if (start, end) in self.macros:
                self.named_constant(cursor, context)
                return
        if kind in FUNCTIONS:
            head = self.text[start:cursor.location.offset]
            context = Context(constexpr=re.search(r"\b(constexpr|consteval)\b", head) is not None,
                              returns_reference=cursor.result_type.kind == TypeKind.LVALUEREFERENCE, function=cursor)
        elif kind == CursorKind.LAMBDA_EXPR:
            context = dataclasses.replace(context, parent=None, returns_reference=False, function=None)
        elif kind in (CursorKind.TYPE_ALIAS_DECL, CursorKind.TYPEDEF_DECL, CursorKind.TYPE_ALIAS_TEMPLATE_DECL):
            context = dataclasses.replace(context, constant=True)
        elif kind in (CursorKind.VAR_DECL, CursorKind.FIELD_DECL):
            self.variable(cursor, context)
            return
        elif kind == CursorKind.ENUM_CONSTANT_DECL:
            context = dataclasses.replace(context, constant=True)
        self.expression(cursor, context)
        self.condition(cursor, context)
        for child in self.children(cursor):
            inner = dataclasses.replace(context, parent=cursor, owner=context.parent)
            is_case = kind == CursorKind.CASE_STMT and child == next(cursor.get_children())
            is_constexpr_if = kind == CursorKind.IF_STMT and re.match(r"if\s+constexpr\b", self.text[start:end]) and \
                child == self.condition_of(cursor)
            if is_case or is_constexpr_if:
                inner.constant = True
            if self.is_statement_of(child, cursor):
                self.deletion(child, cursor, inner)
            self.visit(child, inner)

    @staticmethod
    def children(cursor):
        """The children of a cursor; of a lambda only parameters and body, because its tree has captures and parameters twice."""
        children = list(cursor.get_children())
        if cursor.kind == CursorKind.LAMBDA_EXPR:
            return [child for child in children if child.kind in (CursorKind.COMPOUND_STMT, CursorKind.PARM_DECL)]
        return children

    def variable(self, cursor, context):
        start, end = cursor.extent.start.offset, cursor.extent.end.offset
        name_end = cursor.location.offset + len(cursor.spelling)
        initialiser = re.compile(r"\s*(?:\[[^\]]*\]\s*)*(=\s*|(?=[{(]))").match(self.text, name_end)
        is_constant = re.search(r"\b(constexpr|constinit)\b", self.text[start:cursor.location.offset]) is not None
        # A constant that only this source file can use is switched where it is used, so that its place counts as reached by
        # the tests that use it. Tests see the constants of a header, too.
        by_use = self.is_switched_by_use(cursor, is_constant)
        values = []
        for child in cursor.get_children():
            inner = dataclasses.replace(context, parent=cursor)
            if initialiser is None or child.extent.start.offset < initialiser.end():
                inner.constant = True  # the bound of an array, or an argument of a template
            elif is_constant or by_use:
                inner.constant = True
                if by_use:
                    inner.constants = (values, initialiser.end(), end)
            self.visit(child, inner)
        if values:
            self.constants[cursor.location.offset] = (cursor, values)

    def is_switched_by_use(self, cursor, is_constant):
        if cursor.kind != CursorKind.VAR_DECL or not self.path.endswith(".cpp"):
            return False
        kind = cursor.type.get_canonical()
        if kind.kind == TypeKind.CONSTANTARRAY:
            return is_constant and kind.element_type.kind in (TypeKind.CHAR_S, TypeKind.WCHAR)
        at_load = cursor.semantic_parent.kind in (CursorKind.NAMESPACE, CursorKind.TRANSLATION_UNIT)
        is_text = "basic_string<" in kind.spelling
        return kind.is_const_qualified() and (kind.kind in NUMBERS or is_text) and (is_constant or at_load)

    def is_statement_of(self, child, parent):
        if parent.kind in (CursorKind.COMPOUND_STMT, CursorKind.DEFAULT_STMT):
            return True
        siblings = list(parent.get_children())
        if parent.kind == CursorKind.IF_STMT:
            condition = self.condition_of(parent)
            return condition is not None and child.extent.start.offset > condition.extent.end.offset
        if parent.kind in (CursorKind.WHILE_STMT, CursorKind.FOR_STMT, CursorKind.CXX_FOR_RANGE_STMT, CursorKind.CASE_STMT):
            return child == siblings[-1] and len(siblings) > 1
        return parent.kind == CursorKind.DO_STMT and child == siblings[0]

    @staticmethod
    def unwrapped(cursor):
        while cursor.kind in (CursorKind.UNEXPOSED_EXPR, CursorKind.PAREN_EXPR):
            children = list(cursor.get_children())
            if len(children) != 1:
                break
            cursor = children[0]
        return cursor

    # --- Statements ------------------------------------------------------------------------------

    def deletion(self, cursor, parent, context):
        kind, core = cursor.kind, self.unwrapped(cursor)
        if kind == CursorKind.DECL_STMT:
            self.lock(cursor, parent, context)
        elif kind in (CursorKind.BREAK_STMT, CursorKind.CONTINUE_STMT):
            self.jump(cursor, parent, context)
        elif kind == CursorKind.RETURN_STMT:
            self.returned(cursor, parent, context)
        elif core.kind in (CursorKind.BINARY_OPERATOR, CursorKind.COMPOUND_ASSIGNMENT_OPERATOR, CursorKind.UNARY_OPERATOR):
            self.statement(cursor, "assignment", context)
        elif core.kind == CursorKind.CALL_EXPR:
            name = core.spelling
            is_assignment = re.fullmatch(r"operator([-+*/%|&^]|<<|>>)?=|operator(\+\+|--)", name) is not None
            is_lock = name in ("lock", "unlock")
            self.statement(cursor, "lock" if is_lock else "assignment" if is_assignment else "call", context)
        elif core.kind.is_expression() and core.kind not in LITERALS:
            self.statement(cursor, "call", context)

    def jump(self, cursor, parent, context):
        siblings = list(parent.get_children())
        is_last = cursor == siblings[-1]
        owner = context.owner
        if is_last and (parent.kind in (CursorKind.CASE_STMT, CursorKind.DEFAULT_STMT) or
                        (owner is not None and owner.kind == CursorKind.SWITCH_STMT)):
            return  # the end of the switch follows
        self.statement(cursor, "jump", context)

    def returned(self, cursor, parent, context):
        children = list(cursor.get_children())
        if not children:
            is_end = parent.kind == CursorKind.COMPOUND_STMT and cursor == list(parent.get_children())[-1] and \
                context.owner is not None and context.owner.kind in FUNCTIONS
            if not is_end:
                self.statement(cursor, "jump", context)
            return
        value = children[0]
        text = self.source(value)
        if text == "nullptr" and context.function is not None:
            other = self.other_object(context.function)
            if other is not None:
                self.replace(value, "return", other, context, order=-1)
        if self.has_other_value_already(value) or context.returns_reference:
            return
        kind, cast = value.type.get_canonical().kind, self.converted_type(value)
        if kind == TypeKind.BOOL:
            self.replace(value, "return", f"!({text})", context, cast="bool", order=-1)
        elif kind == TypeKind.POINTER:
            self.replace(value, "return", "nullptr", context, cast=cast, order=-1)
        elif kind in NUMBERS:
            new = f"static_cast<{cast}>({text})" if cast else text
            self.replace(value, "return", f"velto_mutants::Changed({new})", context, cast=cast,
                         change=f"{shortened(text)} → another value", order=-1)
        else:
            self.returned_object(cursor, context, text)

    def other_object(self, function):
        """The text of the first pointer that a function returns elsewhere."""
        for cursor in function.walk_preorder():
            if cursor.kind == CursorKind.RETURN_STMT:
                value = next(cursor.get_children(), None)
                if value is not None and self.source(value) not in ("nullptr", "{}"):
                    return self.source(value)
        return None

    def has_other_value_already(self, value):
        """Whether a mutant of a constant or of a comparison changes the value already."""
        core = self.unwrapped(value)
        if core.kind == CursorKind.UNARY_OPERATOR and self.unwrapped(next(core.get_children())).kind in LITERALS:
            return True
        is_enumerator = core.kind == CursorKind.DECL_REF_EXPR and core.referenced is not None and \
            core.referenced.kind == CursorKind.ENUM_CONSTANT_DECL
        return core.kind in LITERALS or is_enumerator or self.is_equality(core) or \
            (value.extent.start.offset, value.extent.end.offset) in self.macros or \
            re.fullmatch(r'nullptr|\{\s*\}|std::nullopt|L?""', self.source(value)) is not None  # or no other value

    @staticmethod
    def converted_type(value):
        """The type to which a class converts itself; None without such a conversion."""
        core = value
        while core.kind == CursorKind.UNEXPOSED_EXPR:
            core = next(core.get_children(), core)
            if core.kind == CursorKind.CALL_EXPR and core.spelling.startswith("operator "):
                return value.type.get_canonical().spelling
            if not list(core.get_children()):
                break
        return None

    def returned_object(self, cursor, context, text):
        start = cursor.extent.start.offset
        end = self.text.index(";", cursor.extent.end.offset) + 1
        mutant = self.mutant(start, "return", f"{shortened(text)} → {{}}", False, context.constexpr)
        call = "VeltoConstexprMutant" if context.constexpr else "VeltoMutant"
        self.edits.append(Edit(start, end, -1, mutant, lambda number, inner: f"{{ if ({call}({number})) return {{}}; {inner} }}",
                               lambda inner: "return {};"))

    def lock(self, cursor, parent, context):
        start, end = cursor.extent.start.offset, cursor.extent.end.offset
        found = LOCK.fullmatch(self.text[start:end])
        if found is None:
            return
        name, arguments = found[2], found[3]
        lock = "std::shared_lock" if found[1] == "shared_lock" else "std::unique_lock"
        mutex, _, option = (part.strip() for part in arguments.partition(","))
        before = one_line(self.text[start:end])
        deferred = f"{lock}({mutex}, std::defer_lock)"
        if option == "std::defer_lock":
            return
        base = f"{lock}({arguments})"
        self.locked(start, end, f"{before} → not locked", name, deferred, base, 0)
        if option == "std::try_to_lock":
            self.locked(start, end, f"{before} → waits for the lock", name, f"{lock}({mutex})", base, 1)
        outer = context.owner
        if parent.kind == CursorKind.COMPOUND_STMT and outer is not None and outer.kind == CursorKind.COMPOUND_STMT and \
                parent != list(outer.get_children())[-1]:
            self.extended(cursor, parent, name, before)

    def locked(self, start, end, change, name, broken, base, order):
        mutant = self.mutant(start, "lock", change)

        def switched(number, inner):
            # The edits of one declaration are inside each other.
            value = inner.partition("= ")[2].rstrip("; ") if inner.startswith("auto ") else base
            return f"auto {name} = VeltoMutant({number}) ? {broken} : {value};"

        self.edits.append(Edit(start, end, -order, mutant, switched, lambda inner: f"auto {name} = {broken};"))

    def extended(self, cursor, parent, name, before):
        """The lock lasts to the end of the block outside its own."""
        mutant = self.mutant(cursor.extent.start.offset, "lock", f"{before} → locked until the end of the outer block")
        begin, after = parent.extent.start.offset, cursor.extent.end.offset
        owner = f"veltoExtension{begin}"
        # The variable's name contains the place, so that both edits use the same variable.
        self.edits.append(Edit(begin, begin, 0, mutant, lambda number, inner: f"velto_mutants::LockExtension {owner}; ",
                               lambda inner: f"velto_mutants::LockExtension {owner}; "))
        handover = f" velto_mutants::LockHandover veltoHandover{begin}({name}, "
        # Even without a switch, this needs the declaration by locked(), whose lock can be released.
        self.edits.append(Edit(after, after, 0, mutant,
                               lambda number, inner: f"{handover}VeltoMutant({number}), {owner});",
                               lambda inner: f"{handover}true, {owner});"))

    # --- Conditions ------------------------------------------------------------------------------

    def condition_of(self, cursor):
        """The condition of a statement: an expression, or the variable that an if declares."""
        children = [child for child in cursor.get_children()]
        if cursor.kind == CursorKind.IF_STMT:
            if children and children[0].kind == CursorKind.DECL_STMT:
                children = children[1:]
            return children[0] if children else None
        if cursor.kind in (CursorKind.WHILE_STMT, CursorKind.CONDITIONAL_OPERATOR):
            return children[0]
        if cursor.kind == CursorKind.DO_STMT:
            return children[-1]
        if cursor.kind == CursorKind.FOR_STMT:
            # Between the two semicolons. An initialisation contains none in this code.
            first = self.text.index(";", cursor.extent.start.offset)
            for child in children[:-1]:
                if child.extent.start.offset > first:
                    between = self.text[first + 1:child.extent.start.offset]
                    return child if ";" not in between else None
        return None

    def is_equality(self, core):
        """Whether another mutant of the expression negates it already."""
        if core.kind == CursorKind.BINARY_OPERATOR or core.kind == CursorKind.CALL_EXPR:
            operator = self.operator_of(core)
            return operator is not None and operator[1] in ("==", "!=")
        if core.kind == CursorKind.UNARY_OPERATOR:
            return self.source(core).startswith("!") or self.source(core).startswith("==")
        return False

    def condition(self, cursor, context):
        condition = self.condition_of(cursor)
        if condition is None or context.constant or re.match(r"if\s+constexpr\b", self.source(cursor)):
            return
        if condition.kind == CursorKind.VAR_DECL:
            name, end = condition.spelling, condition.extent.end.offset
            mutant = self.mutant(condition.extent.start.offset, "condition", f"{name} → !{name}", False, context.constexpr)
            self.edits.append(Edit(end, end, 0, mutant, lambda number, inner: f"; VeltoMutant({number}) != !!{name}",
                                   lambda inner: f"; !{name}"))
            return
        core = self.unwrapped(condition)
        if core.kind in LITERALS or self.is_equality(core):
            return
        text = self.source(condition)
        self.replace(condition, "condition", f"!({text})", context, cast="bool", order=-2)

    # --- Expressions -----------------------------------------------------------------------------

    def operator_of(self, cursor):
        """(left, operator, right) of a built-in or an overloaded operator; None for another expression."""
        children = list(cursor.get_children())
        if cursor.kind in (CursorKind.BINARY_OPERATOR, CursorKind.COMPOUND_ASSIGNMENT_OPERATOR) and len(children) == 2:
            left, right = children
        elif cursor.kind == CursorKind.CALL_EXPR and cursor.spelling.startswith("operator") and len(children) == 3:
            left, right = children[0], children[2]
        else:
            return None
        if left.extent.end.offset > right.extent.start.offset:
            return None
        operator = re.sub(r"//[^\n]*|/\*.*?\*/", "", self.text[left.extent.end.offset:right.extent.start.offset]).strip()
        return (left, operator, right) if re.fullmatch(r"[-+*/%<>=!&|^]+", operator) else None

    def expression(self, cursor, context):
        kind = cursor.kind
        if kind in LITERALS:
            text = self.source(cursor)
            new = changed_literal(kind, text)
            is_indexed = context.owner is not None and context.owner.kind == CursorKind.ARRAY_SUBSCRIPT_EXPR
            if new is not None:
                self.replace(cursor, "constant", new, context)
                if kind == CursorKind.STRING_LITERAL and is_indexed:
                    self.choose_by_call(context.parent.type.spelling, new)
        elif kind == CursorKind.DECL_REF_EXPR:
            self.reference(cursor, context)
        elif kind == CursorKind.UNARY_OPERATOR:
            self.unary(cursor, context)
        elif kind == CursorKind.CALL_EXPR and cursor.spelling in ("operator++", "operator--"):
            self.unary(cursor, context)
        elif kind == CursorKind.CALL_EXPR and cursor.spelling == "try_lock":
            text = self.source(cursor)
            new = f"({text.replace('try_lock', 'lock')}, true)"
            self.replace(cursor, "lock", new, context)
        elif (found := self.operator_of(cursor)) is not None:
            self.binary(cursor, *found, context)

    def binary(self, cursor, left, operator, right, context):
        a, b = self.source(left), self.source(right)
        at = left.extent.end.offset + self.text[left.extent.end.offset:right.extent.start.offset].index(operator)
        for new in RELATIONS.get(operator, ()):
            self.replace(cursor, "relation", f"{a} {new} {b}", context, at=at)
        if operator in ("&&", "||"):
            for side in (a, b):
                self.replace(cursor, "logic", f"static_cast<bool>({side})", context, cast="bool", at=at,
                             change=f"{shortened(self.source(cursor), 110)} → {shortened(side, 110)}")
        other = ARITHMETIC.get(operator) or COMPOUND.get(operator)
        if other is not None and self.can_compute(left) and self.can_compute(right):
            self.replace(cursor, "arithmetic", f"{a} {other} {b}", context, at=at)

    @staticmethod
    def can_compute(cursor):
        kind = cursor.type.get_canonical()
        return kind.kind in NUMBERS + UNKNOWN + (TypeKind.POINTER,) or "std::chrono::" in kind.spelling or \
            "std::atomic<" in kind.spelling

    def unary(self, cursor, context):
        text = self.source(cursor)
        operand = next(cursor.get_children(), None)
        if operand is None:
            return
        inner = self.source(operand)
        if text.startswith("!") and not text.startswith("!="):
            self.replace(cursor, "logic", f"static_cast<bool>({inner})", context, cast="bool",
                         change=f"{shortened(text)} → {shortened(inner)}")
        elif text[:2] in STEPS:
            self.replace(cursor, "arithmetic", f"{STEPS[text[:2]]}{inner}", context)
        elif text[-2:] in STEPS:
            self.replace(cursor, "arithmetic", f"{inner}{STEPS[text[-2:]]}", context)
        elif text.startswith(("-", "~")) and self.unwrapped(operand).kind not in LITERALS:
            self.replace(cursor, "arithmetic", inner, context)

    def reference(self, cursor, context):
        target = cursor.referenced
        if target is None:
            return
        if target.kind == CursorKind.ENUM_CONSTANT_DECL:
            self.named_constant(cursor, context)
        elif target.kind == CursorKind.VAR_DECL and target.location.file is not None:
            if target.location.file.name == self.path:
                extent = None if context.constant else (cursor.extent.start.offset, cursor.extent.end.offset)
                self.references.setdefault(target.location.offset, []).append(extent)

    def named_constant(self, cursor, context):
        kind = cursor.type.get_canonical().kind
        text = self.source(cursor)
        has_call = any(child.kind == CursorKind.CALL_EXPR for child in cursor.walk_preorder())  # as errno has
        if kind not in NUMBERS or has_call or (kind == TypeKind.BOOL and "(" in text):
            return
        self.replace(cursor, "constant", f"velto_mutants::Changed({text})", context,
                     change=f"{shortened(text)} → another value")

    # --- Constants that are switched where they are used -------------------------------------------

    def finish(self):
        for offset, (cursor, values) in self.constants.items():
            uses = self.references.get(offset, [])
            if not uses or None in uses:
                continue  # used in a constant expression: separate
            for mutant, value in values:
                mutant.separate = False
                new = self.other_constant(cursor, value)
                for start, end in uses:
                    self.edits.append(Edit(start, end, 0, mutant,
                                           lambda number, inner, new=new: f"(VeltoMutant({number}) ? {new} : {inner})"))

    @staticmethod
    def other_constant(cursor, value):
        kind, name = cursor.type.get_canonical().kind, cursor.spelling
        opening, closing = ("", "") if value.startswith(("{", "(")) else ("(", ")")
        if kind == TypeKind.CONSTANTARRAY:
            return value
        if kind in NUMBERS:
            return f"std::remove_cv_t<decltype({name})>{opening}{value}{closing}"
        # Refers to a static object: a copy would need memory, which a test may refuse.
        return f"[]() -> decltype({name}) & {{ static decltype({name}) other{opening}{value}{closing}; return other; }}()"


@dataclasses.dataclass
class Context:
    constant: bool = False   # in a constant expression
    constexpr: bool = False  # in a constexpr function
    returns_reference: bool = False
    function: object = None
    constants: tuple = None  # the values of the constant that is being initialised, and the range of the initialiser
    parent: object = None
    owner: object = None     # the parent's parent


def give_keys(mutants, first_number):
    """Gives keys and numbers to the mutants of a file, in the order of their places."""
    seen = {}
    for number, mutant in enumerate(mutants, first_number):
        same = "|".join((mutant.file, mutant.kind, mutant.content, mutant.change))
        seen[same] = seen.get(same, 0) + 1
        mutant.key = hashlib.sha1(f"{same}|{seen[same]}".encode()).hexdigest()[:8]
        mutant.number = number


def scan(unit, files):
    """{name: scanner} of the files of a translation unit. `files`: {path: (name, first number)}."""
    macros, tops = {}, []
    for cursor in unit.cursor.get_children():
        if cursor.kind in (CursorKind.MACRO_DEFINITION, CursorKind.INCLUSION_DIRECTIVE) or cursor.location.file is None:
            continue
        path = cursor.location.file.name
        if path not in files:
            continue
        if cursor.kind == CursorKind.MACRO_INSTANTIATION:
            macros.setdefault(path, set()).add((cursor.extent.start.offset, cursor.extent.end.offset))
        elif not cursor.kind.is_preprocessing():
            tops.append((path, cursor))
    scanners = {}
    for path in files:
        with open(path, encoding="latin-1", newline="") as source:
            scanners[path] = Scanner(files[path][0], path, source.read(), macros.get(path, set()))
    for path, cursor in tops:
        scanners[path].visit(cursor, Context())
    for path, scanner in scanners.items():
        scanner.finish()
        scanner.mutants.sort(key=lambda mutant: mutant.line)
        give_keys(scanner.mutants, files[path][1])
    return {scanner.name: scanner for scanner in scanners.values()}


def parse(path, arguments):
    unit = clang.cindex.Index.create().parse(
        path, args=arguments, options=clang.cindex.TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD)
    errors = [str(problem) for problem in unit.diagnostics if problem.severity >= clang.cindex.Diagnostic.Error]
    if errors:
        raise RuntimeError(f"clang cannot read {path}: {errors[0]}")
    return unit


def render(text, edits, excluded=frozenset(), forced=None):
    """The copy of a source with switches, except for the mutants with an excluded key. The mutant `forced` is
    broken without a switch."""
    root = [0, len(text), None, []]
    stack = [root]
    chosen = [edit for edit in edits if edit.mutant is forced or
              (edit.switched is not None and not edit.mutant.separate and edit.mutant.key not in excluded)]
    for edit in sorted(chosen, key=lambda edit: (edit.start, -edit.end, edit.order)):
        # Text that is inserted at the end of a place goes behind that place.
        while edit.end > stack[-1][1] or (edit.start == stack[-1][1] and len(stack) > 1):
            if edit.start < stack[-1][1] < edit.end:
                raise RuntimeError(f"{edit.mutant.file}:{edit.mutant.line}: places overlap: {edit.mutant.change}")
            stack.pop()
        node = [edit.start, edit.end, edit, []]
        stack[-1][3].append(node)
        if edit.start != edit.end:
            stack.append(node)

    def text_of(node):
        parts, at = [], node[0]
        for child in node[3]:
            parts += [text[at:child[0]], text_of(child)]
            at = child[1]
        inner = "".join([*parts, text[at:node[1]]])
        edit = node[2]
        if edit is None:
            return inner
        if edit.mutant is forced:
            return edit.forced(inner) if edit.forced is not None else inner
        return edit.switched(edit.mutant.number, inner)

    return f"{HEADER}\n#line 1\n{text_of(root)}"
