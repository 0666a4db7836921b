#include "codesign/resources/hashed_characters.h"

#include <cstring>

#include "formats/xml_text.h"

namespace tks::codesign {

bool HashedCharacters::takeUntil(char end, std::string& text) {
  while (peek()) {
    const std::uint8_t* start = window_.data() + at_;
    const auto* found = static_cast<const std::uint8_t*>(std::memchr(start, end, filled_ - at_));
    const std::size_t count = found != nullptr ? static_cast<std::size_t>(found - start) : filled_ - at_;
    text.append(reinterpret_cast<const char*>(start), count);
    at_ += count;
    if (found != nullptr) return true;
    if (text.size() > kLongestText) return false;
  }
  return false;
}

void HashedCharacters::skipBlanks() {
  while (peek() && formats::isXmlBlank(*peek())) ++at_;
}

bool HashedCharacters::skipPast(std::string_view end) {
  std::string last;
  while (const std::optional<char> character = take()) {
    last += *character;
    if (last.size() > end.size()) last.erase(0, 1);
    if (last == end) return true;
  }
  return false;
}

void HashedCharacters::finish() {
  do {
    at_ = filled_;
  } while (refill());
}

bool HashedCharacters::refill() {
  filled_ = source_.read(offset_, window_);
  at_ = 0;
  offset_ += filled_;
  hasher_.update(Bytes(window_).first(filled_));
  return filled_ > 0;
}

}  // namespace tks::codesign
