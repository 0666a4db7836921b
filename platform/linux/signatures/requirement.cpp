#include "platform/linux/signatures/requirement.h"

#include <openssl/asn1.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>

#include "platform/linux/signatures/digest.h"
#include "platform/linux/signatures/super_blob.h"

namespace tks::codesign {
namespace {

constexpr std::size_t kMostTerms = 4096;
constexpr std::uint32_t kExpressionKind = 1;

struct SubjectField {
  std::string_view key;
  const char* identifier;
};
constexpr SubjectField kSubjectFields[] = {
    {"subject.C", "2.5.4.6"},          {"subject.CN", "2.5.4.3"},
    {"subject.D", "2.5.4.13"},         {"subject.L", "2.5.4.7"},
    {"subject.O", "2.5.4.10"},         {"subject.OU", "2.5.4.11"},
    {"subject.STREET", "2.5.4.9"},     {"subject.UID", "0.9.2342.19200300.100.1.1"},
    {"email", "1.2.840.113549.1.9.1"},
};

X509* certificateAt(const RequirementContext& context, std::int32_t slot) {
  const auto size = static_cast<std::int32_t>(context.chain.size());
  const std::int32_t index = slot < 0 ? size + slot : slot;
  return index >= 0 && index < size ? context.chain[static_cast<std::size_t>(index)] : nullptr;
}

TKSValue subjectField(X509* certificate, std::string_view key) {
  for (const SubjectField& field : kSubjectFields) {
    if (field.key != key) continue;
    const std::vector<std::string> values = subjectFields(certificate, field.identifier);
    return values.empty() ? TKSValue() : TKSValue(values.front());
  }
  return {};
}

/// An extension's content: as text when it is one, else its bytes.
TKSValue extensionValue(X509* certificate, std::string_view identifier) {
  const std::optional<TKSData> der = extensionOf(certificate, decodeIdentifier(identifier));
  if (!der) return {};
  const unsigned char* at = der->data();
  ASN1_STRING* text = ::d2i_DIRECTORYSTRING(nullptr, &at, static_cast<long>(der->size()));
  if (text == nullptr) return *der;
  TKSValue value = std::string_view(reinterpret_cast<const char*>(::ASN1_STRING_get0_data(text)),
                                    static_cast<std::size_t>(::ASN1_STRING_length(text)));
  ::ASN1_STRING_free(text);
  return value;
}

bool hasPolicy(X509* certificate, std::string_view identifier) {
  auto* policies =
      static_cast<CERTIFICATEPOLICIES*>(::X509_get_ext_d2i(certificate, NID_certificate_policies, nullptr, nullptr));
  bool found = false;
  for (int i = 0; i < sk_POLICYINFO_num(policies); ++i) {
    const ASN1_OBJECT* policy = sk_POLICYINFO_value(policies, i)->policyid;
    found |=
        identifier == std::string_view(reinterpret_cast<const char*>(::OBJ_get0_data(policy)), ::OBJ_length(policy));
  }
  ::CERTIFICATEPOLICIES_free(policies);
  return found;
}

bool certificateHasHash(X509* certificate, std::string_view hash) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned size = 0;
  if (::X509_digest(certificate, Cryptography::shared().function(HashType::sha1), digest.data(), &size) != 1) {
    return false;
  }
  return hash == std::string_view(reinterpret_cast<const char*>(digest.data()), size);
}

/// Code of the platform maker's own: its root, and its intermediate authority for software.
bool isSignedByApple(const RequirementContext& context) {
  X509* authority = certificateAt(context, -2);
  return authority != nullptr && context.roots->contains(context.chain.back()) &&
         subjectField(authority, "subject.CN") == TKSValue("Apple Code Signing Certification Authority") &&
         subjectField(authority, "subject.O") == TKSValue("Apple Inc.");
}

/// Compares texts so that numbers inside count by their value.
int compareNumerically(std::string_view left, std::string_view right) {
  const auto isDigit = [](char character) { return character >= '0' && character <= '9'; };
  while (!left.empty() && !right.empty()) {
    if (!isDigit(left.front()) || !isDigit(right.front())) {
      if (left.front() != right.front()) return left.front() < right.front() ? -1 : 1;
      left.remove_prefix(1);
      right.remove_prefix(1);
      continue;
    }
    const auto takeDigits = [&](std::string_view& text) {
      const std::size_t size =
          static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), isDigit) - text.begin());
      std::string_view digits = text.substr(0, size);
      text.remove_prefix(size);
      while (digits.size() > 1 && digits.front() == '0') digits.remove_prefix(1);
      return digits;
    };
    const std::string_view one = takeDigits(left);
    const std::string_view other = takeDigits(right);
    if (one.size() != other.size()) return one.size() < other.size() ? -1 : 1;
    if (one != other) return one < other ? -1 : 1;
  }
  return left.empty() ? (right.empty() ? 0 : -1) : 1;
}

bool isPlain(std::string_view text) {
  const auto isLetter = [](char character) { return (character | 32) >= 'a' && (character | 32) <= 'z'; };
  const auto isPlainCharacter = [&](char character) {
    return isLetter(character) || (character >= '0' && character <= '9');
  };
  return !text.empty() && isLetter(text.front()) && std::ranges::all_of(text, isPlainCharacter);
}

std::string hexadecimal(std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (const char byte : bytes) {
    text += kDigits[static_cast<unsigned char>(byte) >> 4];
    text += kDigits[static_cast<unsigned char>(byte) & 15];
  }
  return text;
}

std::string quoted(std::string_view text) {
  const bool printable =
      std::ranges::all_of(text, [](char character) { return static_cast<unsigned char>(character) >= 0x20; });
  if (!printable) return "0x" + hexadecimal(text);
  std::string result = "\"";
  for (const char character : text) {
    if (character == '"' || character == '\\') result += '\\';
    result += character;
  }
  return result + "\"";
}

std::string plainOrQuoted(std::string_view text) { return isPlain(text) ? std::string(text) : quoted(text); }
std::string hashText(std::string_view hash) { return "H\"" + hexadecimal(hash) + "\""; }

/// The hash by which a requirement names a certificate.
std::string hashTextOf(X509* certificate) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned size = 0;
  ::X509_digest(certificate, Cryptography::shared().function(HashType::sha1), digest.data(), &size);
  return hashText({reinterpret_cast<const char*>(digest.data()), size});
}

std::string slotText(std::int32_t slot) {
  if (slot == 0) return "leaf";
  if (slot == -1) return "root";
  return std::to_string(slot);
}

void append32(TKSData& out, std::uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<std::uint8_t>(value >> shift));
}

void appendData(TKSData& out, std::string_view data) {
  append32(out, static_cast<std::uint32_t>(data.size()));
  out.insert(out.end(), data.begin(), data.end());
  out.resize((out.size() + 3) / 4 * 4);
}

}  // namespace

std::size_t Requirement::operands(Operation operation) {
  if (operation == Operation::negation) return 1;
  return operation == Operation::both || operation == Operation::either ? 2 : 0;
}

bool Requirement::hasSlot(Operation operation) {
  switch (operation) {
    case Operation::anchorHash:
    case Operation::certificateField:
    case Operation::certificateExtension:
    case Operation::certificatePolicy:
    case Operation::trustedCertificate:
      return true;
    default:
      return false;
  }
}

bool Requirement::hasKey(Operation operation) {
  switch (operation) {
    case Operation::infoValue:
    case Operation::infoField:
    case Operation::certificateField:
    case Operation::certificateExtension:
    case Operation::certificatePolicy:
    case Operation::entitlementField:
      return true;
    default:
      return false;
  }
}

bool Requirement::hasMatch(Operation operation) { return hasKey(operation) && operation != Operation::infoValue; }

bool Requirement::hasValue(Operation operation) {
  switch (operation) {
    case Operation::identifier:
    case Operation::anchorHash:
    case Operation::infoValue:
    case Operation::cdHash:
      return true;
    default:
      return false;
  }
}

bool Requirement::isKnown(std::uint32_t number) {
  return number <= static_cast<std::uint32_t>(Operation::certificatePolicy) ||
         number == static_cast<std::uint32_t>(Operation::notarized);
}

// Evaluation.

namespace {

/// Any element of an array may match.
template <class Compare>
bool anyMatches(const TKSValue& candidate, Compare compare) {
  if (!candidate.isArray()) return compare(candidate);
  const TKSArray array = candidate.array();
  return std::ranges::any_of(array, compare);
}

}  // namespace

bool Requirement::isMetBy(const RequirementContext& context) const {
  std::vector<bool> results(terms_.size());
  for (std::size_t i = 0; i < terms_.size(); ++i) {
    const Term& term = terms_[i];
    switch (term.operation) {
      case Operation::both:
        results[i] = results[term.left] && results[term.right];
        break;
      case Operation::either:
        results[i] = results[term.left] || results[term.right];
        break;
      case Operation::negation:
        results[i] = !results[term.left];
        break;
      default:
        results[i] = evaluate(term, context);
    }
  }
  return !results.empty() && results.back();
}

bool Requirement::evaluate(const Term& term, const RequirementContext& context) const {
  const auto matches = [&term](const TKSValue& candidate) {
    if (candidate.isNothing()) return term.match == Match::absent;
    return anyMatches(candidate, [&term](const TKSValue& value) {
      const std::string_view text = value.text();
      switch (term.match) {
        case Match::absent:
          return false;
        case Match::exists:
          return value != TKSValue(false);
        case Match::equal:
          return value.isData() ? value.data() == TKSData(term.value.begin(), term.value.end())
                                : value.isText() && text == term.value;
        case Match::contains:
          return value.isText() && text.find(term.value) != std::string_view::npos;
        case Match::beginsWith:
          return value.isText() && text.starts_with(term.value);
        case Match::endsWith:
          return value.isText() && text.ends_with(term.value);
        case Match::less:
          return value.isText() && compareNumerically(text, term.value) < 0;
        case Match::greater:
          return value.isText() && compareNumerically(text, term.value) > 0;
        case Match::lessOrEqual:
          return value.isText() && compareNumerically(text, term.value) <= 0;
        case Match::greaterOrEqual:
          return value.isText() && compareNumerically(text, term.value) >= 0;
      }
      return false;
    });
  };
  X509* certificate = hasSlot(term.operation) ? certificateAt(context, term.slot) : nullptr;
  switch (term.operation) {
    case Operation::always:
      return true;
    case Operation::identifier:
      return context.identifier == term.value;
    case Operation::appleAnchor:
      return isSignedByApple(context);
    case Operation::appleGenericAnchor:
      return !context.chain.empty() && context.roots->contains(context.chain.back());
    case Operation::anchorHash:
      return certificate != nullptr && certificateHasHash(certificate, term.value);
    case Operation::cdHash:
      return context.cdHash == TKSData(term.value.begin(), term.value.end());
    case Operation::infoValue:
      return context.info[term.key] == TKSValue(term.value);
    case Operation::infoField:
      return matches(context.info[term.key]);
    case Operation::entitlementField:
      return matches(context.entitlements[term.key]);
    case Operation::certificateField:
      return certificate != nullptr && matches(subjectField(certificate, term.key));
    case Operation::certificateExtension:
      return certificate != nullptr && matches(extensionValue(certificate, term.key));
    case Operation::certificatePolicy:
      return certificate != nullptr && matches(hasPolicy(certificate, term.key) ? TKSValue(true) : TKSValue());
    default:
      return false;  // trust settings and tickets are not to be had here
  }
}

// The text form.

std::string Requirement::describe(const Term& term) const {
  const auto match = [&term]() -> std::string {
    const std::string value = plainOrQuoted(term.value);
    switch (term.match) {
      case Match::exists:
        return " /* exists */";
      case Match::absent:
        return " absent";
      case Match::equal:
        return " = " + value;
      case Match::contains:
        return " = *" + value + "*";
      case Match::beginsWith:
        return " = " + value + "*";
      case Match::endsWith:
        return " = *" + value;
      case Match::less:
        return " < " + value;
      case Match::greater:
        return " > " + value;
      case Match::lessOrEqual:
        return " <= " + value;
      case Match::greaterOrEqual:
        return " >= " + value;
    }
    return {};
  };
  const auto certificate = [&term](const std::string& key) {
    return "certificate " + slotText(term.slot) + "[" + key + "]";
  };
  switch (term.operation) {
    case Operation::never:
      return "never";
    case Operation::always:
      return "always";
    case Operation::identifier:
      return "identifier " + plainOrQuoted(term.value);
    case Operation::appleAnchor:
      return "anchor apple";
    case Operation::appleGenericAnchor:
      return "anchor apple generic";
    case Operation::anchorHash:
      return "certificate " + slotText(term.slot) + " = " + hashText(term.value);
    case Operation::cdHash:
      return "cdhash " + hashText(term.value);
    case Operation::infoValue:
      return "info[" + plainOrQuoted(term.key) + "] = " + plainOrQuoted(term.value);
    case Operation::infoField:
      return "info[" + plainOrQuoted(term.key) + "]" + match();
    case Operation::entitlementField:
      return "entitlement[" + quoted(term.key) + "]" + match();
    case Operation::certificateField:
      return certificate(term.key) + match();
    case Operation::certificateExtension:
      return certificate("field." + decodeIdentifier(term.key)) + match();
    case Operation::certificatePolicy:
      return certificate("policy." + decodeIdentifier(term.key)) + match();
    case Operation::trustedCertificate:
      return "certificate " + slotText(term.slot) + " trusted";
    case Operation::trustedCertificates:
      return "anchor trusted";
    case Operation::notarized:
      return "notarized";
    default:
      return {};
  }
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
    switch (term.operation) {
      case Operation::both:
        texts[i] = operand(term.left, term.operation).append(" and ").append(operand(term.right, term.operation));
        break;
      case Operation::either:
        texts[i] = operand(term.left, term.operation).append(" or ").append(operand(term.right, term.operation));
        break;
      case Operation::negation:
        texts[i] = "! " + operand(term.left, term.operation);
        break;
      default:
        texts[i] = describe(term);
    }
  }
  return texts.empty() ? std::string() : texts.back();
}

/// Reads the text form. Operators that wait for their operands stand on a stack.
class RequirementTextReader {
 public:
  explicit RequirementTextReader(std::string_view text) : rest_(text) {}

  std::optional<Requirement> read() {
    bool operandComesNext = true;
    while (next()) {
      if (result_.terms_.size() > kMostTerms || waiting_.size() > kMostTerms) return std::nullopt;
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
    return std::move(result_);
  }

 private:
  using Operation = Requirement::Operation;
  using Match = Requirement::Match;
  using Term = Requirement::Term;

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
    result_.terms_.push_back(std::move(term));
    operands_.push_back(result_.terms_.size() - 1);
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

  /// A text; a word that begins with 0x stands for the bytes behind it.
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
  Requirement result_;
  std::vector<char> waiting_;
  std::vector<std::size_t> operands_;
};

std::optional<Requirement> Requirement::fromText(std::string_view text) { return RequirementTextReader(text).read(); }

// The binary form.

class RequirementBlobReader {
 public:
  explicit RequirementBlobReader(Bytes rest) : rest_(rest) {}

  std::optional<Requirement> read() {
    std::vector<Open> open;
    while (true) {
      Requirement::Term term;
      if (!readTerm(term) || result_.terms_.size() + open.size() > kMostTerms) return std::nullopt;
      if (Requirement::operands(term.operation) > 0) {
        open.push_back({std::move(term), 0});
        continue;
      }
      result_.terms_.push_back(std::move(term));
      // A complete operand may complete operators that wait for it.
      while (!open.empty()) {
        const std::size_t complete = result_.terms_.size() - 1;
        Open& last = open.back();
        (last.operands++ == 0 ? last.term.left : last.term.right) = complete;
        if (last.operands < Requirement::operands(last.term.operation)) break;
        result_.terms_.push_back(std::move(last.term));
        open.pop_back();
      }
      if (open.empty()) return std::move(result_);
    }
  }

 private:
  struct Open {
    Requirement::Term term;
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

  bool readTerm(Requirement::Term& term) {
    std::uint32_t number = 0;
    if (!take32(number) || !Requirement::isKnown(number)) return false;
    term.operation = static_cast<Requirement::Operation>(number);
    std::uint32_t slot = 0;
    if (Requirement::hasSlot(term.operation) && !take32(slot)) return false;
    term.slot = static_cast<std::int32_t>(slot);
    if (Requirement::hasKey(term.operation) && !takeData(term.key)) return false;
    if (Requirement::hasMatch(term.operation) && !readMatch(term)) return false;
    return !Requirement::hasValue(term.operation) || takeData(term.value);
  }

  bool readMatch(Requirement::Term& term) {
    std::uint32_t number = 0;
    if (!take32(number)) return false;
    term.match = static_cast<Requirement::Match>(number);
    if (number == 0 || term.match == Requirement::Match::absent) return true;
    return number <= static_cast<std::uint32_t>(Requirement::Match::greaterOrEqual) && takeData(term.value);
  }

  Bytes rest_;
  Requirement result_;
};

std::optional<Requirement> Requirement::fromBlob(Bytes blob) {
  if (blob.size() < 12 || big32(blob.data()) != magic::kRequirement || big32(blob.data() + 4) != blob.size() ||
      big32(blob.data() + 8) != kExpressionKind) {
    return std::nullopt;
  }
  return RequirementBlobReader(blob.subspan(12)).read();
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
    append32(out, static_cast<std::uint32_t>(term.operation));
    if (hasSlot(term.operation)) append32(out, static_cast<std::uint32_t>(term.slot));
    if (hasKey(term.operation)) appendData(out, term.key);
    if (hasMatch(term.operation)) {
      append32(out, static_cast<std::uint32_t>(term.match));
      if (term.match != Match::exists && term.match != Match::absent) appendData(out, term.value);
    }
    if (hasValue(term.operation)) appendData(out, term.value);
    if (operands(term.operation) == 2) pending.push_back(term.right);
    if (operands(term.operation) >= 1) pending.push_back(term.left);
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

std::string implicitRequirement(const RequirementContext& context) {
  if (context.chain.empty()) {
    return "cdhash " + hashText({reinterpret_cast<const char*>(context.cdHash.data()), context.cdHash.size()});
  }
  const std::string name = "identifier " + quoted(context.identifier);
  if (isSignedByApple(context)) return name + " and anchor apple";
  if (isDeveloperChain(context.chain, *context.roots)) {
    return name +
           " and anchor apple generic and certificate 1[field.1.2.840.113635.100.6.2.6] /* exists */"
           " and certificate leaf[field.1.2.840.113635.100.6.1.13] /* exists */"
           " and certificate leaf[subject.OU] = " +
           plainOrQuoted(organizationalUnitOf(context.chain.front()).value_or(""));
  }
  // The highest certificate that still belongs to the leaf's organization stands for it.
  const TKSValue organization = subjectField(context.chain.front(), "subject.O");
  std::size_t slot = 0;
  while (organization.isText() && slot + 1 < context.chain.size() &&
         subjectField(context.chain[slot + 1], "subject.O") == organization) {
    ++slot;
  }
  const bool isRoot = slot > 0 && slot + 1 == context.chain.size();
  return name + " and certificate " + slotText(isRoot ? -1 : static_cast<std::int32_t>(slot)) + " = " +
         hashTextOf(context.chain[slot]);
}

std::string sameMakerRequirement(const Chain& chain) {
  const std::optional<std::string> unit = organizationalUnitOf(chain.front());
  const std::string leaf =
      unit ? "certificate leaf[subject.OU] = " + quoted(*unit) : "certificate leaf = " + hashTextOf(chain.front());
  return "certificate root = " + hashTextOf(chain.back()) + " and " + leaf;
}

std::string encodeIdentifier(std::string_view dotted) {
  ASN1_OBJECT* object = ::OBJ_txt2obj(std::string(dotted).c_str(), 1);
  if (object == nullptr) return {};
  std::string encoded(reinterpret_cast<const char*>(::OBJ_get0_data(object)), ::OBJ_length(object));
  ::ASN1_OBJECT_free(object);
  return encoded;
}

std::string decodeIdentifier(std::string_view encoded) {
  std::string text;
  std::uint64_t number = 0;
  bool first = true;
  for (const char character : encoded) {
    const auto byte = static_cast<unsigned char>(character);
    if (number > (UINT64_MAX >> 7)) return {};
    number = number << 7 | (byte & 0x7F);
    if ((byte & 0x80) != 0) continue;
    if (first) {
      const std::uint64_t arc = std::min<std::uint64_t>(number / 40, 2);
      text = std::to_string(arc);
      number -= arc * 40;
      first = false;
    }
    text.append(".").append(std::to_string(number));
    number = 0;
  }
  return text;
}

}  // namespace tks::codesign
