#pragma once

#include <string>
#include <string_view>

#include <tksinterface/TKSError.h>

#include "platform/signatures.h"

namespace tks::install {

/// What of a launcher's content is checked before it is started.
struct ContentChecks {
  /// All that is checked before an installation.
  bool whole = false;
  /// That all code inside is of one signer.
  bool oneSigner = false;
};

/// Checks the content of a bundle. One that passed the same checks in this process, and that was not changed since, is
/// not read again: files().changeMark tells, which no program can forge without the rights of the superuser. Refused as
/// well when it changes while it is checked. Any thread; blocks while it reads.
bool checkContent(std::string_view path, ContentChecks checks, TKSError* error);

/// The checks of content before an installation, the plain one and the one in depth: also nested code with its pages
/// and resources, links that leave the bundle, and files outside of what is sealed. Both are made at once.
class CheckBeforeInstalling {
 public:
  /// Reads all of it. Any thread.
  explicit CheckBeforeInstalling(std::string_view path);

  /// How the plain one ended.
  bool passedPlain(TKSError* error) const;
  /// How the one in depth ended. To be asked after the plain one has passed.
  bool passedInDepth(TKSError* error) const;

 private:
  TKSError failure_;
  bool opened_ = false;
  platform::StaticCode::InstallingVerdict verdict_;
};

/// That all code inside of a bundle is of one signer, without asking what was checked before.
bool checkOneSigner(std::string_view path, TKSError* error);

}  // namespace tks::install
