#include "platform/linux/text/json_document.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

#include "platform/linux/processes/kept_memory.h"
#include "platform/linux/text/json_scalars.h"

namespace tks::gnulinux {
namespace {

using simdjson::error_code;

/// Whether a number or a word ends here: up to the next token, what follows a blank are blanks.
bool endsAt(const char* at, const char* bound) noexcept { return at == bound || isJsonBlank(*at); }

bool endsWithClosing(const JsonTokens& tokens) noexcept {
  if (tokens.begins.empty()) return false;
  const char last = tokens.text[tokens.begins.back()];
  return last == '}' || last == ']';
}

/// Nobody else learns the address of a document: what changes with each token can stay in registers.
class Document {
 public:
  /// `outermost`: the first of as many levels as there may be, and one more. The last window ends with a closing
  /// bracket or brace, or a zero byte stands after it.
  Document(JsonWindows& windows, const JsonTokens& tokens, JsonValueStack& stack, JsonLevel* outermost)
      : windows_(windows),
        stack_(stack),
        end_(tokens.text.data() + (windows.isWhole() ? tokens.text : windows.text()).size()),
        outermost_(outermost),
        level_(outermost),
        builder_(stack.slots(), expectedBytes(windows.text().size(), tokens)) {
    use(tokens);
    const std::size_t expected = expectedBytes(windows.text().size(), tokens);
    if (expected < KeptMemory::kLeast) return;
    const std::span<char> memory = KeptMemory::take(expected);
    if (!memory.empty()) builder_.useMemory(memory, KeptMemory::giveBack);
  }

  error_code read(TKSValue& value) {
    char c = next();
    for (;;) {
      if (c == '{' || c == '[') {
        if (const error_code error = open(c)) return error;
        if (const error_code error = lookAhead()) return error;
        c = next();
        if (c != level_->closing) {
          if (level_->closing == '}') {
            if (const error_code error = readKey(c)) return error;
          }
          continue;
        }
        builder_.emptyList(c == '}' ? TKSValue::Kind::dictionary : TKSValue::Kind::array);
        --level_;
      } else if (const error_code error = readScalar(c)) {
        return error;
      }

      while (level_ != outermost_) {
        if (const error_code error = lookAhead()) return error;
        c = next();
        if (c == ',') break;
        if (c != level_->closing) return simdjson::TAPE_ERROR;
        close();
      }
      if (level_ == outermost_) break;
      c = next();
      if (level_->closing == '}') {
        if (const error_code error = readKey(c)) return error;
      }
    }
    if (token_ != lastToken_ || !windows_.isLast()) return simdjson::TAPE_ERROR;
    value = builder_.take();
    return simdjson::SUCCESS;
  }

 private:
  /// Every second token is a value, and long texts take their length. What follows the first window is as dense.
  static std::size_t expectedBytes(std::size_t textSize, const JsonTokens& first) noexcept {
    const std::size_t values = first.mostOpenValues() * sizeof(TKSValue);
    return textSize + (first.text.size() == textSize ? values : textSize / first.text.size() * values);
  }

  void use(const JsonTokens& tokens) {
    text_ = tokens.text.data();
    token_ = tokens.begins.data();
    lastToken_ = token_ + tokens.begins.size();
    limit_ = windows_.isLast() ? lastToken_ : lastToken_ - JsonWindows::kTokensAhead;
    std::size_t wanted = builder_.size() + tokens.mostOpenValues();
    if (wanted <= stack_.size()) return;
    std::unique_ptr<JsonValueStack::Slot[]> larger = stack_.larger(wanted);
    builder_.moveTo(larger.get());
    stack_.replaceBy(std::move(larger), wanted);
  }

  /// Makes sure that the next value, with what stands before it, can be read.
  error_code lookAhead() {
    if (token_ < limit_) return simdjson::SUCCESS;
    if (windows_.isLast()) return simdjson::TAPE_ERROR;
    if (const error_code error = windows_.goTo(bound())) return error;
    if (windows_.isLast() && !endsWithClosing(windows_.tokens())) return simdjson::TAPE_ERROR;
    use(windows_.tokens());
    return simdjson::SUCCESS;
  }

  /// The first character of the next token, where `at_` stands then.
  char next() noexcept {
    at_ = text_ + *token_++;
    return *at_;
  }
  /// Where the next token begins.
  const char* bound() const noexcept { return text_ + *token_; }

  /// The name of a member, up to where its value begins, whose first character `c` is then.
  error_code readKey(char& c) {
    if (c != '"') return simdjson::TAPE_ERROR;
    if (const error_code error = readText()) return error;
    if (next() != ':') return simdjson::TAPE_ERROR;
    c = next();
    return simdjson::SUCCESS;
  }

  error_code readScalar(char c) {
    if (c == '"') return readText();
    if (isJsonDigit(c) || c == '-') return readNumber();
    switch (c) {
      case 't':
        if (!isWord("true")) return simdjson::T_ATOM_ERROR;
        builder_.boolean(true);
        return simdjson::SUCCESS;
      case 'f':
        if (!isWord("false")) return simdjson::F_ATOM_ERROR;
        builder_.boolean(false);
        return simdjson::SUCCESS;
      case 'n':
        if (!isWord("null")) return simdjson::N_ATOM_ERROR;
        builder_.null();
        return simdjson::SUCCESS;
      default:
        return simdjson::TAPE_ERROR;
    }
  }

  error_code open(char opening) noexcept {
    if (level_ == outermost_ + kDeepestJson) return simdjson::DEPTH_ERROR;
    *++level_ = {builder_.size(), opening == '{' ? '}' : ']'};
    return simdjson::SUCCESS;
  }

  void close() {
    const auto kind = level_->closing == '}' ? TKSValue::Kind::dictionary : TKSValue::Kind::array;
    builder_.endList(kind, builder_.markOf(level_->first));
    --level_;
  }

  bool isWord(std::string_view word) const noexcept {
    const char* const end = bound();
    return static_cast<std::size_t>(end - at_) >= word.size() && std::memcmp(at_, word.data(), word.size()) == 0 &&
           endsAt(at_ + word.size(), end);
  }

  error_code readText() {
    const char* const begin = at_ + 1;
    const char* quote = bound();
    do {
      if (quote == begin) return simdjson::STRING_ERROR;
    } while (*--quote != '"');  // blanks follow the closing quote
    const auto size = static_cast<std::size_t>(quote - begin);

    const bool placed = value::Access::fits(size) ? static_cast<std::size_t>(end_ - begin) >= value::kBytesBehind &&
                                                        builder_.shortTextWithout('\\', sixteenAt(begin), size)
                                                  : builder_.longTextWithout('\\', {begin, size});
    return placed ? simdjson::SUCCESS : aside(builder_, readOddJsonText, begin, quote);
  }

  error_code readNumber() {
    const char* next = at_;
    return readJsonNumber(builder_, next, bound(), [end = bound()](const char* at) { return endsAt(at, end); });
  }

  JsonWindows& windows_;
  JsonValueStack& stack_;
  const char* text_ = nullptr;
  const char* const end_;
  const std::uint32_t* token_ = nullptr;
  const std::uint32_t* limit_ = nullptr;
  const std::uint32_t* lastToken_ = nullptr;
  const char* at_ = nullptr;
  JsonLevel* const outermost_;
  JsonLevel* level_;
  value::StackBuilder builder_;
};

[[gnu::flatten]] error_code read(JsonWindows& windows, const JsonTokens& tokens, JsonValueStack& stack,
                                 TKSValue& value) {
  JsonLevel levels[kDeepestJson + 1];
  return Document(windows, tokens, stack, levels).read(value);
}

}  // namespace

std::unique_ptr<JsonValueStack::Slot[]> JsonValueStack::larger(std::size_t& wanted) const {
  wanted = std::max(wanted, 2 * size_);
  return std::make_unique_for_overwrite<Slot[]>(wanted);
}

void JsonValueStack::replaceBy(std::unique_ptr<Slot[]> larger, std::size_t size) noexcept {
  slots_ = std::move(larger);
  size_ = size;
}

error_code readJsonDocument(JsonWindows& windows, JsonValueStack& stack, TKSValue& value) {
  const JsonTokens& tokens = windows.tokens();
  const char first = tokens.begins.empty() ? '\0' : tokens.text[tokens.begins[0]];
  if (first != '{' && first != '[') return simdjson::INCORRECT_TYPE;
  if (!windows.isLast() || endsWithClosing(tokens)) return read(windows, tokens, stack, value);
  // An error in any case: which one, a copy tells, after which a zero byte can be read.
  const std::string copy(tokens.text);
  return read(windows, {copy, tokens.begins}, stack, value);
}

}  // namespace tks::gnulinux
