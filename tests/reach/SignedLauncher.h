#pragma once

#include <filesystem>
#include <string>

#include "codesign/signing/identity.h"
#include "codesign/signing/signer.h"
#include "tests/support/FakeLauncher.h"

namespace tks::test {

/// An identity of the maker, made once for all tests of the program.
inline const signing::Identity& makersIdentity() {
  static const auto& made = *new signing::Identity([] {
    signing::IdentityPlan plan;
    plan.rsa = false;
    return signing::makeIdentity(plan);
  }());
  return made;
}

/// A launcher that hosts start without further ado: the maker signed it. What it does wrong, it is told through the
/// environment.
struct SignedLauncher : FakeLauncher {
  SignedLauncher() {
    // Its orders are no part of what is signed.
    std::filesystem::remove(file("switches"));
    signing::SigningOptions options;
    options.identity = &makersIdentity();
    signing::sign(bundle(), options);
  }
};

}  // namespace tks::test
