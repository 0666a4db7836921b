#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tks {

/// The components of a path, as parts of it. Empty ones and "." name nothing and are left out; ".." is one.
std::vector<std::string_view> pathComponents(std::string_view path, std::string_view separators = "/");

/// Where a link leads that is followed over all other links on its way.
enum class LinkEnd {
  inside,   ///< where it may, or nowhere
  outside,  ///< above the folder that it may not leave, or from the volume's top
  endless,  ///< over more links than any system follows
};

/// What the walk is about.
struct LinkWalk {
  /// Where it begins: folders, none of them a link.
  std::vector<std::string> place;
  /// How many folders of the place it may not leave.
  std::size_t floor = 0;
  /// Links that are followed; one more is endless.
  int mostLinks = 40;
  std::string_view separators = "/";
  /// The target of a link at a place; nothing for what is no link. An empty target cannot be told: it leads out.
  std::function<std::optional<std::string>(const std::vector<std::string>& place)> targetAt;
};

/// Walks a path from the place on, component by component, so that nothing is looked at beyond where it may lead.
LinkEnd followPath(LinkWalk walk, std::string_view path);

}  // namespace tks
