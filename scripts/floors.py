r"""The order of floors: which folder may include which, and who calls what a higher one defines.

>>> floors = {"low": Floor(""), "high": Floor("`low/`")}
>>> files = {"low/a.h": "namespace n {\nclass C {\n  int in();\n};\nint f();\nint g();\n}  // namespace n\n",
...          "low/b.cpp": '#include "low/a.h"\nint x = n::f();\nint y = n::g();\nC c;\n',
...          "low/c.cpp": '#include "low/a.h"\nnamespace n {\nint g() {\n  return 1;\n}\n}  // namespace n\n',
...          "high/d.cpp": '#include "low/a.h"\nnamespace n {\nnamespace {\nint g() {\n  return 1;\n}\n}  // namespace\n'
...                        'int f() {\n  return g();\n}\nint C::in() {\n  return 2;\n}\n}  // namespace n\n',
...          "high/e.cpp": '#include "low/a.h"\nint z = n::f();\n'}
>>> for found in calls_up(files, floors): print(*found)
low/b.cpp 2 uses f of low/a.h, which high/ defines: not below low/
low/b.cpp 4 uses C of low/a.h, which high/ defines: not below low/
>>> circle({"a": {"b"}, "b": {"c", "d"}, "c": {"b"}, "d": set()})
['b', 'c', 'b']
>>> circle({"a": {"b"}, "b": set()})
"""
import pathlib
import re

import function_sizes

ROOT = pathlib.Path(__file__).resolve().parent.parent
# The page whose table says what each folder may include: the order of floors.
FLOORS_PAGE = ROOT / "docs" / "architecture.md"
FLOORS_ROW = re.compile(r"^\| `(?P<folder>[\w/]+)/` \|.*\| (?P<below>[^|]*) \|$")
STANDARD = set("""algorithm any array atomic barrier bit bitset cassert cctype cerrno cfenv cfloat charconv chrono cinttypes
climits clocale cmath compare complex concepts condition_variable coroutine csignal cstdarg cstddef cstdint cstdio cstdlib
cstring ctime cuchar cwchar cwctype deque exception execution filesystem format forward_list fstream functional future
initializer_list iomanip ios iosfwd iostream istream iterator latch limits list locale map memory memory_resource mutex new
numbers numeric optional ostream queue random ranges ratio regex scoped_allocator semaphore set shared_mutex
source_location span sstream stack stdexcept stop_token streambuf string string_view syncstream system_error thread tuple
type_traits typeindex typeinfo unordered_map unordered_set utility valarray variant vector version""".split())
INCLUDE = re.compile(r'^\s*#\s*(?:include|import)\s*([<"])([^>"]+)[>"]')
# A function that a header declares, a variable, a class that is defined there; and a definition that others can call.
DECLARED = re.compile(r"^(?!\s*(?:return|using|typedef|static_assert)\b)[^;=()]*?[\w>&*]\s+[&*]*(\w+)\([^;]*\)[^;{}=]*;",
                      re.M)
VARIABLE = re.compile(r"^\s*extern\s+[^;(]*?\b(\w+)(?:\[\w*\])?;", re.M)
CLASS = re.compile(r"\b(?:class|struct)\s+(\w+)[^;{}()]*\{")
DEFINED = re.compile(r"^(?!static\b|return\b)(?:[A-Za-z_][\w:<>,&*\[\] ]*[\s&*])?(?P<name>(?:\w+::)*~?\w+)"
                     r"\([^;]*?\)[^;{}()]*(?:: [^;{]*)?\{", re.M)


class Floor:
    """A row of the table: which folders, and which headers in angle brackets besides the standard library's."""

    def __init__(self, below):
        self.folders = re.findall(r"`([\w/]+)/`", below)
        self.headers = re.findall(r"`<([^`]+?)\*?>`", below)
        self.any_header = "any header" in below

    def takes_header(self, name):
        return (name in STANDARD or name.startswith("tksinterface/") or self.any_header
                or any(name.startswith(header) for header in self.headers))


def read_floors():
    rows = map(FLOORS_ROW.match, FLOORS_PAGE.read_text(encoding="utf-8").splitlines())
    return {row["folder"]: Floor(row["below"]) for row in rows if row}


def folder_of(name, floors):
    """The innermost folder of the table that a file lies in; nothing outside of all."""
    parts = name.split("/")[:-1]
    for length in range(len(parts), 0, -1):
        if "/".join(parts[:length]) in floors:
            return "/".join(parts[:length])
    return None


def circle(graph):
    """One way from somewhere back to it; None when there is none."""
    done = set()

    def way(place, path):
        if place in path:
            return path[path.index(place):] + [place]
        if place in done:
            return None
        found = next((found for after in sorted(graph.get(place, ())) if (found := way(after, path + [place]))), None)
        done.add(place)
        return found

    return next((found for place in sorted(graph) if (found := way(place, []))), None)


def bare(text):
    return function_sizes.NO_CODE.sub(function_sizes.blanked, text)


def namespaces(text):
    """The namespace of each line, as clang-format closes them; None inside of one without a name."""
    stack, found = [], []
    for line in text.splitlines():
        opened = re.match(r"(?:inline )?namespace ?([\w:]*) ?\{$", line)
        if opened:
            stack.append(opened[1])
        elif line.startswith("}  // namespace") and stack:
            stack.pop()
        found.append(None if "" in stack else "::".join(stack))
    return found


def outermost(code):
    """The code with as many lines, without what stands in the braces of anything but namespaces."""
    kept, depth, start = [], [], 0
    for found in re.finditer(r"[{}]", code):
        piece = code[start:found.start()]
        kept.append(piece if all(depth) else "\n" * piece.count("\n"))
        if found.group(0) == "{":
            depth.append(bool(re.search(r"\bnamespace\b[^();]*$", re.split(r"[;{}]", piece)[-1])))
        elif depth:
            depth.pop()
            kept.append(";" if all(depth) else "")
        start = found.end()
    return "".join(kept) + code[start:]


def is_above(folder, other, floors):
    return folder != other and folder not in floors[other].folders


def declared_in(text):
    """The functions, variables and classes that a header declares, each with its namespace."""
    code, spaces = bare(text), namespaces(text)
    outside = outermost(code)
    found = [(outside, one) for one in DECLARED.finditer(outside)]
    found += [(code, one) for kind in (VARIABLE, CLASS) for one in kind.finditer(code)]
    return {(spaces[where.count("\n", 0, one.start(1))], one[1]) for where, one in found}


def defined_in(text):
    """What a source defines for others, each with its namespace: a function, and the class that it may belong to."""
    code, spaces = bare(text), namespaces(text)
    for found in DEFINED.finditer(code):
        space = spaces[code.count("\n", 0, found.start("name"))]
        if space is None:
            continue
        scopes = [part for part in f"{space}::{found['name']}".split("::") if part]
        yield "::".join(scopes[:-1]), scopes[-1]
        if len(scopes) > 1:
            yield "::".join(scopes[:-2]), scopes[-2]


def calls_up(files, floors):
    """(file, line, what) for each use of what a header declares and a folder above the user's defines. The implementations
    of contracts carry no name of a function, backend<Contract>: they are the way around. What only higher folders use
    may be declared below them. `files`: the text of each file by its path."""
    folders = {name: folder_of(name, floors) for name in files}
    declared = {name: declared_in(text) for name, text in files.items()
                if name.endswith(".h") and folders[name] and not name.startswith("include/")}
    included = {name: [found[2] for line in text.splitlines() if (found := INCLUDE.match(line)) and found[2] in declared]
                for name, text in files.items() if folders[name]}
    above = {}
    for name, headers in included.items():
        headers = [header for header in headers if is_above(folders[name], folders[header], floors)]
        for wanted in defined_in(files[name]) if headers and not name.endswith(".h") else ():
            for header in headers:
                if wanted in declared[header]:
                    above.setdefault((header, wanted[1]), set()).add(folders[name])
    for name, headers in included.items():
        for (header, what), homes in above.items():
            if header not in headers or not all(is_above(home, folders[name], floors) for home in homes):
                continue
            code = bare(files[name])
            use = re.search(rf"\b{what}\b", code)
            if use:
                yield (name, code.count("\n", 0, use.start()) + 1,
                       f"uses {what} of {header}, which {'/ and '.join(sorted(homes))}/ defines: not below {folders[name]}/")
