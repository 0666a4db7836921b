#pragma once

#include <map>
#include <span>
#include <string>
#include <string_view>

#include "tools/tksctl/doctor/report.h"

namespace tks::ctl {

/// A rule of the protocol: its number on the page docs/protocol.md, and what it asks of a launcher in few words.
struct ProtocolRule {
  int number;
  std::string_view text;
};

/// All of them.
std::span<const ProtocolRule> protocolRules();

/// How a launcher keeps each rule. Of several verdicts about one the first failure stays, else the last.
class RuleBook {
 public:
  void pass(int rule, std::string seen);
  void skip(int rule, std::string seen);
  void fail(int rule, std::string seen, std::string remedy, Exit code = Exit::failed);

  bool hasFailed(int rule) const;
  /// Every rule in its order; what nothing was said of counts as left out.
  std::vector<doctor::Finding> findings() const;

 private:
  void set(int rule, doctor::State state, std::string seen, std::string remedy, Exit code);

  std::map<int, doctor::Finding> verdicts_;
};

}  // namespace tks::ctl
