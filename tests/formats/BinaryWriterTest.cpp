#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "formats/property_list_binary.h"
#include "tests/support/PropertyListSamples.h"

// Binary lists to the byte, against a writer that does one simple thing after the other.

namespace {

using namespace tks::formats::property_list;
using tks::test::plist::BinaryList;
using tks::test::plist::randomDictionary;
using Kind = TKSValue::Kind;

std::uint8_t widthOf(std::uint64_t number) {
  return number < 0x100 ? 1 : number < 0x10000 ? 2 : number < 0x100000000 ? 4 : 8;
}

std::string integer(std::uint64_t number) {
  const std::uint8_t width = widthOf(number);
  return static_cast<char>(0x10 + std::countr_zero(width)) + BinaryList::number(number, width);
}

std::string head(int marker, std::size_t size) {
  const auto byte = static_cast<char>(marker << 4 | static_cast<int>(std::min<std::size_t>(size, 15)));
  return size < 15 ? std::string(1, byte) : byte + integer(size);
}

std::string real(char marker, double number) {
  return marker + BinaryList::number(std::bit_cast<std::uint64_t>(number), 8);
}

/// ASCII where it is enough, else UTF-16.
std::string text(std::string_view text) {
  if (std::ranges::all_of(text, [](char byte) { return byte >= 0; })) return head(5, text.size()).append(text);
  std::u16string units;
  for (std::size_t i = 0; i < text.size();) {
    const auto first = static_cast<unsigned char>(text[i]);
    const std::size_t length = first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    char32_t character = length == 1 ? first : first & (0x7F >> length);
    for (std::size_t j = 1; j < length; ++j) character = character << 6 | (text[i + j] & 0x3F);
    if (character >= 0x10000) units += static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10));
    units += static_cast<char16_t>(character < 0x10000 ? character : 0xDC00 + (character & 0x3FF));
    i += length;
  }
  std::string written = head(6, units.size());
  for (const char16_t unit : units) written += BinaryList::number(unit, 2);
  return written;
}

class Reference {
 public:
  explicit Reference(const TKSValue& root) {
    add(root);
    for (std::size_t i = 0; i < values_.size(); ++i) addItems(i);
  }

  TKSData write() const {
    BinaryList list;
    list.referenceSize = widthOf(values_.size() - 1);
    std::size_t size = 8;
    for (std::size_t i = 0; i < values_.size(); ++i) {
      list.objects.push_back(object(i, list.referenceSize));
      size += list.objects.back().size();
    }
    list.offsetSize = widthOf(size);
    return list.build();
  }

 private:
  std::size_t add(const TKSValue& value) {
    if (value.isText()) {
      const auto [place, isNew] = texts_.emplace(value.text(), values_.size());
      if (!isNew) return place->second;
    }
    values_.push_back(value);
    items_.emplace_back();
    return values_.size() - 1;
  }

  void addItems(std::size_t number) {
    const TKSValue list = values_[number];
    std::vector<std::size_t> items;
    for (const TKSValue& item : list.array()) items.push_back(add(item));
    const TKSDictionary dictionary = list.dictionary();
    for (const auto [key, value] : dictionary) items.push_back(add(key));
    for (const auto [key, value] : dictionary) items.push_back(add(value));
    items_[number] = items;
  }

  std::string object(std::size_t number, std::size_t referenceSize) const {
    const TKSValue& value = values_[number];
    std::string references;
    for (const std::size_t item : items_[number]) references += BinaryList::number(item, referenceSize);
    switch (value.kind()) {
      case Kind::boolean:
        return value.boolean() ? "\x09" : "\x08";
      case Kind::integer:
        if (value.isUnsignedInteger())
          return "\x14" + std::string(8, '\0') + integer(value.unsignedInteger()).substr(1);
        return integer(static_cast<std::uint64_t>(value.integer()));
      case Kind::real:
        return real(0x23, value.real());
      case Kind::date:
        return real(0x33, value.date().secondsSince1970 - 978307200);
      case Kind::text:
        return text(value.text());
      case Kind::data: {
        const TKSData data = value.data();
        return head(4, data.size()).append(data.begin(), data.end());
      }
      case Kind::array:
        return head(0xA, items_[number].size()) + references;
      case Kind::dictionary:
        return head(0xD, items_[number].size() / 2) + references;
      default:
        return "";
    }
  }

  std::vector<TKSValue> values_;
  std::vector<std::vector<std::size_t>> items_;
  std::map<std::string, std::size_t, std::less<>> texts_;
};

void expectLikeTheReference(const TKSValue& value) {
  Problem problem;
  const std::optional<TKSData> written = writeBinary(value, problem);
  ASSERT_TRUE(written) << problem.text;
  ASSERT_TRUE(*written == Reference(value).write()) << value.description().substr(0, 1000);
}

TEST(BinaryWriter, WritesRandomValuesLikeTheReference) {
  std::mt19937 random(31);
  for (int i = 0; i < 1500; ++i) expectLikeTheReference(randomDictionary(random, 1 + i % 5));
}

TEST(BinaryWriter, WritesTextsOfAnyLengthLikeTheReference) {
  for (std::size_t size = 0; size < 300; ++size) expectLikeTheReference(std::string(size, 'x'));
  for (std::size_t size = 960; size < 1040; ++size) expectLikeTheReference(std::string(size, 'x'));
  for (const std::size_t size : {65535, 65536, 100000}) expectLikeTheReference(std::string(size, 'x'));
}

TEST(BinaryWriter, FindsLettersBeyondAsciiAtEveryPlaceOfAText) {
  for (const std::size_t size : {0, 1, 12, 13, 14, 15, 16, 17, 31, 32, 33, 47, 64, 127, 128, 129, 990, 1000, 5000}) {
    for (std::size_t place = 0; place <= size; place += size < 900 ? 1 : 97) {
      for (const char* letter : {"\u00f6", "\u20ac", "\U0001F600"}) {
        expectLikeTheReference(std::string(size, 'x').insert(place, letter));
      }
    }
  }
}

TEST(BinaryWriter, RefusesTextsThatAreNotUtf8AtEveryPlace) {
  for (const std::size_t size : {1, 14, 15, 16, 17, 33, 128, 129, 2000}) {
    for (std::size_t place = 0; place < size; place += size < 900 ? 1 : 97) {
      std::string text(size, 'x');
      text[place] = '\x80';
      Problem problem;
      EXPECT_FALSE(writeBinary(text, problem)) << size << ' ' << place;
      EXPECT_EQ(problem.text, "a text is not UTF-8");
    }
  }
}

TEST(BinaryWriter, WritesNumbersOfEveryWidthLikeTheReference) {
  TKSArray numbers{0, -1};
  for (int bit = 0; bit < 64; ++bit) {
    const std::uint64_t power = std::uint64_t{1} << bit;
    for (const std::uint64_t number : {power - 1, power, power + 1, ~power}) {
      numbers.append(number);
      numbers.append(static_cast<std::int64_t>(number));
      numbers.append(static_cast<double>(number));
    }
  }
  expectLikeTheReference(numbers);
}

TEST(BinaryWriter, WritesAnyNumberOfObjectsLikeTheReference) {
  for (const int count : {14, 15, 16, 126, 127, 128, 254, 255, 256, 257, 5000, 65534, 65535, 65536, 70000}) {
    TKSArray array;
    std::vector<std::pair<std::string, TKSValue>> entries;
    for (int i = 0; i < count; ++i) {
      array.append(i % 3 == 0 ? TKSValue(i) : TKSValue("text " + std::to_string(i % 1000)));
      entries.emplace_back("key " + std::to_string(i), TKSArray{i, "key " + std::to_string(i / 2)});
    }
    expectLikeTheReference(array);
    if (count <= 5000) expectLikeTheReference(TKSDictionary(std::move(entries)));
  }
}

}  // namespace
