#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include <simdjson.h>

#include <tksinterface/TKSValue.h>

#include "foundation/values/ValueBuilder.h"

namespace tks::gnulinux {

/// A text of JSON and where its tokens begin, as simdjson's first stage finds them: every bracket, brace, colon and
/// comma, the opening quote of every text, and the first character of everything else but blanks. The stage has seen
/// that the text is UTF-8, that every quote is closed and that no text holds a control character.
struct JsonTokens {
  std::string_view text;
  std::span<const std::uint32_t> begins;

  /// How many values can stand on the stack of a builder at the same time: a list opens with one token, and has one
  /// for each of its values and between any two of them.
  std::size_t mostOpenValues() const noexcept { return begins.size() / 2 + 1; }
};

/// Makes the value of a text whose top level is an object or an array; `stack` has room for `mostOpenValues`. Throws
/// std::bad_alloc.
simdjson::error_code readJsonDocument(const JsonTokens& tokens, std::span<value::StackBuilder::Slot> stack,
                                      TKSValue& value);

}  // namespace tks::gnulinux
