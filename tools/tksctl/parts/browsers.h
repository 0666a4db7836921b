#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace tks::ctl {

/// A browser and where it looks for the manifests of native-messaging hosts.
struct Browser {
  std::string_view name;
  /// What a person calls it.
  std::string_view title;
  /// The user's settings of the browser, and the manifests in them; in the folder for settings, or in the home.
  std::string_view settings;
  std::string_view manifests;
  bool isInHome;
  /// The manifests for all users.
  std::string_view systemManifests;
  /// The manifest's list of those who may call: extensions by identifier, or by origin.
  bool namesExtensions;
};

/// All browsers that are known, in the order of help and lists.
std::span<const Browser> browsers();
const Browser* browserNamed(std::string_view name);

/// The folder of one user's manifests, or of all users'. Folders for settings follow XDG_CONFIG_HOME and HOME, as the
/// browsers do.
std::string manifestFolder(const Browser& browser, bool system);
/// The user has the browser: its settings are there.
bool isUsed(const Browser& browser);

/// Whether browsers take this as the name of a host: lower-case letters, digits, "_" and single dots inside.
bool isHostName(std::string_view name);

}  // namespace tks::ctl
