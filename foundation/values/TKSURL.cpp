#include <tksinterface/TKSURL.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace {

constexpr std::string_view kFileScheme = "file";
constexpr std::string_view kHexadecimal = "0123456789ABCDEF";

bool isBlankOrControl(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte <= 0x20 || byte == 0x7F;
}

bool isLetterOrDigit(char character) {
  return (character >= 'A' && character <= 'Z') || (character >= 'a' && character <= 'z') ||
         (character >= '0' && character <= '9');
}

/// What may stand in a path as it is (RFC 3986, section 3.3).
bool isPathCharacter(char character) {
  return isLetterOrDigit(character) || std::string_view("-._~!$&'()*+,=:@/").find(character) != std::string_view::npos;
}

std::string encoded(std::string_view path) {
  std::string text;
  text.reserve(path.size());
  for (const char character : path) {
    if (isPathCharacter(character)) {
      text += character;
      continue;
    }
    const auto byte = static_cast<unsigned char>(character);
    text += '%';
    text += kHexadecimal[byte >> 4];
    text += kHexadecimal[byte & 15];
  }
  return text;
}

/// The value of a hexadecimal digit of either case, or -1.
int digit(char character) {
  if (character >= '0' && character <= '9') return character - '0';
  if (character >= 'A' && character <= 'F') return character - 'A' + 10;
  if (character >= 'a' && character <= 'f') return character - 'a' + 10;
  return -1;
}

std::string decoded(std::string_view text) {
  std::string path;
  path.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const int high = text[i] == '%' && i + 2 < text.size() ? digit(text[i + 1]) : -1;
    const int low = high >= 0 ? digit(text[i + 2]) : -1;
    if (low < 0) {
      path += text[i];
      continue;
    }
    path += static_cast<char>(high * 16 + low);
    i += 2;
  }
  return path;
}

/// The parts of a URL (RFC 3986, section 3), as they are written.
struct Parts {
  std::string_view scheme;
  std::string_view beforePath;
  std::string_view path;
  std::string_view behindPath;
};

bool isScheme(std::string_view text) {
  if (text.empty() || !isLetterOrDigit(text.front()) || digit(text.front()) == text.front() - '0') return false;
  return std::all_of(text.begin(), text.end(), [](char character) {
    return isLetterOrDigit(character) || character == '+' || character == '-' || character == '.';
  });
}

Parts split(std::string_view text) {
  Parts parts;
  std::string_view rest = text.substr(0, text.find_first_of("?#"));
  parts.behindPath = text.substr(rest.size());
  const std::size_t colon = rest.find(':');
  std::size_t pathStart = 0;
  if (colon != std::string_view::npos && isScheme(rest.substr(0, colon))) {
    parts.scheme = rest.substr(0, colon);
    pathStart = colon + 1;
  }
  if (rest.substr(pathStart, 2) == "//") {
    const std::size_t slash = rest.find('/', pathStart + 2);
    pathStart = slash == std::string_view::npos ? rest.size() : slash;
  }
  parts.beforePath = rest.substr(0, pathStart);
  parts.path = rest.substr(pathStart);
  return parts;
}

}  // namespace

TKSURL TKSURL::fileURLWithPath(std::string_view path) {
  TKSURL url;
  if (path.empty()) return url;
  std::string absolute(path);
  if (!path.starts_with('/')) {
    std::error_code failure;
    const std::string folder = std::filesystem::current_path(failure).string();
    // Without a working folder a relative path names nothing.
    if (failure || !folder.starts_with('/')) return url;
    absolute.insert(0, folder.ends_with('/') ? folder : folder + "/");
  }
  url.text_ = "file://" + encoded(absolute);
  return url;
}

std::optional<TKSURL> TKSURL::URLWithString(std::string_view text) {
  if (text.empty() || std::any_of(text.begin(), text.end(), isBlankOrControl)) return std::nullopt;
  TKSURL url;
  url.text_ = text;
  return url;
}

bool TKSURL::isFileURL() const noexcept {
  const std::string_view scheme = split(text_).scheme;
  return std::equal(scheme.begin(), scheme.end(), kFileScheme.begin(), kFileScheme.end(),
                    [](char written, char expected) { return (written | 0x20) == expected; });
}

std::string TKSURL::scheme() const { return std::string(split(text_).scheme); }

std::string TKSURL::path() const {
  std::string path = decoded(split(text_).path);
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  return path;
}

std::optional<std::string> TKSURL::query() const {
  const std::size_t mark = text_.find_first_of("?#");
  if (mark == std::string::npos || text_[mark] == '#') return std::nullopt;
  return text_.substr(mark + 1, text_.find('#', mark) - mark - 1);
}

TKSURL TKSURL::appendingPathComponent(std::string_view component) const {
  Parts parts = split(text_);
  while (parts.path.ends_with('/')) parts.path.remove_suffix(1);
  while (component.starts_with('/')) component.remove_prefix(1);
  TKSURL url;
  url.text_.append(parts.beforePath).append(parts.path).append("/").append(encoded(component)).append(parts.behindPath);
  return url;
}
