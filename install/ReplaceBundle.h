#pragma once

#include <string>
#include <string_view>

#include <tksinterface/TKSError.h>

namespace tks::install {

/// Where the bundle is kept that stood at a path before the present one.
std::string previousBundleOf(std::string_view target);

/// Lets the kept bundle take its place again, and removes the one that stands there. False, and `error`, when both stay
/// where they are.
bool putPreviousBack(const std::string& target, TKSError* error);

/// Puts a bundle in the place of another, or in an empty place. At every moment the target is what stood there before
/// or the new bundle as a whole; a process that ends half-way leaves at most a hidden bundle beside the target, which
/// the next replacement removes.
///
/// Made for one replacement: `stage`, then `putInPlace`. Destroyed without the latter it leaves no trace.
class BundleReplacement {
 public:
  explicit BundleReplacement(std::string target);
  ~BundleReplacement();
  BundleReplacement(const BundleReplacement&) = delete;
  BundleReplacement& operator=(const BundleReplacement&) = delete;

  /// Moves the new bundle to a hidden name beside the target (from another volume: copies, syncs and renames). The
  /// target's folder must exist.
  bool stage(const std::string& bundle, TKSError* error);
  /// The staged bundle, for a last look before it is put in place.
  const std::string& stagedPath() const { return staged_; }
  /// Exchanges the staged bundle with the target, or renames it into the empty place. The old one is removed
  /// at the end of this object.
  bool putInPlace(TKSError* error);
  /// After `putInPlace`: keeps the old bundle, if there was one, in place of one that was kept before. Without it the
  /// old one is removed.
  void keepOld();

 private:
  void removeLeftOvers() const;

  std::string target_;
  std::string folder_;
  std::string prefix_;
  std::string staged_;
};

}  // namespace tks::install
