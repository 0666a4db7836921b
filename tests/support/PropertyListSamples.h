#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <tksinterface/TKSValue.h>

/// Property lists for tests: sound ones, broken ones and ones that were made to do harm.
namespace tks::test::plist {

inline TKSData bytesOf(std::string_view text) { return {text.begin(), text.end()}; }

/// XML around the text of one value.
inline std::string xml(std::string_view value) {
  return std::string(
             "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
             "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
             "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">")
      .append(value)
      .append("</plist>\n");
}

inline std::string repeated(std::string_view text, std::size_t count) {
  std::string all;
  all.reserve(text.size() * count);
  for (std::size_t i = 0; i < count; ++i) all += text;
  return all;
}

/// Arrays, or dictionaries with one key, in each other. The innermost one is empty.
inline std::string nestedArraysXml(std::size_t depth) {
  return xml(repeated("<array>", depth) + repeated("</array>", depth));
}
inline std::string nestedDictionariesXml(std::size_t depth) {
  return xml(repeated("<dict><key>k</key>", depth - 1) + "<dict></dict>" + repeated("</dict>", depth - 1));
}

/// A binary list put together by hand. Numbers of objects are one byte unless `referenceSize` says otherwise.
struct BinaryList {
  std::vector<std::string> objects = {};
  std::uint8_t referenceSize = 1;
  std::uint8_t offsetSize = 4;
  std::uint64_t top = 0;
  /// What the trailer says, when it is not the truth.
  std::optional<std::uint64_t> count = std::nullopt;
  std::optional<std::uint64_t> offsetTable = std::nullopt;
  /// Replaces the offset of the last object.
  std::optional<std::uint64_t> lastOffset = std::nullopt;

  static std::string number(std::uint64_t value, std::size_t width) {
    std::string text;
    for (std::size_t i = width; i > 0; --i) text += static_cast<char>(value >> (8 * (i - 1)));
    return text;
  }

  TKSData build() const {
    std::string out = "bplist00";
    std::vector<std::uint64_t> offsets;
    for (const std::string& object : objects) {
      offsets.push_back(out.size());
      out += object;
    }
    if (lastOffset) offsets.back() = *lastOffset;
    const std::uint64_t table = out.size();
    for (const std::uint64_t offset : offsets) out += number(offset, offsetSize);
    out += std::string(6, '\0');
    out += static_cast<char>(offsetSize);
    out += static_cast<char>(referenceSize);
    out += number(count.value_or(objects.size()), 8) + number(top, 8) + number(offsetTable.value_or(table), 8);
    return bytesOf(out);
  }
};

/// Arrays in each other, each an object of its own.
inline TKSData nestedArraysBinary(std::size_t depth) {
  BinaryList list;
  list.referenceSize = 4;
  for (std::size_t i = 1; i < depth; ++i) list.objects.push_back("\xA1" + BinaryList::number(i, 4));
  list.objects.push_back("\xA0");
  return list.build();
}

/// `depth` arrays that each hold the next one twice: two to the power of `depth` values when every reference is
/// followed.
inline TKSData doublingBinary(std::uint8_t depth) {
  BinaryList list;
  for (std::uint8_t i = 1; i <= depth; ++i) list.objects.push_back("\xA2" + std::string(2, static_cast<char>(i)));
  list.objects.push_back("\x09");
  return list.build();
}

/// A random value of at most so many levels that both forms can hold. Dates are whole seconds.
inline TKSValue randomValue(std::mt19937& random, int levels) {
  const auto below = [&](std::uint32_t limit) { return static_cast<std::uint32_t>(random() % limit); };
  const auto text = [&] {
    static constexpr const char* kPieces[] = {"a",  "Z",     "9",  " ", "&", "<", ">",   "\"",   "'",
                                              "\n", "\t",    "\r", "ä", "€", "😀", "]]>", "<!--", "longer piece of text",
                                              ";",  "&amp;", "é",  "_", "."};
    std::string made;
    for (std::uint32_t i = below(8); i > 0; --i) made += kPieces[below(std::size(kPieces))];
    return made;
  };
  switch (below(levels > 0 ? 9 : 6)) {
    case 0:
      return below(2) == 1;
    case 1:
      return static_cast<std::int64_t>((std::uint64_t{random()} << 32 | random()) >> below(64)) *
             (below(2) == 1 ? 1 : -1);
    case 2:
      return (static_cast<double>(random()) - 2e9) / (1.0 + below(1000000));
    case 3: {
      TKSData data(below(100));
      for (std::uint8_t& byte : data) byte = static_cast<std::uint8_t>(random());
      return data;
    }
    case 4:
      return TKSDate{static_cast<double>(random()) - 1e9};
    case 5:
      return text();
    case 6: {
      TKSArray array;
      for (std::uint32_t i = below(6); i > 0; --i) array.append(randomValue(random, levels - 1));
      return array;
    }
    default: {
      TKSDictionary dictionary;
      for (std::uint32_t i = below(8); i > 0; --i) dictionary.set(text(), randomValue(random, levels - 1));
      return dictionary;
    }
  }
}

inline TKSDictionary randomDictionary(std::mt19937& random, int levels) {
  TKSDictionary dictionary;
  for (int i = 0; i < 5; ++i) dictionary.set("key" + std::to_string(i), randomValue(random, levels));
  return dictionary;
}

}  // namespace tks::test::plist
