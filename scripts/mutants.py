"""Mutants of the library: the places where a condition or a constant can be changed, and sources that hold many changes of which
one is in force at a time, chosen when the program runs. For scripts/mutate."""
import dataclasses
import json
import pathlib
import re
import shlex

SWAPS = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==", "&&": "||", "||": "&&"}
SUMS = {"+": "-", "-": "+"}
# Bytes around a place by which it is found again after its file has changed.
CONTEXT = 160

# What a changed source includes first. /run/tks-mutant, which only scripts/cage has, names the change that is in force: outside
# of the cage none is. NOTES, when it can be written, is told of each change that the test under way reaches.
HEADER = r'''#pragma once
#pragma GCC diagnostic ignored "-Wall"
#pragma GCC diagnostic ignored "-Wextra"
#pragma GCC diagnostic ignored "-Wpedantic"
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wsign-conversion"
#pragma GCC diagnostic ignored "-Wshadow"
#pragma GCC diagnostic ignored "-Wint-in-bool-context"
#pragma GCC diagnostic ignored "-Wparentheses"
#pragma GCC diagnostic ignored "-Wsign-compare"
#pragma GCC diagnostic ignored "-Wtautological-compare"
#pragma GCC diagnostic ignored "-Wbool-compare"
#pragma GCC diagnostic ignored "-Wduplicated-branches"
#pragma GCC diagnostic ignored "-Wnarrowing"
#include <fcntl.h>
#include <unistd.h>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <type_traits>
namespace tks::mutation {
inline int chosen() noexcept {
  const int file = ::open("/run/tks-mutant", O_RDONLY | O_CLOEXEC);
  if (file < 0) return 0;
  int number = 0;
  for (char digit; ::read(file, &digit, 1) == 1 && digit >= '0' && digit <= '9';) number = 10 * number + (digit - '0');
  ::close(file);
  return number;
}
inline std::atomic<bool> reached[4096];
inline void tell(const char* text, int size) noexcept {
  const int file = ::open("NOTES", O_WRONLY | O_APPEND | O_CLOEXEC);
  if (file < 0) return;
  [[maybe_unused]] const auto written = ::write(file, text, static_cast<std::size_t>(size));
  ::close(file);
}
inline void note(int number) noexcept {
  if (reached[number].load(std::memory_order_relaxed) || reached[number].exchange(true)) return;
  char text[16];
  tell(text, std::snprintf(text, sizeof text, "%d\n", number));
}
inline bool now(int number) noexcept {
  static const int mine = chosen();
  if (mine == 0) note(number);
  return number == mine;
}
constexpr bool inConstexpr(int number) noexcept {
  if (std::is_constant_evaluated()) return false;
  return now(number);
}
}  // namespace tks::mutation
'''

# At the end of the main() of the test programs: says which test is under way.
LISTENER = r'''
#include <cstring>
#include <string>
namespace {
class Teller : public ::testing::EmptyTestEventListener {
  void OnTestStart(const ::testing::TestInfo& test) override {
    for (auto& one : tks::mutation::reached) one = false;
    const std::string line = std::string("@") + test.test_suite_name() + "." + test.name() + "\n";
    tks::mutation::tell(line.data(), static_cast<int>(line.size()));
  }
};
[[maybe_unused]] const bool told = [] {
  ::testing::UnitTest::GetInstance()->listeners().Append(new Teller);
  return true;
}();
}  // namespace
'''


@dataclasses.dataclass
class Place:
    """Somewhere where one thing can be changed. Offsets are those of bytes in the file."""
    file: str
    line: int
    begin: int
    end: int
    kind: str
    before: str
    after: str
    in_constexpr_function: bool
    constexpr_at: int = -1  # of a variable whose value must be computed when the program starts
    around: str = ""

    def key(self):
        return f"{self.file}:{self.begin}:{self.kind}:{self.after}"

    def text(self, number):
        chosen = "tks::mutation::" + ("inConstexpr" if self.in_constexpr_function else "now") + f"({number})"
        if self.kind == "negated":
            return f"({chosen} != static_cast<bool>({self.before}))"
        return f"({chosen} ? ({self.after}) : ({self.before}))"

    def remember_context(self, source):
        self.around = source[max(0, self.begin - CONTEXT):self.end + CONTEXT].decode(errors="replace")

    def found_again(self, source):
        """The same place in a source that may have changed; None when it is gone or no longer the only one."""
        if source[max(0, self.begin - CONTEXT):self.end + CONTEXT].decode(errors="replace") == self.around:
            return self
        before = min(self.begin, CONTEXT)
        text, old = self.before.encode(), self.around.encode()
        for width in (CONTEXT, 80, 40, 20):
            low = max(0, before - width)
            piece = old[low:before + len(text) + width]
            if source.count(piece) == 1:
                begin = source.index(piece) + before - low
                moved = begin - self.begin
                # The keyword lies before the place, at a distance that a change between the two would alter.
                at = self.constexpr_at + moved if self.constexpr_at >= 0 else -1
                if at >= 0 and source[at:at + 9] != b"constexpr":
                    return None
                place = dataclasses.replace(self, begin=begin, end=self.end + moved, constexpr_at=at,
                                            line=source.count(b"\n", 0, begin) + 1)
                place.remember_context(source)
                return place
        return None


class Finder:
    """All places of translation units that lie in files of the given folders."""

    def __init__(self, root, folders):
        import clang.cindex
        self.clang, self.root, self.folders = clang.cindex, root, folders
        self.index = clang.cindex.Index.create()
        self.places, self.sources, self.ours = {}, {}, {}

    def look(self, path, arguments):
        unit = self.index.parse(str(path), args=arguments)
        self.walk(unit.cursor, [])

    def source(self, name):
        if name not in self.sources:
            self.sources[name] = pathlib.Path(name).read_bytes()
        return self.sources[name]

    def walk(self, cursor, above):
        for child in cursor.get_children():
            where = child.location.file
            if where is None or not self.is_ours(where.name) or self.is_fixed(child):
                continue
            self.visit(child, above)
            self.walk(child, above + [child])

    def is_ours(self, name):
        if name not in self.ours:
            path = pathlib.Path(name).resolve()
            self.ours[name] = any(path.is_relative_to(self.root / folder) for folder in self.folders)
        return self.ours[name]

    def is_fixed(self, cursor):
        kind = self.clang.CursorKind
        return cursor.kind in (kind.STATIC_ASSERT, kind.ENUM_CONSTANT_DECL)

    def visit(self, cursor, above):
        kind = self.clang.CursorKind
        if cursor.kind == kind.BINARY_OPERATOR:
            self.operator(cursor, list(cursor.get_children()), above)
        elif cursor.kind == kind.CALL_EXPR and re.fullmatch(r"operator(==|!=|<|>|<=|>=)", cursor.spelling or ""):
            self.operator(cursor, list(cursor.get_arguments()), above)
        elif cursor.kind in (kind.IF_STMT, kind.CONDITIONAL_OPERATOR):
            children = list(cursor.get_children())
            if children and children[0].kind.is_expression() and b"constexpr" not in self.head(cursor, children[0]):
                self.negation(children[0], above + [cursor])
        elif cursor.kind == kind.RETURN_STMT:
            for child in cursor.get_children():
                if child.type.get_canonical().kind == self.clang.TypeKind.BOOL:
                    self.negation(child, above + [cursor])
        elif cursor.kind == kind.INTEGER_LITERAL:
            self.integer(cursor, above)
        elif cursor.kind == kind.CXX_BOOL_LITERAL_EXPR and self.text(cursor) in ("true", "false"):
            self.add(cursor, "constant", self.text(cursor), "false" if self.text(cursor) == "true" else "true", above)

    def integer(self, cursor, above):
        text = self.text(cursor)
        if not re.fullmatch(r"[0-9]['0-9]*[uUlL]*", text) or (above and above[-1].kind == self.clang.CursorKind.CASE_STMT):
            return
        digits = re.match(r"[0-9']+", text).group()
        if not digits.startswith("0") or digits == "0":
            self.add(cursor, "constant", text, str(int(digits.replace("'", "")) + 1) + text[len(digits):], above)

    def head(self, cursor, condition):
        return self.source(cursor.extent.start.file.name)[cursor.extent.start.offset:condition.extent.start.offset]

    def text(self, cursor):
        start, end = cursor.extent.start, cursor.extent.end
        if start.file is None or end.file is None or start.file.name != end.file.name:
            return ""
        return self.source(start.file.name)[start.offset:end.offset].decode()

    def operator(self, cursor, sides, above):
        if len(sides) != 2:
            return
        left, right = (self.text(side) for side in sides)
        whole = self.text(cursor)
        between = whole[len(left):len(whole) - len(right)].strip()
        if not left or not right or not whole.startswith(left) or not whole.endswith(right):
            return
        other = SWAPS.get(between)
        if between in SUMS and all(side.type.get_canonical().kind.name in
                                   ("INT", "UINT", "LONG", "ULONG", "LONGLONG", "ULONGLONG", "UCHAR") for side in sides):
            other = SUMS[between]
        if other:
            self.add(cursor, f"{between} {other}", whole, f"{left} {other} {right}", above)

    def negation(self, condition, above):
        text = self.text(condition)
        if text not in ("", "true", "false"):
            self.add(condition, "negated", text, f"!({text})", above)

    def add(self, cursor, kind, before, after, above):
        kinds = self.clang.CursorKind
        functions = (kinds.FUNCTION_DECL, kinds.CXX_METHOD, kinds.FUNCTION_TEMPLATE, kinds.CONSTRUCTOR)
        constexpr_at, in_constexpr_function = -1, False
        for outer in reversed(above):
            head = self.text(outer).split("{")[0].split("=")[0]
            if outer.kind in functions:
                in_constexpr_function = re.search(r"\bconst(expr|eval)\b", head.split("(")[0]) is not None
                break
            if outer.kind in (kinds.VAR_DECL, kinds.FIELD_DECL):
                found = re.search(r"\bconstexpr\b", head)
                constexpr_at = outer.extent.start.offset + len(head[:found.start()].encode()) if found else constexpr_at
            if outer.kind in (kinds.TEMPLATE_REF, kinds.PARM_DECL):
                return
        start = cursor.extent.start
        name = str(pathlib.Path(start.file.name).resolve().relative_to(self.root))
        place = Place(name, start.line, start.offset, cursor.extent.end.offset, kind, before, after,
                      in_constexpr_function and constexpr_at < 0, constexpr_at)
        place.remember_context(self.source(start.file.name))
        self.places.setdefault(place.key(), place)


def arguments_of(entry):
    """The part of a compiler's command line that another compiler needs in order to understand the source."""
    words = shlex.split(entry["command"])
    kept = [word for word in words if re.match(r"-(std|I|D|isystem)", word)]
    for at, word in enumerate(words):
        if word == "-isystem":
            kept.append(words[at + 1])
    return [*kept, "-xc++", "-Wno-everything"]


def find(root, database, folders):
    """Every place in the folders, in the order of files and offsets."""
    finder = Finder(root, folders)
    for entry in json.loads(database.read_text()):
        if finder.is_ours(entry["file"]):
            finder.look(pathlib.Path(entry["file"]), arguments_of(entry))
    return sorted(finder.places.values(), key=lambda place: (place.file, place.begin, place.kind))


def transformed(source, numbered, header):
    """A file with these changes in it, and the lines on which each of them lies then."""
    edits = []
    for number, place in numbered:
        edits.append((place.begin, place.end, place.text(number).encode(), number))
        if place.constexpr_at >= 0:
            before = source[source.rfind(b"\n", 0, place.constexpr_at) + 1:place.constexpr_at]
            # A static member cannot be defined in its class otherwise.
            keyword = b"inline const" if before.startswith(b"  ") and b"static" in before else b"const"
            edits.append((place.constexpr_at, place.constexpr_at + len(b"constexpr"), keyword, 0))
    out, at, lines = f'#include "{header}"\n'.encode(), 0, {}
    for begin, end, text, number in sorted(set(edits)):
        if begin < at:
            continue  # two changes of one keyword
        out += source[at:begin]
        first = out.count(b"\n") + 1
        out += text
        if number:
            lines[number] = range(first, out.count(b"\n") + 2)
        at = end
    return out + source[at:], lines
