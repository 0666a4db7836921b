#include <cstdio>
#include <string>

// The plain functions are part of the library's interface by their names alone: a host may declare them itself. No
// header of the library is included here.

std::string removePII(const std::string& input);
std::string mask(std::string text, unsigned long start, unsigned long end);
std::string removeSensitiveInformationCpp(const std::string& input);
std::string removeSensitiveInformationCpp(const char* input);
std::string addMaskCpp(const std::string& input);
std::string addMaskCpp(const char* input);
std::string toLower(const std::string& input);

namespace {

int failures = 0;

void expect(const char* what, const std::string& found, const std::string& wanted) {
  if (found == wanted) return;
  ++failures;
  std::fprintf(stderr, "%s gives \"%s\", not \"%s\"\n", what, found.c_str(), wanted.c_str());
}

}  // namespace

int main() {
  const std::string path = "/Users/jane/file";
  const std::string masked = "/Users/****/file";
  expect("removePII", removePII(path), masked);
  expect("mask", mask("secret text", 0, 6), "sec*** text");
  expect("removeSensitiveInformationCpp of a text", removeSensitiveInformationCpp(path), masked);
  expect("removeSensitiveInformationCpp of characters", removeSensitiveInformationCpp(path.c_str()), masked);
  expect("removeSensitiveInformationCpp of nothing", removeSensitiveInformationCpp(static_cast<const char*>(nullptr)),
         "");
  expect("addMaskCpp of a text", addMaskCpp(std::string("secret")), "sec***");
  expect("addMaskCpp of characters", addMaskCpp("secret"), "sec***");
  expect("addMaskCpp of nothing", addMaskCpp(static_cast<const char*>(nullptr)), "");
  expect("toLower", toLower("ÄBC"), "Äbc");
  return failures == 0 ? 0 : 1;
}
