#include <tksinterface/TKSFormat.h>

namespace tks::format {
namespace {

void appendNumber(std::string& out, char conversion, std::uint64_t number) {
  switch (conversion) {
    case 'u':
      out += std::to_string(static_cast<std::uint32_t>(number));
      return;
    case 'l':
      out += std::to_string(number);
      return;
    default:
      out += std::to_string(static_cast<std::int32_t>(static_cast<std::uint32_t>(number)));
  }
}

void appendArgument(std::string& out, char conversion, const Argument& argument) {
  switch (argument.kind()) {
    case Argument::Kind::text:
      out += argument.text();
      return;
    case Argument::Kind::object:
      out += argument.description();
      return;
    case Argument::Kind::number:
      appendNumber(out, conversion, argument.number());
  }
}

}  // namespace

std::string format(std::string_view text, std::span<const Argument> arguments) {
  std::string out;
  out.reserve(text.size() + 32 * arguments.size());
  std::size_t next = 0;
  while (!text.empty()) {
    const std::size_t percent = text.find('%');
    out += text.substr(0, percent);
    if (percent == std::string_view::npos || percent + 1 >= text.size()) break;
    const char conversion = text[percent + 1];
    text.remove_prefix(percent + (conversion == 'l' ? 3 : 2));
    if (conversion == '%') {
      out += '%';
    } else if (next < arguments.size()) {
      appendArgument(out, conversion, arguments[next++]);
    }
  }
  return out;
}

}  // namespace tks::format
