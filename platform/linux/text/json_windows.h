#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include <simdjson.h>

namespace tks::gnulinux {

/// A text of JSON and where its tokens begin, as simdjson's first stage finds them: every bracket, brace, colon and
/// comma, the opening quote of every text, and the first character of everything else but blanks. The stage has seen
/// that the text is UTF-8, that every quote is closed and that no text holds a control character. After the last begin
/// stands the length of the text.
struct JsonTokens {
  std::string_view text;
  std::span<const std::uint32_t> begins;

  /// How many more values can stand on the stack of a builder at the same time: a list opens with one token, and has
  /// one for each of its values and between any two of them.
  std::size_t mostOpenValues() const noexcept { return begins.size() / 2 + 1; }
};

/// simdjson's search for tokens, with memory that grows with the longest text so far.
class JsonTokenFinder {
 public:
  /// Stay valid until the next search. Looks at nothing after the text.
  simdjson::error_code find(std::string_view text, JsonTokens& tokens);
  std::size_t capacity() const noexcept { return capacity_; }

 private:
  simdjson::error_code reserve(std::size_t length);

  std::size_t capacity_ = 0;
  simdjson::dom::parser parser_;
};

/// The tokens of a long text, piece by piece: where they begin is read again while the processor still has it at hand,
/// and takes little memory.
class JsonWindows {
 public:
  /// A window that is not the last one ends anywhere outside of texts: only what has so many tokens after it is whole.
  static constexpr std::size_t kTokensAhead = 4;

  JsonWindows(JsonTokenFinder& finder, std::string_view text) noexcept : finder_(finder), text_(text) {}

  /// Goes on to a window that begins with a token of the text. Errors are those of the first stage, but a text of
  /// several windows may have others as well. The first window needs no token.
  simdjson::error_code goTo(const char* token);
  /// Goes on to one window with all of the text.
  simdjson::error_code goToWhole();

  const JsonTokens& tokens() const noexcept { return tokens_; }
  bool isLast() const noexcept { return isLast_; }
  /// Whether all tokens of the text are in this window.
  bool isWhole() const noexcept { return isLast_ && tokens_.text.size() == text_.size(); }
  std::string_view text() const noexcept { return text_; }

 private:
  bool findWindow(std::string_view candidate);

  JsonTokenFinder& finder_;
  const std::string_view text_;
  JsonTokens tokens_;
  bool isLast_ = false;
};

}  // namespace tks::gnulinux
