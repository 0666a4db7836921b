#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace tks::codesign {

/// Finds which of several POSIX extended regular expressions occur in a text, all in one pass over its bytes.
///
/// The C library's own matcher is not for expressions that come with somebody's bundle: it recurses on nesting, its
/// memory grows without bound on repetitions, and its results depend on the host's locale. This one is an automaton
/// whose states are made when they are first needed: time grows with the length of the text, memory is bounded.
///
/// Expressions: . [sets] ( ) | * + ? {m,n} ^ $ and \ before any character. Case sensitive; ^ and $ stand for the ends
/// of the text.
class RulePatterns {
 public:
  /// Adds an expression; its number is the count of those added before. False when it is malformed or too large.
  bool add(std::string_view pattern);
  std::size_t size() const { return patterns_; }

  /// The numbers of all expressions that occur in the text, ascending. Holds until the next call.
  const std::vector<std::uint32_t>& find(std::string_view text);

 private:
  using Set = std::bitset<256>;
  enum class Kind : std::uint8_t {
    bytes,   ///< goes on with a byte of a set
    pass,    ///< goes on without one
    fork,    ///< goes on in two ways
    begin,   ///< goes on at the beginning of the text only
    end,     ///< goes on at its end only
    accept,  ///< an expression was found
  };
  struct Node {
    Kind kind = Kind::pass;   ///< how the automaton goes on from here
    std::uint32_t next = 0;   ///< to which node
    std::uint32_t other = 0;  ///< fork: the second way; bytes: the set; accept: the expression
  };
  /// Nodes of a part of an expression: [low, high), entered at `start`, left at `finish`.
  struct Fragment {
    std::uint32_t low = 0;
    std::uint32_t high = 0;
    std::uint32_t start = 0;
    std::uint32_t finish = 0;
  };
  class Parser;

  /// A set of nodes where the automaton may be, closed under passing without a byte.
  struct State {
    const std::vector<std::uint32_t>* nodes = nullptr;  ///< its key in numbers_
    std::array<std::uint32_t, 256> next{};              ///< 0: not made yet; else the number of the state plus one
    std::optional<std::vector<std::uint32_t>> found;    ///< expressions that are found when the text ends here
  };

  std::uint32_t addNode(Node node);
  std::vector<std::uint32_t> closed(std::vector<std::uint32_t> from, bool atBegin, bool atEnd);
  std::uint32_t stateFor(std::vector<std::uint32_t> nodes);
  std::uint32_t step(std::uint32_t state, std::uint8_t byte);
  std::uint32_t makeRoom(std::uint32_t state);
  void forgetStates();

  std::vector<Node> nodes_;
  std::vector<Set> sets_;
  std::vector<std::uint32_t> starts_;
  std::uint32_t patterns_ = 0;

  std::vector<std::unique_ptr<State>> states_;
  std::map<std::vector<std::uint32_t>, std::uint32_t> numbers_;
  std::size_t storedNodes_ = 0;
  std::vector<std::uint32_t> restart_;  ///< where a later beginning of a match is
  std::vector<std::uint32_t> marks_;
  std::uint32_t mark_ = 0;
};

}  // namespace tks::codesign
