#pragma once

#include <string>

#include "codesign/Codesign.h"
#include "tools/tksctl/frame/command_line.h"

namespace tks::ctl {

/// The options that say who signs.
struct IdentityWishes {
  std::string folder;
  std::string pkcs12File;
  std::string keyFile;
  std::string chainFile;
  std::string password;

  bool isGiven() const { return !folder.empty() || !pkcs12File.empty() || (!keyFile.empty() && !chainFile.empty()); }
};

/// -i, --pkcs12, --key, --chain and --password.
void addIdentityOptions(const CommandLine& line, IdentityWishes& wishes);

/// The identity that was asked for. Throws, with what could not be done, when it cannot be had.
codesign::SigningIdentity loadIdentity(const IdentityWishes& wishes);

/// An identity for tests, with authorities of its own. Throws, with the reason, when it cannot be made.
codesign::SigningIdentity newIdentity(const codesign::IdentityPlan& plan);

/// Throws when the outcome is not good: `about` and why.
void require(const codesign::Outcome& outcome, const std::string& about);

}  // namespace tks::ctl
