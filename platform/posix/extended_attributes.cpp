#include "platform/posix/extended_attributes.h"

#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "formats/apple_double.h"
#include "platform/posix/posix_error.h"
#include "platform/posix/whole_files.h"

namespace tks::posix {
namespace {

constexpr std::string_view kPrefix = "user.";
constexpr std::size_t kLongestSideCar = std::size_t{16} * 1024 * 1024;

std::string systemName(std::string_view name) { return std::string(kPrefix).append(name); }

bool hasNoAttributes(int number) { return number == ENOTSUP || number == ENOSYS || number == EPERM; }

/// Calls a reader of the kernel's two-step kind (size first, then content) until the size holds.
template <class Content, class Call>
bool readSized(Content& content, Call call) {
  while (true) {
    const ssize_t size = call(nullptr, 0);
    if (size < 0) return false;
    content.resize(static_cast<std::size_t>(size));
    if (size == 0) return true;
    const ssize_t length = call(content.data(), content.size());
    if (length >= 0) {
      content.resize(static_cast<std::size_t>(length));
      return true;
    }
    if (errno != ERANGE) return false;
  }
}

/// The names with our prefix in a list of NUL-terminated names.
std::vector<std::string> userNames(const std::string& list) {
  std::vector<std::string> names;
  for (std::size_t at = 0; at < list.size(); at += names.back().size() + 1) names.emplace_back(list.c_str() + at);
  std::erase_if(names, [](const std::string& name) { return !name.starts_with(kPrefix); });
  return names;
}

TKSDictionary sideCarAttributes(const std::string& path) {
  const std::optional<std::string> sideCar = formats::sideCarPath(path);
  struct stat facts {};
  // Asked first, since nearly nothing has one.
  if (!sideCar || ::lstat(sideCar->c_str(), &facts) != 0 || !S_ISREG(facts.st_mode)) return {};
  const std::optional<TKSData> content = readWholeFile(*sideCar, kLongestSideCar, nullptr);
  const std::optional<formats::AppleDouble> parsed = content ? formats::parseAppleDouble(*content) : std::nullopt;
  return parsed ? parsed->attributes : TKSDictionary();
}

/// Removes an attribute from the side-car: 0, or -1 and errno.
int removeFromSideCar(const std::string& path, std::string_view name) {
  formats::AppleDouble rest{sideCarAttributes(path)};
  if (!rest.attributes.erase(name)) {
    errno = ENODATA;
    return -1;
  }
  const std::string sideCar = formats::sideCarPath(path).value_or("");
  if (rest.attributes.empty()) return ::unlink(sideCar.c_str());
  const std::optional<TKSData> content = formats::serializeAppleDouble(rest);
  TKSError error;
  if (content && posix::replaceFile(sideCar, *content, &error)) return 0;
  errno = content ? static_cast<int>(error.code) : EINVAL;
  return -1;
}

}  // namespace

std::optional<TKSDictionary> readExtendedAttributes(const std::string& path, TKSError* error) {
  struct stat facts {};
  if (::lstat(path.c_str(), &facts) != 0) {
    posix::fail(error, "read the attributes of", path);
    return std::nullopt;
  }
  TKSDictionary attributes = sideCarAttributes(path);
  std::string list;
  if (!readSized(list, [&](char* into, std::size_t size) { return ::llistxattr(path.c_str(), into, size); })) {
    if (hasNoAttributes(errno)) return attributes;
    posix::fail(error, "read the attributes of", path);
    return std::nullopt;
  }
  for (const std::string& name : userNames(list)) {
    TKSData content;
    const bool read = readSized(
        content, [&](void* into, std::size_t size) { return ::lgetxattr(path.c_str(), name.c_str(), into, size); });
    if (read) attributes.set(name.substr(kPrefix.size()), std::move(content));  // else it has just been removed
  }
  return attributes;
}

std::optional<TKSData> readExtendedAttribute(const std::string& path, std::string_view name) {
  TKSData content;
  const std::string full = systemName(name);
  const bool read = readSized(
      content, [&](void* into, std::size_t size) { return ::lgetxattr(path.c_str(), full.c_str(), into, size); });
  if (read) return content;
  const TKSDictionary sideCar = sideCarAttributes(path);
  const TKSValue* value = sideCar.find(name);
  return value != nullptr ? std::optional(value->data()) : std::nullopt;
}

bool setExtendedAttribute(const std::string& path, std::string_view name, std::span<const std::uint8_t> content,
                          TKSError* error) {
  const std::string full = systemName(name);
  return ::lsetxattr(path.c_str(), full.c_str(), content.data(), content.size(), 0) == 0 ||
         posix::fail(error, "set an attribute of", path);
}

int removeExtendedAttribute(const std::string& path, std::string_view name) {
  const std::string full = systemName(name);
  const int own = ::lremovexattr(path.c_str(), full.c_str());
  if (own != 0 && errno != ENODATA && !hasNoAttributes(errno)) return -1;
  const int reason = errno;
  const int beside = removeFromSideCar(path, name);
  if (own == 0) return beside == 0 || errno == ENODATA ? 0 : -1;
  if (beside != 0 && errno == ENODATA) errno = reason;
  return beside;
}

bool copyExtendedAttributes(int from, int to) {
  std::string list;
  if (!readSized(list, [&](char* into, std::size_t size) { return ::flistxattr(from, into, size); })) {
    return hasNoAttributes(errno);
  }
  for (const std::string& name : userNames(list)) {
    TKSData content;
    const bool read =
        readSized(content, [&](void* into, std::size_t size) { return ::fgetxattr(from, name.c_str(), into, size); });
    if (!read) continue;
    if (::fsetxattr(to, name.c_str(), content.data(), content.size(), 0) != 0 && !hasNoAttributes(errno)) return false;
  }
  return true;
}

bool isSideCar(const std::string& path) {
  const std::optional<std::string> item = formats::itemOfSideCar(path);
  struct stat facts {};
  if (!item || ::lstat(item->c_str(), &facts) != 0 || ::lstat(path.c_str(), &facts) != 0 || !S_ISREG(facts.st_mode))
    return false;
  const std::optional<TKSData> content = readWholeFile(path, kLongestSideCar, nullptr);
  return content && formats::parseAppleDouble(*content);
}

}  // namespace tks::posix
