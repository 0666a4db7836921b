#include <algorithm>
#include <charconv>
#include <cstring>
#include <utility>
#include <vector>

#include "codesign/requirement/requirement.h"
#include "codesign/requirement/requirement_words.h"
#include "codesign/trust/certificate_facts.h"

// The text form of requirements.

namespace tks::codesign {
namespace {

using requirement::Match;
using requirement::Operation;
using requirement::Term;

std::string filled(std::string_view form, const Term& term);

/// What stands for a letter of a text form.
std::string part(char letter, const Term& term) {
  switch (letter) {
    case 's':
      return requirement::slotText(term.slot);
    case 'k':
      return term.key;
    case 'q':
      return requirement::plainOrQuoted(term.key);
    case 'Q':
      return requirement::quoted(term.key);
    case 'i':
      return decodeIdentifier(term.key);
    case 'v':
      return requirement::plainOrQuoted(term.value);
    case 'h':
      return requirement::hashText(term.value);
    case 'm':
      return filled(requirement::matchFormOf(static_cast<std::uint32_t>(term.match))->text, term);
    default:
      return {};
  }
}

/// A text form with its letters replaced.
std::string filled(std::string_view form, const Term& term) {
  std::string text;
  for (std::size_t i = 0; i < form.size(); ++i) {
    if (form[i] == '%') {
      text.append(part(form[++i], term));
    } else {
      text += form[i];
    }
  }
  return text;
}

/// Reads the text form. Operators that wait for their operands stand on a stack.
class TextReader {
 public:
  explicit TextReader(std::string_view text) : rest_(text) {}

  std::optional<std::vector<Term>> read() {
    bool operandComesNext = true;
    while (next()) {
      if (terms_.size() > requirement::kMostTerms || waiting_.size() > requirement::kMostTerms) return std::nullopt;
      if (operandComesNext) {
        if (is("!")) {
          waiting_.push_back('!');
        } else if (is("(")) {
          waiting_.push_back('(');
        } else {
          if (!readPrimary()) return std::nullopt;
          operandComesNext = false;
        }
      } else if (is(")")) {
        while (!waiting_.empty() && waiting_.back() != '(') apply();
        if (waiting_.empty()) return std::nullopt;
        waiting_.pop_back();
      } else if (is("and") || is("or")) {
        const char symbol = is("and") ? '&' : '|';
        while (!waiting_.empty() && waiting_.back() != '(' && strength(waiting_.back()) >= strength(symbol)) apply();
        waiting_.push_back(symbol);
        operandComesNext = true;
      } else {
        return std::nullopt;
      }
    }
    while (!waiting_.empty()) {
      if (operandComesNext || waiting_.back() == '(') return std::nullopt;
      apply();
    }
    if (malformed_ || operandComesNext) return std::nullopt;
    return std::move(terms_);
  }

 private:
  struct Token {
    enum class Kind { word, text, hash, symbol };
    Kind kind = Kind::symbol;
    std::string content;
  };

  static int strength(char symbol) { return symbol == '!' ? 3 : symbol == '&' ? 2 : 1; }

  bool is(std::string_view content) const {
    return token_.content == content && (token_.kind == Token::Kind::word || token_.kind == Token::Kind::symbol);
  }

  static bool isWordCharacter(char character) {
    return (character >= '0' && character <= '9') || ((character | 32) >= 'a' && (character | 32) <= 'z') ||
           character == '.' || character == '_' || character == '-' || static_cast<unsigned char>(character) >= 0x80;
  }

  void skipBlanks() {
    while (!rest_.empty()) {
      if (rest_.front() == ' ' || (rest_.front() >= '\t' && rest_.front() <= '\r')) {
        rest_.remove_prefix(1);
      } else if (rest_.starts_with("/*")) {
        const std::size_t end = rest_.find("*/", 2);
        rest_.remove_prefix(std::min(end, rest_.size() - 2) + 2);
      } else if (rest_.starts_with("//") || rest_.starts_with("#")) {
        rest_.remove_prefix(std::min(rest_.find('\n'), rest_.size()));
      } else {
        return;
      }
    }
  }

  /// Reads the next token; false at the end.
  bool next() {
    if (given_) {
      given_ = false;
      return true;
    }
    skipBlanks();
    if (rest_.empty()) return false;
    if (rest_.starts_with("H\"")) {
      rest_.remove_prefix(1);
      token_ = {Token::Kind::hash, takeQuoted()};
    } else if (rest_.front() == '"') {
      token_ = {Token::Kind::text, takeQuoted()};
    } else if (isWordCharacter(rest_.front())) {
      const auto end = std::find_if_not(rest_.begin(), rest_.end(), isWordCharacter);
      token_ = {Token::Kind::word, std::string(rest_.begin(), end)};
      rest_.remove_prefix(token_.content.size());
    } else {
      const std::size_t size = rest_.starts_with("<=") || rest_.starts_with(">=") || rest_.starts_with("=>") ? 2 : 1;
      token_ = {Token::Kind::symbol, std::string(rest_.substr(0, size))};
      rest_.remove_prefix(size);
    }
    return true;
  }
  void giveBack() { given_ = true; }
  bool nextIs(std::string_view content) {
    if (!next()) return false;
    if (is(content)) return true;
    giveBack();
    return false;
  }

  std::string takeQuoted() {
    std::string text;
    for (std::size_t i = 1; i < rest_.size(); ++i) {
      if (rest_[i] == '"') {
        rest_.remove_prefix(i + 1);
        return text;
      }
      if (rest_[i] == '\\' && i + 1 < rest_.size()) ++i;
      text += rest_[i];
    }
    malformed_ = true;
    rest_ = {};
    return text;
  }

  void apply() {
    const char symbol = waiting_.back();
    waiting_.pop_back();
    Term term;
    if (symbol == '!') {
      term.operation = Operation::negation;
      term.left = takeOperand();
    } else {
      term.operation = symbol == '&' ? Operation::both : Operation::either;
      term.right = takeOperand();
      term.left = takeOperand();
    }
    add(std::move(term));
  }

  std::size_t takeOperand() {
    if (operands_.empty()) {
      malformed_ = true;
      return 0;
    }
    const std::size_t operand = operands_.back();
    operands_.pop_back();
    return operand;
  }

  bool add(Term term) {
    terms_.push_back(std::move(term));
    operands_.push_back(terms_.size() - 1);
    return true;
  }
  bool add(Operation operation) {
    Term term;
    term.operation = operation;
    return add(std::move(term));
  }

  /// The current token begins a primary.
  bool readPrimary() {
    if (token_.kind != Token::Kind::word) return false;
    const std::string word = token_.content;
    Term term;
    if (word == "always" || word == "true") return add(Operation::always);
    if (word == "never" || word == "false") return add(Operation::never);
    if (word == "notarized") return add(Operation::notarized);
    if (word == "identifier") {
      term.operation = Operation::identifier;
      nextIs("=");
      return readText(term.value) && add(std::move(term));
    }
    if (word == "cdhash") {
      term.operation = Operation::cdHash;
      return readHash(term.value) && add(std::move(term));
    }
    if (word == "anchor") return readAnchor();
    if (word == "certificate" || word == "cert") return readCertificate();
    if (word == "info" || word == "entitlement") {
      term.operation = word == "info" ? Operation::infoField : Operation::entitlementField;
      return readKey(term.key) && readMatch(term) && add(std::move(term));
    }
    return false;
  }

  bool readAnchor() {
    if (nextIs("apple")) return add(nextIs("generic") ? Operation::appleGenericAnchor : Operation::appleAnchor);
    if (nextIs("trusted")) return add(Operation::trustedCertificates);
    return readCertificateRest(-1);
  }

  bool readCertificate() {
    if (!next()) return false;
    if (is("leaf")) return readCertificateRest(0);
    if (is("root") || is("anchor")) return readCertificateRest(-1);
    std::int32_t slot = 0;
    const std::string& digits = token_.content;
    const auto [stop, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), slot);
    if (failure != std::errc() || stop != digits.data() + digits.size()) return false;
    return readCertificateRest(slot);
  }

  bool readCertificateRest(std::int32_t slot) {
    Term term;
    term.slot = slot;
    if (nextIs("=")) {
      term.operation = Operation::anchorHash;
      return readHash(term.value) && add(std::move(term));
    }
    if (nextIs("trusted")) {
      term.operation = Operation::trustedCertificate;
      return add(std::move(term));
    }
    if (!readKey(term.key)) return false;
    term.operation = Operation::certificateField;
    for (const auto& [prefix, operation] :
         {std::pair("field.", Operation::certificateExtension), std::pair("policy.", Operation::certificatePolicy)}) {
      if (!term.key.starts_with(prefix)) continue;
      term.operation = operation;
      term.key = encodeIdentifier(std::string_view(term.key).substr(std::strlen(prefix)));
      if (term.key.empty()) return false;
      break;
    }
    return readMatch(term) && add(std::move(term));
  }

  bool readKey(std::string& key) { return nextIs("[") && readText(key) && nextIs("]"); }

  /// A text; a word that begins with 0x stands for the bytes that follow.
  bool readText(std::string& text) {
    if (!next() || (token_.kind != Token::Kind::word && token_.kind != Token::Kind::text)) return false;
    if (token_.kind == Token::Kind::word && token_.content.starts_with("0x")) {
      return decode(std::string_view(token_.content).substr(2), text);
    }
    text = token_.content;
    return true;
  }

  bool readHash(std::string& hash) {
    return next() && token_.kind == Token::Kind::hash && decode(token_.content, hash);
  }

  static bool decode(std::string_view digits, std::string& bytes) {
    if (digits.size() % 2 != 0) return false;
    bytes.clear();
    for (std::size_t i = 0; i < digits.size(); i += 2) {
      unsigned byte = 0;
      const char* at = digits.data() + i;
      const auto [stop, failure] = std::from_chars(at, at + 2, byte, 16);
      if (failure != std::errc() || stop != at + 2) return false;
      bytes += static_cast<char>(byte);
    }
    return true;
  }

  bool readMatch(Term& term) {
    constexpr std::pair<std::string_view, Match> kOrders[] = {
        {"<=", Match::lessOrEqual}, {">=", Match::greaterOrEqual}, {"<", Match::less}, {">", Match::greater}};
    if (nextIs("exists")) return true;
    if (nextIs("absent")) {
      term.match = Match::absent;
      return true;
    }
    for (const auto& [symbol, match] : kOrders) {
      if (!nextIs(symbol)) continue;
      term.match = match;
      return readText(term.value);
    }
    if (!nextIs("=")) return true;
    nextIs("=");
    const bool open = nextIs("*");
    if (!readText(term.value)) return false;
    const bool openEnd = nextIs("*");
    term.match = open ? (openEnd ? Match::contains : Match::endsWith) : openEnd ? Match::beginsWith : Match::equal;
    return true;
  }

  std::string_view rest_;
  Token token_;
  bool given_ = false;
  bool malformed_ = false;
  std::vector<Term> terms_;
  std::vector<char> waiting_;
  std::vector<std::size_t> operands_;
};

}  // namespace

std::optional<Requirement> Requirement::fromText(std::string_view text) {
  std::optional<std::vector<Term>> terms = TextReader(text).read();
  if (!terms) return std::nullopt;
  return Requirement(*std::move(terms));
}

std::string Requirement::text() const {
  std::vector<std::string> texts(terms_.size());
  const auto operand = [&](std::size_t index, Operation around) {
    const bool weaker = terms_[index].operation == Operation::either
                            ? around != Operation::either
                            : terms_[index].operation == Operation::both && around == Operation::negation;
    std::string text = std::move(texts[index]);
    return weaker ? "(" + text + ")" : text;
  };
  for (std::size_t i = 0; i < terms_.size(); ++i) {
    const Term& term = terms_[i];
    const requirement::OperationForm& form = requirement::formOf(term.operation);
    if (form.operands == 2) {
      texts[i] = operand(term.left, term.operation).append(form.text).append(operand(term.right, term.operation));
    } else if (form.operands == 1) {
      texts[i] = std::string(form.text).append(operand(term.left, term.operation));
    } else {
      texts[i] = filled(form.text, term);
    }
  }
  return texts.empty() ? std::string() : texts.back();
}

}  // namespace tks::codesign
