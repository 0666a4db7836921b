#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <tksinterface/TKSOptions.h>

namespace tks {

/// One option: the only place beside its field where it has to be named.
struct OptionRow {
  /// A switch, a number, a text, or a list of texts.
  using Field = std::variant<bool TKSOptions::*, std::int64_t TKSOptions::*, std::string TKSOptions::*,
                             std::vector<std::string> TKSOptions::*>;

  /// The field's name, which is the one in JSON as well.
  std::string_view name;
  Field field;
  /// Of a number: "ms", "bytes" or nothing.
  std::string_view unit;
  /// What it does, in one sentence, for the log and for help.
  std::string_view effect;
};

/// Every option, group by group.
std::span<const OptionRow> optionRows();
/// Whether an option is on.
bool isOn(const OptionRow& row, const TKSOptions& options);
/// "NAME=VALUE" as people write it: a number, true or false, a text, a list apart by commas. False, and `error`, as for
/// TKSOptions::optionsFromDictionary.
bool setOption(TKSOptions& options, std::string_view assignment, TKSError* error);

/// The options of a process. Any thread.
class OptionsInForce {
 public:
  /// See TKSOptions::setOptions.
  bool set(const TKSOptions& options, TKSError* error);
  /// From now on they stay; logs those that are on, the first time.
  void settle();
  const TKSOptions& get() const { return *current_.load(std::memory_order_acquire); }

  /// Where the process's own stand; tests put others there for a scope.
  static std::atomic<OptionsInForce*>& slot();

 private:
  const TKSOptions off_{};
  std::atomic<const TKSOptions*> current_ = &off_;
  std::atomic<bool> isSettled_ = false;
  std::mutex mutex_;  // guards what follows
  /// Those before are still being read, perhaps.
  std::deque<TKSOptions> kept_;
};

/// The options of this process: two loads. Those who act on one of them ask at each use.
inline const TKSOptions& options() { return OptionsInForce::slot().load(std::memory_order_acquire)->get(); }
/// What begins a start, a launch or an installation calls this first.
inline void settleOptions() { OptionsInForce::slot().load(std::memory_order_acquire)->settle(); }

}  // namespace tks
