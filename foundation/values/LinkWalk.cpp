#include "foundation/values/LinkWalk.h"

#include <utility>

namespace tks {
namespace {

/// Puts the components of a path before what is still to be gone, which stands in reverse. False for a path that leads
/// out by itself.
bool prepend(std::vector<std::string>& ahead, std::string_view path, std::string_view separators) {
  if (path.empty() || path.front() == '/') return false;
  const std::vector<std::string_view> components = pathComponents(path, separators);
  ahead.insert(ahead.end(), components.rbegin(), components.rend());
  return true;
}

}  // namespace

std::vector<std::string_view> pathComponents(std::string_view path, std::string_view separators) {
  std::vector<std::string_view> components;
  while (!path.empty()) {
    const std::size_t end = path.find_first_of(separators);
    const std::string_view component = path.substr(0, end);
    if (!component.empty() && component != ".") components.emplace_back(component);
    path = end == std::string_view::npos ? std::string_view() : path.substr(end + 1);
  }
  return components;
}

LinkEnd followPath(LinkWalk walk, std::string_view path) {
  std::vector<std::string> ahead;
  if (!prepend(ahead, path, walk.separators)) return LinkEnd::outside;
  for (int followed = 0; !ahead.empty();) {
    const std::string component = std::move(ahead.back());
    ahead.pop_back();
    if (component == "..") {
      if (walk.place.size() <= walk.floor) return LinkEnd::outside;
      walk.place.pop_back();
      continue;
    }
    walk.place.push_back(component);
    const std::optional<std::string> target = walk.targetAt ? walk.targetAt(walk.place) : std::nullopt;
    if (!target) continue;
    if (!prepend(ahead, *target, walk.separators)) return LinkEnd::outside;
    if (++followed > walk.mostLinks) return LinkEnd::endless;
    walk.place.pop_back();
  }
  return LinkEnd::inside;
}

}  // namespace tks
