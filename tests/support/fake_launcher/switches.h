#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

// What the launcher is asked to do wrong.

namespace fake_launcher {

/// Ends the process at once.
[[noreturn]] void quit(int code);
/// The same after a word about what is wrong with the switches, and a list of all.
[[noreturn]] void misuse(const std::string& problem);

void sleepFor(double seconds);
/// "5ms", "5s" or "5" as seconds.
double seconds(const std::string& text);
/// "5", "5K" or "5M" as bytes.
std::uint64_t bytes(const std::string& text);

class Switches {
 public:
  void add(const std::vector<std::string>& words);
  bool has(const char* name) const { return values_.count(name) != 0; }
  std::string text(const char* name) const { return has(name) ? values_.at(name) : std::string(); }
  std::uint64_t size(const char* name) const { return bytes(text(name)); }
  double time(const char* name, double otherwise = 0) const { return has(name) ? seconds(text(name)) : otherwise; }

 private:
  std::map<std::string, std::string> values_;
};

/// Those of this process.
extern Switches switches;
/// Reads them from the file beside the executable and from the environment.
void readSwitches();

/// A path as it is, or below the executable's folder.
std::string resolved(const std::string& path);
std::string contentOf(const std::string& path);
/// Written under another name first, so that whoever waits for the file finds it whole.
void writeFile(const std::string& path, const std::string& content);

}  // namespace fake_launcher
