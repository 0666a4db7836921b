#pragma once

#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

#include <tksinterface/TKSCallbacks.h>
#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSValue.h>
#include <tksinterface/c/tksinterface.h>

// What the functions of the C interface share: contexts, callbacks and texts on their way between C and C++.

namespace tks::c {

/// Writes the line about what was caught at the boundary, from within a catch clause.
void logCaught(std::string_view function) noexcept;

/// Does the work of a C function. What is thrown ends here, with a line, and `otherwise` is returned.
template <class Work>
auto guarded(std::string_view function, Work work, std::invoke_result_t<Work> otherwise) noexcept
    -> std::invoke_result_t<Work> {
  try {
    return work();
  } catch (...) {
    logCaught(function);
    return otherwise;
  }
}

/// The same for a function that returns nothing.
template <class Work>
void guarded(std::string_view function, Work work) noexcept {
  try {
    work();
  } catch (...) {
    logCaught(function);
  }
}

/// A host's context: whoever may call back with it shares it, and the last one of them releases it.
class Context {
 public:
  /// Where the release function is called.
  enum class ReleasedOn { mainThread, anyThread };

  Context(void* pointer, tks_release_fn release, ReleasedOn where) noexcept
      : pointer_(pointer), release_(release), where_(where) {}
  ~Context();
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;

  void* pointer() const noexcept { return pointer_; }

 private:
  void* const pointer_;
  const tks_release_fn release_;
  const ReleasedOn where_;
};
using SharedContext = std::shared_ptr<const Context>;

/// Calls the release function, if there is one, here and now.
void releaseNow(void* pointer, tks_release_fn release) noexcept;

/// Null, and the context is released at once, when there is no memory to keep it.
SharedContext keep(void* pointer, tks_release_fn release, Context::ReleasedOn where) noexcept;

/// The callbacks of one call in C++: whichever is called first ends the call, and its context is released after that.
/// The library keeps callbacks longer than it calls them, and may tell an error after the end.
struct Callbacks {
  Callbacks(tks_finish_fn finished, tks_error_fn failed, SharedContext context);

  TKSFinishBlock finish;
  /// Empty without an error callback of the host.
  TKSErrorBlock error;
};

/// Calls an error callback, if there is one, here and now.
void tell(tks_error_fn failed, void* context, const TKSError& error);

/// The error about an argument that is missing.
TKSError missingArgument(std::string_view name);

/// A text for the caller, who frees it; null without memory.
char* copyForCaller(std::string_view text) noexcept;
/// A value as JSON for the caller; null, with a line, for what JSON cannot hold.
char* jsonForCaller(const TKSValue& value);

/// A text that may be missing.
inline std::string_view textOrEmpty(const char* text) { return text == nullptr ? std::string_view() : text; }

/// False, with a line, elsewhere than on the main thread.
bool isOnMainThread(std::string_view function);

}  // namespace tks::c
