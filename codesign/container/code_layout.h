#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <tksinterface/TKSValue.h>

#include "codesign/container/byte_source.h"
#include "codesign/container/mach_o.h"
#include "codesign/container/status.h"

// Where the parts of code stand on disk.
//
//   X/Contents            X/Contents/Info.plist, X/Contents/MacOS/<executable>        applications and most bundles
//   X/Versions/Current    .../Resources/Info.plist, .../<executable>                  frameworks
//   X                     X/Resources/Info.plist or X/Info.plist, X/<executable>      shallow bundles, version folders
//
// <executable> is CFBundleExecutable, else the bundle's name without its extension. Without an executable the
// Info.plist takes its place.

namespace tks::codesign {

struct CodeLayout {
  /// Folder that the seal covers, with no link in its path; empty for a single file.
  std::string supportFolder;
  /// Path of a bundle's Info.plist; empty when it has none, and for a single file.
  std::string infoPlist;
  /// What is signed: the main executable, what stands in its place, or the single file.
  std::string executable;
  std::shared_ptr<const File> file;  ///< the executable, open
  /// The executable as Mach-O file, when it is one that counts as code.
  std::optional<MachO> image;
  /// "app bundle with Mach-O thin (arm64)" and so on.
  std::string format;

  /// The bundle itself, and what only the strict check takes offence at; 0 when there is nothing.
  std::string root;
  Status strictIssue = status::kGood;
  /// The versions of a framework beside the current one.
  std::vector<std::string> otherVersions;

  bool isBundle() const { return !supportFolder.empty(); }
  /// Whether all that is checked for this code lies in `place`, or is that file: links can lead elsewhere. `place` is a
  /// path without links.
  bool isWithin(const std::string& place) const;
};

/// Finds the code at a path: a bundle, a bundle whose main executable it is, or a single file. Fails when there is
/// none.
CodeLayout findCode(const std::string& path);

}  // namespace tks::codesign
