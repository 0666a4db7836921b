#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

#include <tksinterface/TKSExport.h>

/// The steps of an installation, in their order. The numbers never change their meaning.
enum class TKSInstallStep : std::int32_t {
  examining = 1,  ///< the archive is copied to a private folder and looked into; bytes of it
  unpacking = 2,  ///< the launcher is unpacked; bytes that are written
  checking = 3,   ///< its signature and version are checked; no bytes, as in all that follow
  ending = 4,     ///< running launchers are ended
  replacing = 5,  ///< it takes the place of the old one
  assessing = 6,  ///< the launcher in its place is assessed
};

/// The step's name, as it stands above: "unpacking". Empty for other numbers.
TKS_EXPORT std::string_view TKSInstallStepName(TKSInstallStep step) noexcept;

/// How far an installation has come.
struct TKSInstallProgress {
  /// The step that is under way. An installation that fails ends after any of them.
  TKSInstallStep step = TKSInstallStep::examining;
  /// How many steps there are.
  std::int32_t numberOfSteps = 6;
  /// Bytes that the step has worked through, never more than `bytesTotal`.
  std::uint64_t bytesDone = 0;
  /// Bytes that the step has to work through; 0 for steps that are not counted in bytes.
  std::uint64_t bytesTotal = 0;
};

/// Called at the beginning of each step, at the end of those that are counted in bytes, and several times a second
/// while a launcher is unpacked. Always on the main thread: by the installation itself when it runs there, else through
/// the main loop, in order.
using TKSInstallProgressBlock = std::function<void(const TKSInstallProgress& progress)>;

/// Installations of launchers in this process, whoever began them: TKSUtilBase::installTKSVersion, or a start of
/// TKSInterface with an archive that is newer.
class TKS_EXPORT TKSInstallation {
 public:
  /// Replaces the callback that is told of the progress; an empty one ends the telling. It may be replaced at any time,
  /// by itself too. What it throws is caught and logged at level 8. Any thread.
  static void setProgressBlock(TKSInstallProgressBlock block);
  /// The callback; empty when there is none. Any thread.
  static TKSInstallProgressBlock progressBlock();
};
