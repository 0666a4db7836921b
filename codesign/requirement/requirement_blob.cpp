#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

#include "codesign/container/super_blob.h"
#include "codesign/requirement/requirement.h"

// The binary form of requirements.

namespace tks::codesign {
namespace {

using requirement::Term;

constexpr std::uint32_t kExpressionKind = 1;

void append32(TKSData& out, std::uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<std::uint8_t>(value >> shift));
}

void appendData(TKSData& out, std::string_view data) {
  append32(out, static_cast<std::uint32_t>(data.size()));
  out.insert(out.end(), data.begin(), data.end());
  out.resize((out.size() + 3) / 4 * 4);
}

/// Reads the binary form. Operators that wait for their operands stand on a stack.
class BlobReader {
 public:
  explicit BlobReader(Bytes rest) : rest_(rest) {}

  std::optional<std::vector<Term>> read() {
    std::vector<Open> open;
    while (true) {
      Term term;
      if (!readTerm(term) || terms_.size() + open.size() > requirement::kMostTerms) return std::nullopt;
      if (requirement::formOf(term.operation).operands > 0) {
        open.push_back({std::move(term), 0});
        continue;
      }
      terms_.push_back(std::move(term));
      // A complete operand may complete operators that wait for it.
      while (!open.empty()) {
        const std::size_t complete = terms_.size() - 1;
        Open& last = open.back();
        (last.operands++ == 0 ? last.term.left : last.term.right) = complete;
        if (last.operands < requirement::formOf(last.term.operation).operands) break;
        terms_.push_back(std::move(last.term));
        open.pop_back();
      }
      if (open.empty()) return std::move(terms_);
    }
  }

 private:
  struct Open {
    Term term;
    std::size_t operands;
  };

  bool take32(std::uint32_t& value) {
    if (rest_.size() < 4) return false;
    value = big32(rest_.data());
    rest_ = rest_.subspan(4);
    return true;
  }

  bool takeData(std::string& data) {
    std::uint32_t size = 0;
    if (!take32(size) || size > rest_.size()) return false;
    data.assign(rest_.begin(), rest_.begin() + static_cast<std::ptrdiff_t>(size));
    rest_ = rest_.subspan(std::min((std::size_t{size} + 3) / 4 * 4, rest_.size()));
    return true;
  }

  bool readTerm(Term& term) {
    std::uint32_t number = 0;
    if (!take32(number)) return false;
    const requirement::OperationForm* const form = requirement::formOf(number);
    if (form == nullptr) return false;
    term.operation = form->operation;
    std::uint32_t slot = 0;
    if (form->slot && !take32(slot)) return false;
    term.slot = static_cast<std::int32_t>(slot);
    if (form->key && !takeData(term.key)) return false;
    if (form->match && !readMatch(term)) return false;
    return !form->value || takeData(term.value);
  }

  bool readMatch(Term& term) {
    std::uint32_t number = 0;
    const requirement::MatchForm* const form = take32(number) ? requirement::matchFormOf(number) : nullptr;
    if (form == nullptr) return false;
    term.match = form->match;
    return !form->value || takeData(term.value);
  }

  Bytes rest_;
  std::vector<Term> terms_;
};

}  // namespace

std::optional<Requirement> Requirement::fromBlob(Bytes blob) {
  if (blob.size() < 12 || big32(blob.data()) != magic::kRequirement || big32(blob.data() + 4) != blob.size() ||
      big32(blob.data() + 8) != kExpressionKind) {
    return std::nullopt;
  }
  std::optional<std::vector<Term>> terms = BlobReader(blob.subspan(12)).read();
  if (!terms) return std::nullopt;
  return Requirement(*std::move(terms));
}

TKSData Requirement::blob() const {
  TKSData out;
  append32(out, magic::kRequirement);
  append32(out, 0);
  append32(out, kExpressionKind);
  std::vector<std::size_t> pending;
  if (!terms_.empty()) pending.push_back(terms_.size() - 1);
  while (!pending.empty()) {
    const Term& term = terms_[pending.back()];
    pending.pop_back();
    const requirement::OperationForm& form = requirement::formOf(term.operation);
    append32(out, static_cast<std::uint32_t>(term.operation));
    if (form.slot) append32(out, static_cast<std::uint32_t>(term.slot));
    if (form.key) appendData(out, term.key);
    if (form.match) {
      const auto number = static_cast<std::uint32_t>(term.match);
      append32(out, number);
      if (requirement::matchFormOf(number)->value) appendData(out, term.value);
    }
    if (form.value) appendData(out, term.value);
    if (form.operands == 2) pending.push_back(term.right);
    if (form.operands >= 1) pending.push_back(term.left);
  }
  TKSData size;
  append32(size, static_cast<std::uint32_t>(out.size()));
  std::ranges::copy(size, out.begin() + 4);
  return out;
}

std::optional<RequirementSet> RequirementSet::fromBlob(Bytes blob) {
  if (blob.size() < 12 || big32(blob.data()) != magic::kRequirements || big32(blob.data() + 4) != blob.size()) {
    return std::nullopt;
  }
  const std::uint32_t count = big32(blob.data() + 8);
  if (count > (blob.size() - 12) / 8 || count > 100) return std::nullopt;
  RequirementSet set;
  for (std::uint32_t i = 0; i < count; ++i) {
    const std::uint32_t offset = big32(blob.data() + 16 + 8 * i);
    if (offset > blob.size() || blob.size() - offset < 8) return std::nullopt;
    const std::uint32_t length = big32(blob.data() + offset + 4);
    if (length > blob.size() - offset) return std::nullopt;
    std::optional<Requirement> requirement = Requirement::fromBlob(blob.subspan(offset, length));
    if (!requirement) return std::nullopt;
    set.requirements_.emplace_back(big32(blob.data() + 12 + 8 * i), *std::move(requirement));
  }
  return set;
}

const Requirement* RequirementSet::find(RequirementType type) const {
  const auto found =
      std::ranges::find(requirements_, static_cast<std::uint32_t>(type), &std::pair<std::uint32_t, Requirement>::first);
  return found == requirements_.end() ? nullptr : &found->second;
}

std::string RequirementSet::text() const {
  constexpr std::string_view kNames[] = {"", "host", "guest", "designated", "library", "plugin"};
  std::string text;
  for (const auto& [type, requirement] : requirements_) {
    text.append(type < std::size(kNames) ? kNames[type] : std::to_string(type)).append(" => ");
    text.append(requirement.text()).append("\n");
  }
  return text;
}

}  // namespace tks::codesign
