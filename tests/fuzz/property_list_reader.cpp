// Reads property lists from standard input, each after its length (u32, little-endian), and prints a line for each: "-"
// when it is refused, else its value in a form that leaves nothing to the eye. property_list_peers.py has the same form
// for another reader.

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <string>

#include "platform/platform.h"

namespace {

std::string hex(std::string_view bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const char byte : bytes) {
    text += kDigits[static_cast<unsigned char>(byte) >> 4];
    text += kDigits[static_cast<unsigned char>(byte) & 15];
  }
  return text;
}

std::string formOf(const TKSValue& value);

std::string formOfReal(double real) {
  if (std::isnan(real)) return "rnan";
  char text[32];
  std::snprintf(text, sizeof text, "r%016llx", static_cast<unsigned long long>(std::bit_cast<std::uint64_t>(real)));
  return text;
}

/// In whole seconds, of what the other reader has: it rounds to microseconds.
std::string formOfDate(double seconds) {
  return "t" + std::to_string(std::llround(std::floor(std::round(seconds * 1e6) / 1e6)));
}

std::string formOfMany(const TKSValue& value) {
  std::string text;
  if (value.isArray()) {
    for (const TKSValue& each : value.array()) text += formOf(each) + ",";
    return "[" + text + "]";
  }
  for (const auto& [key, each] : value.dictionary()) text += hex(key) + ":" + formOf(each) + ",";
  return "{" + text + "}";
}

std::string formOf(const TKSValue& value) {
  if (value.isBoolean()) return value.boolean() ? "T" : "F";
  if (value.isUnsignedInteger()) return "i" + std::to_string(value.unsignedInteger());
  if (value.isInteger()) return "i" + std::to_string(value.integer());
  if (value.isReal()) return formOfReal(value.real());
  if (value.isText()) return "s" + hex(value.text());
  if (value.isDate()) return formOfDate(value.date().secondsSince1970);
  if (value.isArray() || value.isDictionary()) return formOfMany(value);
  const TKSData data = value.data();
  return value.isData() ? "d" + hex({reinterpret_cast<const char*>(data.data()), data.size()}) : "?";
}

}  // namespace

int main() {
  std::uint8_t length[4];
  while (std::cin.read(reinterpret_cast<char*>(length), sizeof length)) {
    TKSData content(length[0] | std::size_t{length[1]} << 8 | std::size_t{length[2]} << 16 |
                    std::size_t{length[3]} << 24);
    std::cin.read(reinterpret_cast<char*>(content.data()), static_cast<std::streamsize>(content.size()));
    const TKSValue value = tks::platform::propertyLists().parse(content, nullptr);
    std::cout << (value.isNothing() ? "-" : formOf(value)) << std::endl;
  }
  return 0;
}
