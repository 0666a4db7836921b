#pragma once

#include <optional>
#include <string_view>

#include <tksinterface/TKSValue.h>

// How numbers and dates are written in the XML form. Texts come without blanks at their ends.

namespace tks::formats::property_list {

/// A number however large or small: infinite or zero beyond the range. Nothing when the text is no number as a whole.
std::optional<double> parseReal(std::string_view text);

/// Decimal or, after "0x", hexadecimal. What 64 bits cannot hold, with a sign or without, becomes a real. Nothing when
/// the text is no integer.
TKSValue parseInteger(std::string_view text);

/// Gives the integer in a text to a builder of values. False, and nothing given, when the text is no integer.
template <class Builder>
bool putInteger(std::string_view text, Builder& builder) {
  const TKSValue value = parseInteger(text);
  if (value.isNothing()) return false;
  if (value.isReal()) {
    builder.real(value.real());
  } else if (value.isUnsignedInteger()) {
    builder.unsignedInteger(value.unsignedInteger());
  } else {
    builder.integer(value.integer());
  }
  return true;
}

/// YYYY-MM-DDThh:mm:ssZ. Nothing when the text is no date, or one that the calendar does not have.
std::optional<TKSDate> parseDate(std::string_view text);

}  // namespace tks::formats::property_list
