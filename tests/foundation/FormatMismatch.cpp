// Compiled by tests only to see which of these lines the compiler accepts: MISMATCH 0 must compile, all others must
// not.

#include <tksinterface/TKSFormat.h>

#include <string>

namespace {

struct Opaque {};

std::string line() {
#if MISMATCH == 0
  return tks::formatted("%@ %d", "text", 1);
#elif MISMATCH == 1
  return tks::formatted("%d", "a text for a number");
#elif MISMATCH == 2
  return tks::formatted("%@", 1);
#elif MISMATCH == 3
  return tks::formatted("%@ %@", "one argument too few");
#elif MISMATCH == 4
  return tks::formatted("%@", "one argument", "too many");
#elif MISMATCH == 5
  return tks::formatted("%f", 1);
#elif MISMATCH == 6
  return tks::formatted("a single %");
#elif MISMATCH == 7
  return tks::formatted("%l", 1);
#elif MISMATCH == 8
  return tks::formatted("%@", Opaque());
#elif MISMATCH == 9
  const std::string text = "made while running %@";
  return tks::formatted(text, "x");
#elif MISMATCH == 10
  return tks::formatted("%@", nullptr);
#endif
}

}  // namespace

int main() { return static_cast<int>(line().size()); }
