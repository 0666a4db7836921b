"""The programs of the library's tests, as the CMakeLists.txt of their folders name them.

>>> programs_in('''tks_add_tests(one SOURCES A.cpp)
... tks_add_tests(two SOURCES "$<TARGET_FILE:(x)>" TIMEOUT 9
...               ENDURANCE "Slow.*:Long.*")''')
[('one', ''), ('two', 'Slow.*:Long.*')]
"""
import re

CALL = re.compile(r"tks_add_tests\((\w+)([^()]*(?:\([^()]*\)[^()]*)*)\)")
SLOW = re.compile(r'ENDURANCE "([^"]+)"')


def programs_in(text):
    """Name, and the filter of the tests that take long: "" when none does."""
    return [(name, "".join(SLOW.findall(rest)[:1])) for name, rest in CALL.findall(text)]


def programs(tests, folders):
    """Folder, name and filter of those in some folders below the folder of all tests."""
    return [(folder, *program) for folder in folders for program in programs_in((tests / folder / "CMakeLists.txt").read_text())]
