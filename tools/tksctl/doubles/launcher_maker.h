#pragma once

#include <functional>
#include <optional>
#include <string>

#include <tksinterface/TKSError.h>
#include <tksinterface/TKSValue.h>

#include "codesign/Codesign.h"
#include "tools/fake_launcher/behaviour.h"

namespace tks::ctl {

/// What a fake launcher is made of.
struct FakeLauncherPlan {
  /// The folder that it goes to, which is made where it is missing.
  std::string folder;
  TKSDictionary behaviour;
  std::string version;
};

/// The installed program that such a launcher runs; empty, and an error that says where it was looked for, when it is
/// missing.
std::string fakeLauncherProgram(TKSError* error);

/// Makes FOLDER/"Tarvo Kovra Start.app" around that program, with the bundles that it updates itself to inside, signed
/// by `identity` with a time stamp, and with a mark as of a notarized application. It is there as a whole or not at
/// all. A fake launcher that stands there is replaced; anything else is left alone, and an error. Returns the path.
/// `isStopped` is asked before the place is taken: nothing is left behind then, and no error is set.
std::optional<std::string> makeFakeLauncher(const FakeLauncherPlan& plan, const codesign::SigningIdentity& identity,
                                            const std::function<bool()>& isStopped, TKSError* error);

}  // namespace tks::ctl
