#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <tksinterface/TKSMessage.h>
#include <tksinterface/TKSValue.h>

/// What a fake launcher does, as a JSON object that a developer writes. docs/testing.md is the guide,
/// docs/fake-launcher.schema.json the form.
///
///   {"version": "5.1.0",
///    "on": {"launch_meeting": [{"wait": 0.2}, {"error": "2006", "text": "busy"}], "disconnect": []}}
namespace tks::fake {

/// One thing that a fake launcher does.
struct Step {
  enum class Kind : std::uint8_t {
    answer,   ///< what a launcher without faults does with the message
    wait,     ///< nothing, for `seconds`
    send,     ///< sends `message`
    raw,      ///< writes `bytes` to the channel as they are
    silence,  ///< answers nothing any more
    update,   ///< puts the next launcher in this one's place and says so
    exit,     ///< ends with the code `number`
    signal,   ///< ends itself by the signal `number`
  };
  Kind kind = Kind::answer;
  double seconds = 0;
  TKSMessage message{};
  std::string bytes{};
  int number = 0;
};
using Steps = std::vector<Step>;

/// The whole script.
struct Behaviour {
  /// Of the launcher; empty when the script does not say.
  std::string version;
  /// Before the first message.
  Steps start;
  /// After the end of the channel; then the launcher ends in any case.
  Steps end;
  /// By the type of a message: what to do with the first such message, the second and so on; the last counts for all
  /// that follow. A type that is not named is answered as it should be.
  std::map<std::string, std::vector<Steps>, std::less<>> on;
  /// The script of the launcher that this one updates itself to; nothing: there is none.
  std::optional<TKSDictionary> update;
};

/// Where a launcher keeps its script, and the next launcher, below its bundle.
inline constexpr std::string_view kScriptInBundle = "Contents/Resources/behaviour.json";
inline constexpr std::string_view kUpdateInBundle = "Contents/Resources/Update";

/// Reads a script with all that it updates to. Nothing when it is wrong; `problem` then says where and why in one line:
/// 'on.hello[1]: there is no step "wai"; ...'.
std::optional<Behaviour> readBehaviour(const TKSValue& script, std::string& problem);

}  // namespace tks::fake
