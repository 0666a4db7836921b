#pragma once

#include <cstddef>

namespace tks::fuzz {

/// What a target has compared with another reader until now.
struct Compared {
  std::size_t values = 0;
  /// What both read, and the other reader otherwise for reasons of its own.
  std::size_t leftOut = 0;
};

/// A target that leaves something out has this one. Of its corpus most is to be compared: what is left out must not
/// grow until nothing else remains.
[[gnu::weak]] Compared compared();

}  // namespace tks::fuzz
