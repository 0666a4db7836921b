r'''Finds the functions of C++ and Objective-C++ code that clang-format has laid out, and how many lines each takes.

>>> functions("""
... Foo::Foo(int a) : x_{a}, y_(std::move(b)), z_{1, 2} {
...   if (a) {
...     b();
...   }
... }
... class C : public D {
...  public:
...   C() : a_{1} {}
...   int f() const noexcept override { return '{'; }
...   std::vector<int> v_{1, 2};
... };
... const T table[] = {
...   {"a", [](int) { return 1; }},
... };
... auto g(T t) -> decltype(t.x()) {
...   return R"(})";
... }
... - (void)run:(int)times {
...   [self stop];
... }
... """)
[(2, 'Foo::Foo', 5), (9, 'C', 1), (10, 'f', 1), (16, 'g', 3), (19, '- (void)run:(int)times', 3)]
'''
import re

# What is no code: comments, texts and characters. Raw texts may hold anything.
NO_CODE = re.compile(r'//[^\n]*|/\*.*?\*/|R"(?P<mark>[^(\s]*)\(.*?\)(?P=mark)"|"(?:\\.|[^"\\\n])*"'
                     r"|(?<![0-9A-Fa-f])'(?:\\.|[^'\\\n])+'|^[ \t]*#(?:[^\n]*\\\n)*[^\n]*", re.S | re.M)
# A brace after one of these opens no function.
NO_FUNCTION = re.compile(r"^(?:template\s*<.*>\s*)?(?:(?:inline|static|constexpr|export)\s+)*"
                         r"(?:namespace|class|struct|union|enum|extern|@\w+|if|for|while|switch|do|else|try|catch|return)\b",
                         re.S)
# A header ends with its parameters, with what may follow them, or with the list of initializers.
FUNCTION = re.compile(r"\)\s*(?:(?:const|noexcept(?:\([^{}]*\))?|override|final|mutable|try|&&?)\s*)*"
                      r"(?:->\s*[^;{}=]+|requires\s[^;{}]+|:\s[^;]*)?$", re.S)
OBJECTIVE_C = re.compile(r"^[-+]\s*\(")
NAME = re.compile(r"([~\w]+(?:::[~\w]+)*|operator\s*\S+?)\s*\(")


def blanked(match):
    """As many lines, and nothing in them; of a text its quotes stay, so that it still is a value."""
    text = match.group(0)
    mark = '""' if text.startswith(('"', "R", "'")) else ""
    return mark + "\n" * text.count("\n")


def is_function(header, before):
    """Whether what stands before an opening brace makes it the body of a function."""
    if not header or NO_FUNCTION.match(header):
        return False
    if OBJECTIVE_C.match(header):
        return True
    return before.isspace() and FUNCTION.search(header) is not None and NAME.search(header) is not None


def functions(text):
    """(line, name, lines) of each function, from the first line of its header to its closing brace."""
    code = NO_CODE.sub(blanked, text)
    found = []
    depth = 0
    inside = None
    start = 0  # where the present statement begins
    for match in re.finditer(r"[{};]", code):
        at = match.start()
        if match.group(0) == "{":
            raw = code[start:at]
            header = raw.strip()
            # Labels such as "public:" belong to nothing.
            header = re.sub(r"^(?:(?:public|private|protected)\s*:\s*)+", "", header)
            if inside is None and is_function(header, code[at - 1:at]):
                begins = at - len(raw) + raw.find(header)
                inside = (depth, begins, header)
            depth += 1
            if inside is None and before_is_initializer(code, at, header):
                continue
            start = at + 1
        elif match.group(0) == "}":
            depth -= 1
            if inside and depth == inside[0]:
                line = code.count("\n", 0, inside[1]) + 1
                name = NAME.search(inside[2])
                found.append((line, name.group(1) if name else inside[2].splitlines()[0],
                              code.count("\n", inside[1], at) + 1))
                inside = None
                start = at + 1
            elif inside is None and not (header_goes_on(code, at)):
                start = at + 1
        elif inside is None:
            start = at + 1
    return found


def before_is_initializer(code, at, header):
    """A value in braces inside of a list of initializers: the header goes on after it."""
    return not code[at - 1:at].isspace() and re.search(r"\)\s*:\s", header) is not None


def header_goes_on(code, at):
    """What follows a value in braces in a header: the next initializer, or the body."""
    return re.match(r"\s*(?:,|\)|\{)", code[at + 1:at + 200]) is not None
