#include "tools/tksctl/doubles/rule_book.h"

#include <utility>

namespace tks::ctl {
namespace {

using doctor::Finding;
using doctor::State;

constexpr ProtocolRule kRules[] = {
    {1, "the host chooses the channel"},
    {2, "standard output belongs to the frames"},
    {3, "the files of a channel are the host's"},
    {4, "a launcher ends with its channel"},
    {5, "a frame begins with the length of its payload"},
    {6, "a payload has at most 10485760 bytes"},
    {7, "a payload is a JSON object, and frames come in any pieces"},
    {8, "a message has \"message_type\" and \"message\""},
    {9, "names are matched exactly"},
    {10, "a body may be a text that holds JSON"},
    {11, "a message of an unknown type is ignored"},
    {12, "numbers and flags in bodies are texts"},
    {13, "\"hello\" is answered by \"hello_ack\""},
    {14, "\"launch_meeting\" has exactly one answer"},
    {15, "\"disconnect\" is answered by \"disconnect_ack\""},
    {16, "a later \"hello\" is answered as well"},
    {17, "a refusal says why"},
    {18, "a launcher that updated itself quits"},
    {19, "the host repeats its greeting"},
    {20, "\"disconnect\" is answered at any time"},
};

}  // namespace

std::span<const ProtocolRule> protocolRules() { return kRules; }

void RuleBook::set(int rule, State state, std::string seen, std::string remedy, Exit code) {
  if (hasFailed(rule)) return;
  verdicts_[rule] = {"rule." + std::to_string(rule), {}, state, std::move(seen), std::move(remedy), code};
}

void RuleBook::pass(int rule, std::string seen) { set(rule, State::pass, std::move(seen), {}, Exit::ok); }

void RuleBook::skip(int rule, std::string seen) { set(rule, State::skip, std::move(seen), {}, Exit::ok); }

void RuleBook::fail(int rule, std::string seen, std::string remedy, Exit code) {
  set(rule, State::fail, std::move(seen), std::move(remedy), code);
}

bool RuleBook::hasFailed(int rule) const {
  const auto known = verdicts_.find(rule);
  return known != verdicts_.end() && known->second.state == State::fail;
}

std::vector<Finding> RuleBook::findings() const {
  std::vector<Finding> all;
  for (const ProtocolRule& rule : kRules) {
    const auto known = verdicts_.find(rule.number);
    Finding finding{"rule." + std::to_string(rule.number), {}, State::skip, "the launcher did not come that far"};
    if (known != verdicts_.end()) finding = known->second;
    finding.title = "rule " + std::to_string(rule.number) + ", " + std::string(rule.text);
    all.push_back(std::move(finding));
  }
  return all;
}

}  // namespace tks::ctl
