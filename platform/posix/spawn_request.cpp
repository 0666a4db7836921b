#include "platform/posix/spawn_request.h"

#include <algorithm>
#include <cerrno>

#include "platform/platform.h"

namespace tks::posix {

bool canBePassed(const SpawnRequest& request) {
  const auto isWhole = [](const std::string& text) { return text.find('\0') == std::string::npos; };
  if (isWhole(request.executable) && std::ranges::all_of(request.arguments, isWhole)) return true;
  errno = EINVAL;
  return false;
}

std::vector<std::string> cleanEnvironment(std::string_view locale) {
  return {"PATH=/usr/bin:/bin:/usr/sbin:/sbin", "LC_ALL=" + std::string(locale),
          "HOME=" + platform::knownFolders().realHome()};
}

std::vector<char*> pointersTo(const std::vector<std::string>& texts, const std::string* first) {
  std::vector<char*> result;
  result.reserve(texts.size() + 2);
  if (first != nullptr) result.push_back(const_cast<char*>(first->c_str()));
  for (const std::string& text : texts) result.push_back(const_cast<char*>(text.c_str()));
  result.push_back(nullptr);
  return result;
}

}  // namespace tks::posix
