#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include <tksinterface/TKSExport.h>

/// Formats of log lines and messages: texts with the conversions "%@", "%s", "%i", "%d", "%u", "%lu" and "%%".
///
/// "%@" takes a text or anything with a `description()` that gives one, "%s" a text, "%i" and "%d" an integer printed
/// as signed 32-bit value, "%u" as unsigned 32-bit and "%lu" as unsigned 64-bit value. A null `const char*` prints
/// "(null)". A format that does not fit its arguments does not compile.
namespace tks::format {

template <class T>
concept Text = std::convertible_to<const T&, std::string_view> && !std::is_null_pointer_v<T>;

template <class T>
concept Describable = !Text<T> && requires(const T& object) {
  { object.description() } -> std::convertible_to<std::string>;
};

template <class T>
concept Number = std::integral<T> || std::is_enum_v<T>;

/// One argument of a format, by reference: it must outlive the call it is passed to.
class Argument {
 public:
  /// What the argument is.
  enum class Kind : std::uint8_t {
    text,    ///< for %@ and %s
    object,  ///< a value, an error, a URL: for %@, by its description
    number,  ///< for %i, %d, %u and %lu
  };

  /// Refers to a value; see the concepts above for what it may be.
  template <class T>
  explicit Argument(const T& value) noexcept {
    if constexpr (Text<T>) {
      kind_ = Kind::text;
      if constexpr (std::is_pointer_v<T>) {
        text_ = value == nullptr ? std::string_view("(null)") : std::string_view(value);
      } else {
        text_ = std::string_view(value);
      }
    } else if constexpr (Describable<T>) {
      kind_ = Kind::object;
      object_ = &value;
      describe_ = [](const void* object) { return static_cast<const T*>(object)->description(); };
    } else {
      static_assert(Number<T>, "an argument is a text, an integer, or an object with a description()");
      kind_ = Kind::number;
      number_ = static_cast<std::uint64_t>(value);
    }
  }

  /// What the argument is.
  Kind kind() const noexcept { return kind_; }
  /// The text of a text argument.
  std::string_view text() const noexcept { return text_; }
  /// The description of an object.
  std::string description() const { return describe_(object_); }
  /// The number of a number argument, widened.
  std::uint64_t number() const noexcept { return number_; }

 private:
  Kind kind_ = Kind::number;
  std::string_view text_;
  const void* object_ = nullptr;
  std::string (*describe_)(const void*) = nullptr;
  std::uint64_t number_ = 0;
};

/// The letter for what an argument of a type is: text, object or number.
template <class T>
consteval char kindOf() {
  if constexpr (Text<T>) return 's';
  if constexpr (Describable<T>) return '@';
  return 'i';
}

/// Not constexpr on purpose: reaching it while compiling is the error message.
inline void theFormatDoesNotFitItsArguments() {}

/// A format text checked against the types of its arguments while compiling.
template <class... Arguments>
class Checked {
 public:
  /// Takes a literal; what does not fit stops the compiler.
  template <std::convertible_to<std::string_view> T>
  consteval Checked(const T& text) : text_(text) {
    constexpr char kinds[] = {kindOf<Arguments>()..., '\0'};
    std::size_t next = 0;
    for (std::size_t i = 0; i < text_.size(); ++i) {
      if (text_[i] != '%') continue;
      const char conversion = ++i < text_.size() ? text_[i] : '\0';
      if (conversion == '%') continue;
      const char given = kinds[next < sizeof...(Arguments) ? next++ : sizeof...(Arguments)];
      switch (conversion) {
        case '@':
          if (given != '@' && given != 's') theFormatDoesNotFitItsArguments();
          break;
        case 's':
          if (given != 's') theFormatDoesNotFitItsArguments();
          break;
        case 'l':
          if (++i >= text_.size() || text_[i] != 'u') theFormatDoesNotFitItsArguments();
          [[fallthrough]];
        case 'i':
        case 'd':
        case 'u':
          if (given != 'i') theFormatDoesNotFitItsArguments();
          break;
        default:
          theFormatDoesNotFitItsArguments();
      }
    }
    if (next != sizeof...(Arguments)) theFormatDoesNotFitItsArguments();
  }

  /// The format itself.
  constexpr std::string_view text() const noexcept { return text_; }

 private:
  std::string_view text_;
};

/// The formatted text. Any thread.
TKS_EXPORT std::string format(std::string_view text, std::span<const Argument> arguments);

}  // namespace tks::format

namespace tks {

/// The text that a format and its arguments make, for messages that are both logged and handed on.
template <class... Arguments>
std::string formatted(format::Checked<std::type_identity_t<Arguments>...> text, const Arguments&... arguments) {
  if constexpr (sizeof...(Arguments) == 0) {
    return format::format(text.text(), {});
  } else {
    const format::Argument list[] = {format::Argument(arguments)...};
    return format::format(text.text(), list);
  }
}

}  // namespace tks
