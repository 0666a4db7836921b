#pragma once

#include <atomic>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <tksinterface/c/tksinterface.h>

namespace tks::test {

/// Plays a host in C: a context that counts what it hears.
struct CHost {
  std::atomic<int> finished = 0;
  std::atomic<int> failed = 0;
  std::atomic<int> released = 0;
  /// Called back, or released once more, after the release.
  std::atomic<int> afterRelease = 0;
  std::thread::id releasedOn;
  std::string domain, text, reason;
  std::int64_t code = -1;
  std::vector<std::string> lines;

  static CHost& of(void* context) {
    CHost& host = *static_cast<CHost*>(context);
    if (host.released > 0) ++host.afterRelease;
    return host;
  }
  static void finish(void* context) { ++of(context).finished; }
  static void fail(void* context, const tks_error* error) {
    CHost& host = of(context);
    host.domain = error->domain;
    host.code = error->code;
    host.text = error->text;
    host.reason = error->reason_name;
    ++host.failed;
  }
  static void log(void* context, std::int32_t level, const char* line) {
    of(context).lines.push_back(std::to_string(level) + " " + line);
  }
  static void release(void* context) {
    CHost& host = of(context);
    host.releasedOn = std::this_thread::get_id();
    ++host.released;
  }
  bool isOver() const { return finished + failed > 0 && released > 0; }
};

/// A text that the library returned, freed.
inline std::string taken(char* text) {
  std::string copy = text == nullptr ? "(null)" : text;
  tks_free(text);
  return copy;
}

}  // namespace tks::test
