#pragma once

#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <tksinterface/TKSExport.h>

/// Values of property lists, of preferences and of JSON.
///
/// Everything here is a value: copying shares the content and costs one reference count, changing a copy never changes
/// the original. Different objects may be used from different threads at once, also when they share content; one object
/// must not be changed on one thread while another thread uses it. Nesting of any depth is copied, compared, printed
/// and destroyed without recursion.

class TKSArray;
class TKSDictionary;

namespace tks::value {
struct Node;
struct Access;
}  // namespace tks::value

/// Bytes.
using TKSData = std::vector<std::uint8_t>;

/// Keys of a nested value, outermost first. There is no textual form and no separator.
using TKSKeyPath = std::vector<std::string>;

/// A moment, counted in seconds from 1970-01-01 00:00:00 UTC.
struct TKSDate {
  /// Fractions of a second count too.
  double secondsSince1970 = 0;
  friend bool operator==(const TKSDate&, const TKSDate&) = default;
};

/// The null of JSON. Unlike an absent value ("nothing") it is something that was said.
struct TKSNull {
  friend bool operator==(const TKSNull&, const TKSNull&) = default;
};

/// One value of any kind: nothing, null, boolean, integer, real, text, data, date, array or dictionary.
///
/// Readers of the wrong kind return the neutral value of their type (false, 0, empty) and never fail. Texts are UTF-8.
class TKS_EXPORT TKSValue {
 public:
  /// What a value can be.
  enum class Kind : std::uint8_t {
    nothing,     ///< absent
    null,        ///< JSON's null
    boolean,     ///< true or false
    integer,     ///< whole numbers from -2^63 to 2^64-1
    real,        ///< all other numbers
    text,        ///< UTF-8
    data,        ///< bytes
    date,        ///< a moment
    array,       ///< values in an order
    dictionary,  ///< values by texts
  };

  /// Nothing: an absent value.
  constexpr TKSValue() noexcept = default;
  /// JSON's null.
  TKSValue(TKSNull) noexcept : kind_(Kind::null) {}
  /// A boolean.
  TKSValue(bool value) noexcept : TKSValue(Kind::boolean, value) {}
  /// An integer, from -2^63 to 2^64-1.
  template <std::integral Integer>
  requires(!std::same_as<Integer, bool>) TKSValue(Integer value)
  noexcept : TKSValue(Kind::integer, static_cast<std::int64_t>(value)) {
    storage_[kUnsignedMark] = std::is_unsigned_v<Integer> && static_cast<std::uint64_t>(value) >> 63 != 0;
  }
  /// A real.
  TKSValue(double value) noexcept : TKSValue(Kind::real, value) {}
  /// A text.
  TKSValue(std::string_view text);
  /// A text.
  TKSValue(const std::string& text) : TKSValue(std::string_view(text)) {}
  /// A text; a null pointer gives nothing.
  TKSValue(const char* text);
  /// A text or nothing.
  TKSValue(const std::optional<std::string>& text);
  /// Bytes.
  TKSValue(TKSData data);
  /// A moment.
  TKSValue(TKSDate date) noexcept : TKSValue(Kind::date, date.secondsSince1970) {}
  /// An array; shares its content.
  TKSValue(TKSArray array) noexcept;
  /// A dictionary; shares its content.
  TKSValue(TKSDictionary dictionary) noexcept;

  /// Shares the content.
  TKSValue(const TKSValue& other) noexcept {
    assign(other);
    if (isShared()) retain();
  }
  /// Takes the content; `other` is empty afterwards.
  TKSValue(TKSValue&& other) noexcept {
    assign(other);
    other.forget();
  }
  /// Shares the content.
  TKSValue& operator=(const TKSValue& other) noexcept { return *this = TKSValue(other); }
  /// Leaves nothing behind in `other`.
  TKSValue& operator=(TKSValue&& other) noexcept {
    TKSValue taken(std::move(other));
    TKSValue before;
    before.assign(*this);  // goes away last: what it holds may be what `other` stood in
    assign(taken);
    taken.forget();
    return *this;
  }
  constexpr ~TKSValue() {
    if (isShared()) release();
  }

  /// What the value is.
  Kind kind() const noexcept { return kind_; }
  /// Whether the value is absent.
  bool isNothing() const noexcept { return kind_ == Kind::nothing; }
  /// Whether the value is JSON's null.
  bool isNull() const noexcept { return kind_ == Kind::null; }
  /// Whether the value is a boolean.
  bool isBoolean() const noexcept { return kind_ == Kind::boolean; }
  /// Whether the value is an integer.
  bool isInteger() const noexcept { return kind_ == Kind::integer; }
  /// Whether the value is a real.
  bool isReal() const noexcept { return kind_ == Kind::real; }
  /// A boolean, an integer or a real.
  bool isNumber() const noexcept { return isBoolean() || isInteger() || isReal(); }
  /// Whether the value is a text.
  bool isText() const noexcept { return kind_ == Kind::text; }
  /// Whether the value is bytes.
  bool isData() const noexcept { return kind_ == Kind::data; }
  /// Whether the value is a moment.
  bool isDate() const noexcept { return kind_ == Kind::date; }
  /// Whether the value is an array.
  bool isArray() const noexcept { return kind_ == Kind::array; }
  /// Whether the value is a dictionary.
  bool isDictionary() const noexcept { return kind_ == Kind::dictionary; }

  /// The boolean, or whether the number is not zero.
  bool boolean() const noexcept;
  /// Whether the value is an integer from 2^63 to 2^64-1, which only `unsignedInteger` holds.
  bool isUnsignedInteger() const noexcept { return kind_ == Kind::integer && storage_[kUnsignedMark] != 0; }
  /// The integer, clamped to 63 bits and sign; a boolean as 0 or 1; a real cut towards zero and clamped as well.
  std::int64_t integer() const noexcept;
  /// The integer of a value that is an unsigned one; `integer`, or 0 for a negative one, else.
  std::uint64_t unsignedInteger() const noexcept {
    if (isUnsignedInteger()) return scalar<std::uint64_t>();
    const std::int64_t number = integer();
    return number < 0 ? 0 : static_cast<std::uint64_t>(number);
  }
  /// The number as a real.
  double real() const noexcept;
  /// The text. The view holds as long as this value is neither changed nor destroyed.
  std::string_view text() const noexcept {
    if (kind_ != Kind::text) return {};
    if (isShared()) return sharedText();
    return {reinterpret_cast<const char*>(storage_), inlineLength_};
  }
  /// The text as a string of its own, or nothing when this is no text.
  std::optional<std::string> optionalText() const;
  /// A copy of the bytes.
  TKSData data() const;
  /// The moment.
  TKSDate date() const noexcept;
  /// The array; shares its content.
  TKSArray array() const noexcept;
  /// The dictionary; shares its content.
  TKSDictionary dictionary() const noexcept;

  /// The value under a key of a dictionary; nothing when absent or when this is no dictionary. The reference holds as
  /// long as this value is neither changed nor destroyed.
  const TKSValue& operator[](std::string_view key) const noexcept;
  /// The same.
  const TKSValue& operator[](const char* key) const noexcept { return (*this)[std::string_view(key)]; }
  /// The element of an array; nothing when out of range or when this is no array.
  const TKSValue& operator[](std::size_t index) const noexcept;
  /// The same.
  const TKSValue& operator[](int index) const noexcept { return (*this)[static_cast<std::size_t>(index)]; }

  /// Same kind and same content. An integer equals a real of the same number; a boolean equals only a boolean; "not a
  /// number" equals itself.
  friend TKS_EXPORT bool operator==(const TKSValue& left, const TKSValue& right) noexcept;

  /// The text of the value as log lines and messages show it: texts as they are, integers in decimal, reals with the
  /// fewest digits that read back the same, booleans 1 and 0, nothing as "(null)", JSON null as "<null>", data as
  /// "<0a0b>", arrays and dictionaries in the old-style property-list layout.
  std::string description() const;
  /// A stable word for the kind, for messages about a wrong kind of value: "dictionary", "array", "string", "number"
  /// (integers and reals), "boolean", "null", "data", "date", and "(null)" for nothing.
  std::string_view className() const noexcept;

 private:
  friend class TKSArray;
  friend class TKSDictionary;
  friend struct tks::value::Node;
  friend struct tks::value::Access;

  template <class Scalar>
  TKSValue(Kind kind, Scalar value) noexcept : kind_(kind) {
    std::memcpy(storage_, &value, sizeof value);
  }
  template <class Scalar>
  Scalar scalar() const noexcept {
    Scalar value;
    std::memcpy(&value, storage_, sizeof value);
    return value;
  }
  constexpr bool isShared() const noexcept { return inlineLength_ == kShared; }
  /// Takes over the bits; the shared node, if there is one, keeps its count.
  void assign(const TKSValue& other) noexcept {
    std::memcpy(static_cast<void*>(this), static_cast<const void*>(&other), sizeof *this);
  }
  void forget() noexcept {
    inlineLength_ = 0;
    kind_ = Kind::nothing;
  }
  void retain() const noexcept;
  void release() const noexcept;
  std::string_view sharedText() const noexcept;

  /// Texts and data of at most this many bytes stand in the value itself.
  static constexpr std::size_t kInlineCapacity = 14;
  /// In storage_, after the number: 1 for an integer that has no sign because it needs all 64 bits.
  static constexpr std::size_t kUnsignedMark = 8;
  /// In inlineLength_: the content stands in a shared node, whose address is in storage_.
  static constexpr std::uint8_t kShared = 0xFF;

  // 16 bytes: the number, the short text (with zeros after it) or the address of the shared node; then the length of
  // the short text; the kind.
  alignas(8) unsigned char storage_[kInlineCapacity] = {};
  std::uint8_t inlineLength_ = 0;
  Kind kind_ = Kind::nothing;
};

/// An array of values.
class TKS_EXPORT TKSArray {
 public:
  /// Walks over the elements.
  using const_iterator = const TKSValue*;

  constexpr TKSArray() noexcept = default;
  /// An array of these values.
  TKSArray(std::initializer_list<TKSValue> values);
  /// An array of these values.
  explicit TKSArray(std::vector<TKSValue> values);
  /// Shares the content.
  TKSArray(const TKSArray& other) noexcept;
  /// Takes the content; `other` is empty afterwards.
  TKSArray(TKSArray&& other) noexcept;
  /// Shares the content.
  TKSArray& operator=(const TKSArray& other) noexcept;
  /// Takes the content; `other` is empty afterwards.
  TKSArray& operator=(TKSArray&& other) noexcept;
  ~TKSArray();

  /// Number of elements, or of entries.
  std::size_t size() const noexcept;
  /// Whether there are none.
  bool empty() const noexcept { return size() == 0; }
  /// The element, or nothing when `index` is out of range.
  const TKSValue& operator[](std::size_t index) const noexcept;
  /// References and iterators hold as long as this array is neither changed nor destroyed.
  const_iterator begin() const noexcept;
  /// After the last one.
  const_iterator end() const noexcept;

  /// Adds an element at the end.
  void append(TKSValue value);
  /// Replaces the element at `index`; does nothing when `index` is out of range.
  void set(std::size_t index, TKSValue value);

  friend TKS_EXPORT bool operator==(const TKSArray& left, const TKSArray& right) noexcept;
  /// As TKSValue::description.
  std::string description() const;

 private:
  friend class TKSValue;
  friend struct tks::value::Access;
  tks::value::Node* node_ = nullptr;
};

/// A dictionary with text keys, enumerated in byte order of its keys. Keys are unique.
class TKS_EXPORT TKSDictionary {
 public:
  /// Walks over pairs of key and value: for (auto [key, value] : dictionary).
  class TKS_EXPORT const_iterator {
   public:
    /// For the algorithms of the standard library.
    using value_type = std::pair<std::string_view, const TKSValue&>;
    /// For the algorithms of the standard library.
    using reference = value_type;
    /// For the algorithms of the standard library.
    using pointer = void;
    /// For the algorithms of the standard library.
    using difference_type = std::ptrdiff_t;
    /// For the algorithms of the standard library.
    using iterator_category = std::input_iterator_tag;

    const_iterator() noexcept = default;
    /// Key and value.
    reference operator*() const noexcept { return {position_[0].text(), position_[1]}; }
    /// Goes to the next entry.
    const_iterator& operator++() noexcept {
      position_ += 2;
      return *this;
    }
    /// Goes to the next entry; returns where it was.
    const_iterator operator++(int) noexcept {
      const_iterator before = *this;
      ++*this;
      return before;
    }
    friend bool operator==(const const_iterator&, const const_iterator&) = default;

   private:
    friend class TKSDictionary;
    explicit const_iterator(const TKSValue* position) noexcept : position_(position) {}
    // Keys and values alternate: a key is a text value, its value stands right after it.
    const TKSValue* position_ = nullptr;
  };

  constexpr TKSDictionary() noexcept = default;
  /// Of several entries with one key the last one counts.
  TKSDictionary(std::initializer_list<std::pair<std::string_view, TKSValue>> entries);
  /// Builds a large dictionary at once, in O(n log n). Of several entries with one key the last one counts.
  explicit TKSDictionary(std::vector<std::pair<std::string, TKSValue>> entries);
  /// Shares the content.
  TKSDictionary(const TKSDictionary& other) noexcept;
  /// Takes the content; `other` is empty afterwards.
  TKSDictionary(TKSDictionary&& other) noexcept;
  /// Shares the content.
  TKSDictionary& operator=(const TKSDictionary& other) noexcept;
  /// Takes the content; `other` is empty afterwards.
  TKSDictionary& operator=(TKSDictionary&& other) noexcept;
  ~TKSDictionary();

  /// Number of elements, or of entries.
  std::size_t size() const noexcept;
  /// Whether there are none.
  bool empty() const noexcept { return size() == 0; }
  /// Whether there is a value under the key.
  bool contains(std::string_view key) const noexcept { return find(key) != nullptr; }
  /// The value under the key, or a null pointer. References, pointers and iterators hold as long as this dictionary is
  /// neither changed nor destroyed.
  const TKSValue* find(std::string_view key) const noexcept;
  /// The value under the key, or nothing.
  const TKSValue& operator[](std::string_view key) const noexcept;
  /// The first one.
  const_iterator begin() const noexcept;
  /// After the last one.
  const_iterator end() const noexcept;

  /// Stores a value under a key, replacing an earlier one. Storing nothing removes the key.
  void set(std::string_view key, TKSValue value);
  /// Removes a key; returns whether it was there.
  bool erase(std::string_view key);

  friend TKS_EXPORT bool operator==(const TKSDictionary& left, const TKSDictionary& right) noexcept;
  /// As TKSValue::description.
  std::string description() const;

 private:
  friend class TKSValue;
  friend struct tks::value::Access;
  tks::value::Node* node_ = nullptr;
};
