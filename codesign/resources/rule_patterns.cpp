#include "codesign/resources/rule_patterns.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

namespace tks::codesign {
namespace {

constexpr std::size_t kLongestPattern = 4096;
/// Of one expression, and of all.
constexpr std::size_t kMostNodesOfOne = 8192;
constexpr std::size_t kMostNodes = std::size_t{1} << 16;
constexpr std::size_t kMostStates = 1024;
constexpr std::size_t kMostStoredNodes = std::size_t{1} << 18;
constexpr std::uint32_t kLargestRepetition = 255;
constexpr std::uint32_t kNoLimit = UINT32_MAX;

struct NamedClass {
  std::string_view name;
  bool (*contains)(unsigned byte);
};
constexpr bool isUpper(unsigned byte) { return byte >= 'A' && byte <= 'Z'; }
constexpr bool isLower(unsigned byte) { return byte >= 'a' && byte <= 'z'; }
constexpr bool isDigit(unsigned byte) { return byte >= '0' && byte <= '9'; }
constexpr bool isSpace(unsigned byte) { return byte == ' ' || (byte >= '\t' && byte <= '\r'); }
constexpr bool isGraph(unsigned byte) { return byte > ' ' && byte < 0x7f; }
constexpr bool isAlpha(unsigned byte) { return isUpper(byte) || isLower(byte); }
constexpr bool isAlnum(unsigned byte) { return isAlpha(byte) || isDigit(byte); }
constexpr NamedClass kClasses[] = {
    {"alpha", isAlpha},
    {"digit", isDigit},
    {"alnum", isAlnum},
    {"upper", isUpper},
    {"lower", isLower},
    {"space", isSpace},
    {"blank", [](unsigned byte) { return byte == ' ' || byte == '\t'; }},
    {"punct", [](unsigned byte) { return isGraph(byte) && !isAlnum(byte); }},
    {"print", [](unsigned byte) { return isGraph(byte) || byte == ' '; }},
    {"graph", isGraph},
    {"cntrl", [](unsigned byte) { return byte < ' ' || byte == 0x7f; }},
    {"xdigit",
     [](unsigned byte) { return isDigit(byte) || (byte >= 'a' && byte <= 'f') || (byte >= 'A' && byte <= 'F'); }},
};

}  // namespace

/// Reads one expression into nodes. What is open stands on a stack, so that nesting costs no recursion.
class RulePatterns::Parser {
 public:
  Parser(RulePatterns& owner, std::string_view pattern) : owner_(owner), before_(owner.nodes_.size()), rest_(pattern) {}

  /// Nothing when the expression is malformed or too large.
  std::optional<Fragment> parse() {
    open_.emplace_back();
    while (!rest_.empty()) {
      if (!parseOne() || owner_.nodes_.size() - before_ > kMostNodesOfOne) return std::nullopt;
    }
    if (open_.size() != 1) return std::nullopt;
    return closeGroup();
  }

 private:
  /// A group that is still open: its finished alternatives and the sequence being read.
  struct Group {
    std::optional<Fragment> alternatives;
    std::optional<Fragment> sequence;
    std::optional<Fragment> last;  ///< what a repetition would repeat
    bool lastMayRepeat = false;
  };

  char take() {
    const char character = rest_.front();
    rest_.remove_prefix(1);
    return character;
  }

  bool parseOne() {
    const char character = take();
    switch (character) {
      case '(':
        settle();
        open_.emplace_back();
        return true;
      case ')': {
        if (open_.size() == 1) return false;
        const Fragment group = closeGroup();
        append(group, true);
        return true;
      }
      case '|':
        endAlternative();
        return true;
      case '*':
        return repeat(0, kNoLimit);
      case '+':
        return repeat(1, kNoLimit);
      case '?':
        return repeat(0, 1);
      case '{':
        return parseInterval();
      case '^':
        append(single(Kind::begin), false);
        return true;
      case '$':
        append(single(Kind::end), false);
        return true;
      case '.':
        append(bytes(Set().set()), true);
        return true;
      case '[':
        return parseSet();
      case '\\':
        if (rest_.empty()) return false;
        append(bytes(only(take())), true);
        return true;
      default:
        append(bytes(only(character)), true);
        return true;
    }
  }

  static Set only(char character) {
    Set set;
    set.set(static_cast<unsigned char>(character));
    return set;
  }

  Fragment bytes(const Set& set) {
    owner_.sets_.push_back(set);
    Fragment fragment = single(Kind::bytes);
    owner_.nodes_[fragment.start].other = static_cast<std::uint32_t>(owner_.sets_.size() - 1);
    return fragment;
  }

  Fragment single(Kind kind) {
    const std::uint32_t start = owner_.addNode({kind, 0, 0});
    const std::uint32_t finish = owner_.addNode({Kind::pass, 0, 0});
    owner_.nodes_[start].next = finish;
    return {start, finish + 1, start, finish};
  }

  Fragment empty() {
    const std::uint32_t node = owner_.addNode({Kind::pass, 0, 0});
    return {node, node + 1, node, node};
  }

  Fragment joined(const Fragment& first, const Fragment& second) {
    owner_.nodes_[first.finish].next = second.start;
    return {first.low, second.high, first.start, second.finish};
  }

  /// Moves what may no longer be repeated into the sequence.
  void settle() {
    Group& group = open_.back();
    if (!group.last) return;
    group.sequence = group.sequence ? joined(*group.sequence, *group.last) : *group.last;
    group.last.reset();
  }

  void append(const Fragment& fragment, bool mayRepeat) {
    settle();
    open_.back().last = fragment;
    open_.back().lastMayRepeat = mayRepeat;
  }

  void endAlternative() {
    settle();
    Group& group = open_.back();
    const Fragment sequence = group.sequence ? *group.sequence : empty();
    group.sequence.reset();
    if (!group.alternatives) {
      group.alternatives = sequence;
      return;
    }
    const std::uint32_t finish = owner_.addNode({Kind::pass, 0, 0});
    const std::uint32_t start = owner_.addNode({Kind::fork, group.alternatives->start, sequence.start});
    owner_.nodes_[group.alternatives->finish].next = finish;
    owner_.nodes_[sequence.finish].next = finish;
    group.alternatives = Fragment{group.alternatives->low, start + 1, start, finish};
  }

  Fragment closeGroup() {
    endAlternative();
    const Fragment whole = *open_.back().alternatives;
    open_.pop_back();
    return whole;
  }

  /// A copy of a fragment after all nodes. What is in a fragment points only into it.
  Fragment copy(const Fragment& fragment) {
    const std::uint32_t shift = static_cast<std::uint32_t>(owner_.nodes_.size()) - fragment.low;
    for (std::uint32_t i = fragment.low; i < fragment.high; ++i) {
      Node node = owner_.nodes_[i];
      node.next += shift;
      if (node.kind == Kind::fork) node.other += shift;
      owner_.addNode(node);
    }
    return {fragment.low + shift, fragment.high + shift, fragment.start + shift, fragment.finish + shift};
  }

  /// The fragment once or not at all, or as often as wanted.
  Fragment optional(const Fragment& fragment, bool again) {
    const std::uint32_t finish = owner_.addNode({Kind::pass, 0, 0});
    const std::uint32_t start = owner_.addNode({Kind::fork, fragment.start, finish});
    owner_.nodes_[fragment.finish].next = again ? start : finish;
    return {fragment.low, start + 1, start, finish};
  }

  bool repeat(std::uint32_t least, std::uint32_t most) {
    Group& group = open_.back();
    if (!group.last || !group.lastMayRepeat) return false;
    const Fragment one = *group.last;
    const std::uint32_t copies = most == kNoLimit ? std::max(least, 1u) : most;
    if (std::uint64_t{copies} * (one.high - one.low + 2) > kMostNodesOfOne) return false;
    if (most == 0) {
      // Not to be met at all; its nodes stay unused.
      group.last = empty();
      group.last->low = one.low;
      return true;
    }
    // All copies are taken before the first is joined, while the original points to nothing outside.
    std::vector<Fragment> parts{one};
    for (std::uint32_t i = 1; i < copies; ++i) parts.push_back(copy(one));
    std::optional<Fragment> whole;
    for (std::uint32_t i = 0; i < copies; ++i) {
      Fragment part = parts[i];
      const bool last = i + 1 == copies;
      if (most == kNoLimit && last) {
        part = least == 0 ? optional(part, true) : onceOrMore(part);
      } else if (i >= least) {
        part = optional(part, false);
      }
      whole = whole ? joined(*whole, part) : part;
    }
    whole->low = one.low;
    whole->high = static_cast<std::uint32_t>(owner_.nodes_.size());
    group.last = whole;
    return true;
  }

  Fragment onceOrMore(const Fragment& fragment) {
    const std::uint32_t finish = owner_.addNode({Kind::pass, 0, 0});
    const std::uint32_t again = owner_.addNode({Kind::fork, fragment.start, finish});
    owner_.nodes_[fragment.finish].next = again;
    return {fragment.low, again + 1, fragment.start, finish};
  }

  std::optional<std::uint32_t> takeNumber() {
    std::optional<std::uint32_t> number;
    while (!rest_.empty() && isDigit(static_cast<unsigned char>(rest_.front()))) {
      number = number.value_or(0) * 10 + static_cast<std::uint32_t>(take() - '0');
      if (*number > kLargestRepetition) return std::nullopt;
    }
    return number;
  }

  /// {m} {m,} {m,n}
  bool parseInterval() {
    const std::optional<std::uint32_t> least = takeNumber();
    if (!least) return false;
    std::uint32_t most = *least;
    if (rest_.starts_with(',')) {
      take();
      most = kNoLimit;
      if (!rest_.starts_with('}')) {
        const std::optional<std::uint32_t> limit = takeNumber();
        if (!limit) return false;
        most = *limit;
      }
    }
    if (!rest_.starts_with('}') || most < *least) return false;
    take();
    return repeat(*least, most);
  }

  /// One member of a set: a character, or what [.x.] and [=x=] stand for.
  std::optional<unsigned char> takeMember() {
    if (rest_.starts_with("[.") || rest_.starts_with("[=")) {
      const char closing[] = {rest_[1], ']'};
      if (rest_.size() < 5 || rest_.substr(3, 2) != std::string_view(closing, 2)) return std::nullopt;
      const auto member = static_cast<unsigned char>(rest_[2]);
      rest_.remove_prefix(5);
      return member;
    }
    return static_cast<unsigned char>(take());
  }

  /// [:name:]
  bool takeClass(Set& set) {
    const std::size_t end = rest_.find(":]");
    if (end == std::string_view::npos) return false;
    const std::string_view name = rest_.substr(2, end - 2);
    rest_.remove_prefix(end + 2);
    for (const NamedClass& known : kClasses) {
      if (known.name != name) continue;
      for (unsigned byte = 0; byte < 256; ++byte) {
        if (known.contains(byte)) set.set(byte);
      }
      return true;
    }
    return false;
  }

  bool takeRange(Set& set) {
    const std::optional<unsigned char> low = takeMember();
    if (!low) return false;
    unsigned char high = *low;
    if (rest_.size() >= 2 && rest_[0] == '-' && rest_[1] != ']') {
      take();
      const std::optional<unsigned char> end = takeMember();
      if (!end || *end < *low) return false;
      high = *end;
    }
    for (unsigned byte = *low; byte <= high; ++byte) set.set(byte);
    return true;
  }

  bool parseSet() {
    Set set;
    const bool negated = rest_.starts_with('^');
    if (negated) take();
    for (bool first = true; !rest_.empty(); first = false) {
      if (rest_.front() == ']' && !first) {
        take();
        append(bytes(negated ? ~set : set), true);
        return true;
      }
      if (!(rest_.starts_with("[:") ? takeClass(set) : takeRange(set))) return false;
    }
    return false;
  }

  RulePatterns& owner_;
  const std::size_t before_;  ///< nodes of other expressions
  std::string_view rest_;
  std::vector<Group> open_;
};

std::uint32_t RulePatterns::addNode(Node node) {
  nodes_.push_back(node);
  return static_cast<std::uint32_t>(nodes_.size() - 1);
}

bool RulePatterns::add(std::string_view pattern) {
  forgetStates();
  if (pattern.size() > kLongestPattern) return false;
  const std::optional<Fragment> whole = Parser(*this, pattern).parse();
  if (!whole || nodes_.size() > kMostNodes) return false;
  const std::uint32_t accept = addNode({Kind::accept, 0, patterns_++});
  nodes_[whole->finish].next = accept;
  starts_.push_back(whole->start);
  return true;
}

void RulePatterns::forgetStates() {
  states_.clear();
  numbers_.clear();
  storedNodes_ = 0;
}

/// Everything that can be reached without a byte, sorted.
std::vector<std::uint32_t> RulePatterns::closed(std::vector<std::uint32_t> from, bool atBegin, bool atEnd) {
  marks_.resize(nodes_.size());
  ++mark_;
  std::vector<std::uint32_t> nodes;
  while (!from.empty()) {
    const std::uint32_t number = from.back();
    from.pop_back();
    if (std::exchange(marks_[number], mark_) == mark_) continue;
    const Node& node = nodes_[number];
    switch (node.kind) {
      case Kind::bytes:
      case Kind::accept:
        nodes.push_back(number);
        break;
      case Kind::end:
        nodes.push_back(number);
        if (atEnd) from.push_back(node.next);
        break;
      case Kind::begin:
        if (atBegin) from.push_back(node.next);
        break;
      case Kind::fork:
        from.push_back(node.other);
        [[fallthrough]];
      case Kind::pass:
        from.push_back(node.next);
        break;
    }
  }
  std::ranges::sort(nodes);
  return nodes;
}

std::uint32_t RulePatterns::stateFor(std::vector<std::uint32_t> nodes) {
  const auto [entry, isNew] = numbers_.try_emplace(std::move(nodes), static_cast<std::uint32_t>(states_.size()));
  if (isNew) {
    states_.push_back(std::make_unique<State>());
    states_.back()->nodes = &entry->first;
    storedNodes_ += entry->first.size();
  }
  return entry->second;
}

std::uint32_t RulePatterns::step(std::uint32_t state, std::uint8_t byte) {
  if (const std::uint32_t known = states_[state]->next[byte]; known != 0) return known - 1;
  std::vector<std::uint32_t> moved = restart_;
  for (const std::uint32_t number : *states_[state]->nodes) {
    const Node& node = nodes_[number];
    if (node.kind == Kind::accept) moved.push_back(number);  // found once is found
    if (node.kind == Kind::bytes && sets_[node.other].test(byte)) moved.push_back(node.next);
  }
  const std::uint32_t next = stateFor(closed(std::move(moved), false, false));
  states_[state]->next[byte] = next + 1;
  return next;
}

/// Forgets all states but the first and this one when there are too many. Odd expressions only get here.
std::uint32_t RulePatterns::makeRoom(std::uint32_t state) {
  if (states_.size() < kMostStates && storedNodes_ < kMostStoredNodes) return state;
  std::vector<std::uint32_t> first = *states_[0]->nodes;
  std::vector<std::uint32_t> current = *states_[state]->nodes;
  forgetStates();
  stateFor(std::move(first));
  return stateFor(std::move(current));
}

const std::vector<std::uint32_t>& RulePatterns::find(std::string_view text) {
  if (states_.empty()) {
    stateFor(closed(starts_, true, false));  // number 0
    restart_ = closed(starts_, false, false);
  }
  std::uint32_t state = 0;
  for (const char character : text) state = makeRoom(step(state, static_cast<std::uint8_t>(character)));

  std::optional<std::vector<std::uint32_t>>& found = states_[state]->found;
  if (!found) {
    found.emplace();
    for (const std::uint32_t number : closed(*states_[state]->nodes, false, true)) {
      if (nodes_[number].kind == Kind::accept) found->push_back(nodes_[number].other);
    }
    std::ranges::sort(*found);
  }
  return *found;
}

}  // namespace tks::codesign
