#pragma once

#include <string>
#include <string_view>

#include <tksinterface/TKSError.h>
#include <tksinterface/TKSValue.h>

namespace tks::ctl {

/// The value with what JSON does not have in a form that it has: data as base64 text, moments as
/// "2026-01-31T12:00:00Z", nothing as null, reals that are no number as texts, bytes that are no UTF-8 as U+FFFD. For
/// values of files, which nest to 512 levels at most.
TKSValue jsonable(const TKSValue& value);

/// A moment as "2026-01-31T12:00:00Z".
std::string momentText(double secondsSince1970);

/// An error as the documents have it: message, domain, code, reason by its name, suggestion.
TKSDictionary errorDocument(const TKSError& error);

/// The text in one line that a terminal shows harmlessly: line ends become blanks, other control characters "?".
std::string oneLine(std::string_view text);

/// The text with every byte that is no part of a character as U+FFFD.
std::string validText(std::string_view text);

/// JSON for people: as the library writes it, with line ends and two blanks of indent a level.
std::string prettyJson(const TKSValue& value);

}  // namespace tks::ctl
