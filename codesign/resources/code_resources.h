#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "codesign/container/byte_source.h"
#include "codesign/container/digest.h"
#include "codesign/resources/rule_patterns.h"

// The seal over a bundle's resources: _CodeSignature/CodeResources, a property list.
//
//   files   path -> hash, or { hash, optional }                                             version 1
//   files2  path -> { hash, hash2, ... } | { symlink } | { cdhash, requirement }; optional  version 2, wins when it is
//   there rules   expression -> true | false (omit) | { weight, omit, optional, nested }          rules2 for version 2
//
// Paths count from the support folder. The matching rule with the greatest weight says what becomes of a file.

namespace tks::codesign {

/// What a seal's entry says of its path.
struct Seal {
  enum class Kind : std::uint8_t {
    file,     ///< `hashes` has the hash of each wanted type
    link,     ///< `text` is its target
    nested,   ///< `text` is the requirement that the nested code has to meet
    invalid,  ///< the entry has a wrong shape
  };
  Kind kind = Kind::invalid;  ///< what has to be there
  bool optional = false;      ///< it may be missing
  /// A file for which the seal has no hash at all.
  bool withoutHash = false;
  /// A file whose hash has another length than its type gives.
  bool neverMatches = false;
  std::string_view path;  ///< below the support folder
  std::string_view text;  ///< by kind, see there
  Bytes hashes;           ///< by kind, one after the other in the order of the types
};

/// What the rules say of a path.
struct RuleVerdict {
  bool sealed = false;    ///< a rule matches, and it does not leave the path out
  bool excluded = false;  ///< left out by `exclude`, whatever the rules say
  bool nested = false;    ///< it is code with a signature of its own
};

class CodeResources {
 public:
  /// How much of a seal a file holds.
  enum class Form {
    damaged,       ///< no property list
    incomplete,    ///< without the dictionaries that every seal has
    withoutRules,  ///< with the dictionaries, but no rule in them
    usable,        ///< whole
  };

  /// Reads the seal for a signature with these hash types; hashes of other types are passed over. The whole file is
  /// hashed by `digestType` while it is read, so that exactly the checked bytes are used.
  CodeResources(const ByteSource& source, const std::vector<HashType>& types, HashType digestType);

  const Digest& digest() const { return digest_; }
  Form form() const { return form_; }
  int version() const { return version_; }
  std::size_t size() const { return entries_.size(); }
  /// Entries are numbered in the byte order of their paths.
  Seal seal(std::size_t number) const;
  std::optional<std::uint32_t> find(std::string_view path) const;

  /// Leaves out a path and what is below it, whatever the rules say.
  void exclude(std::string path) { excluded_.push_back(std::move(path)); }
  /// To be called once before verdicts are asked for. Fails when a rule is no expression.
  void prepareRules();
  RuleVerdict verdict(std::string_view path);
  /// Whether the rules leave out more than they should.
  bool hasWeakRules() const;

 private:
  class Builder;
  struct Entry {
    std::uint32_t path = 0;                 ///< place in the arena
    std::uint32_t pathSize = 0;             ///< in bytes
    std::uint32_t content = 0;              ///< place of text or hashes in the arena
    std::uint32_t contentSize = 0;          ///< in bytes
    Seal::Kind kind = Seal::Kind::invalid;  ///< this and the next three: as in Seal
    bool optional = false;
    bool withoutHash = false;
    bool neverMatches = false;
  };
  struct Rule {
    std::string pattern;   ///< a POSIX extended regular expression
    double weight = 1;     ///< of the rules that match, the heaviest decides
    bool plain = false;    ///< just true
    bool omitted = false;  ///< it leaves files out
    bool nested = false;   ///< what it matches is code
    bool invalid = false;  ///< it has a wrong shape
  };

  std::string_view textAt(std::uint32_t at, std::uint32_t size) const {
    return std::string_view(arena_).substr(at, size);
  }

  Digest digest_;
  Form form_ = Form::damaged;
  int version_ = 1;
  /// All paths, targets, requirements and hashes, one after the other.
  std::string arena_;
  std::vector<Entry> entries_;
  std::vector<Rule> rules_;
  std::vector<std::string> excluded_;
  RulePatterns patterns_;
};

}  // namespace tks::codesign
