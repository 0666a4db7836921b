#include <string>
#include <string_view>

#include <tksinterface/TKSUtilBase.h>

#include "foundation/LimitedTools.h"
#include "foundation/logging/Logging.h"
#include "foundation/values/Characters.h"
#include "foundation/values/FilePaths.h"
#include "foundation/values/Utf8.h"
#include "platform/platform.h"

// Where a downloaded file came from. The system notes it in an extended attribute; from macOS 10.15 on it may hide the
// attribute of files in protected folders, so access is reset and the attribute read once more.

namespace {

constexpr std::string_view kWhereFroms = "com.apple.metadata:kMDItemWhereFroms";
/// How much of the tool's output a log line shows, in characters.
constexpr std::size_t kShownOutput = 500;
/// An attribute is a hint only; nothing of this size was written by a browser.
constexpr std::size_t kLargestAttribute = 1024 * 1024;

struct ProtectedFolder {
  std::string_view name;
  std::string_view service;
};

constexpr ProtectedFolder kProtectedFolders[] = {
    {"Documents", "SystemPolicyDocumentsFolder"},
    {"Desktop", "SystemPolicyDesktopFolder"},
    {"Downloads", "SystemPolicyDownloadsFolder"},
};
constexpr std::string_view kEveryService = "All";

/// The data of an extended attribute, empty when there is none; nothing when the attributes cannot be read at all.
std::optional<TKSData> readAttribute(std::string_view name, std::string_view path, TKSError* error) {
  const std::optional<tks::platform::FileAttributes> attributes = tks::platform::files().attributes(path, error);
  if (!attributes) return std::nullopt;
  TKSData data = attributes->extendedAttributes[name].data();
  if (data.size() > kLargestAttribute) data.clear();
  return data;
}

/// The attribute's data after at most one reset of access; empty when there is none.
TKSData findAttribute(std::string_view name, std::string_view path) {
  TKSError error;
  const std::optional<TKSData> found = readAttribute(name, path, &error);
  if (!found) {
    TKSILog::logWithLevel(TKSILogLevelError, "Get file attributes failed. Pkg Path: %@, error: %@", tks::masked(path),
                          tks::masked(error));
    return {};
  }
  if (!found->empty()) return *found;
  TKSILog::logWithLevel(TKSILogLevelError, "No property:%@ metadata for file: %@.", name, tks::masked(path));
  if (!tks::platform::thisProcess().isCatalinaOrLater()) return {};
  TKSILog::logWithLevel(TKSILogLevelWarning,
                        "OS version is 10.15 at least. Try to reset access to the folder and get property again.");
  TKSUtilBase::resetAppAccessWithPkgPath(path);
  TKSData again = readAttribute(name, path, nullptr).value_or(TKSData());
  if (again.empty()) {
    TKSILog::logWithLevel(TKSILogLevelError, "After reset access, still no property:%@ metadata for file: %@.", name,
                          tks::masked(path));
  }
  return again;
}

}  // namespace

TKSValue TKSUtilBase::getDownloadURLFromFile(std::string_view filePath) {
  const TKSArray entries = getProperty(kWhereFroms, filePath).array();
  if (entries.empty()) {
    TKSILog::logWithLevel(TKSILogLevelError, "kMDItemWhereFroms Plist obj is not array");
    return {};
  }
  const TKSValue& first = entries[0];
  if (!first.text().empty()) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Get download Url from file: %@", tks::masked(first));
  } else {
    const TKSValue all = entries;
    TKSILog::logWithLevel(TKSILogLevelError, "Get URL string failed with plist obj: %@", tks::masked(all));
  }
  return first;
}

TKSValue TKSUtilBase::getProperty(std::string_view property, std::string_view filePath) {
  if (filePath.empty()) {
    TKSILog::logWithLevel(TKSILogLevelError, "Cannot get property:%@ from pkg, because pkgPath is nil or empty!",
                          property);
    return {};
  }
  const TKSData data = findAttribute(property, filePath);
  if (data.empty()) return {};
  TKSError error;
  TKSValue list = tks::platform::propertyLists().parse(data, &error);
  if (list.isNothing()) {
    TKSILog::logWithLevel(TKSILogLevelError, "Convert data to plist failed: %@", tks::masked(error));
    return {};
  }
  if (!list.isArray()) {
    TKSILog::logWithLevel(TKSILogLevelError, "Plist obj is not array: %@", tks::masked(list));
    return {};
  }
  if (list.array().empty()) {
    TKSILog::logWithLevel(TKSILogLevelError, "Plist obj is empty.");
    return {};
  }
  return list;
}

void TKSUtilBase::resetAppAccessWithPkgPath(std::string_view pkgPath) {
  TKSILog::logWithLevel(TKSILogLevelInfo, "Reset access to folder begin.");
  tks::platform::ToolRequest request;
  request.tool = tks::platform::Tool::tccutil;
  request.arguments = {"reset", getSystemPolicyFolderToResetAccess(pkgPath)};
  // A host without an identifier passes none.
  if (const std::optional<std::string> host = tks::platform::bundles().mainBundleIdentifier()) {
    request.arguments.push_back(*host);
  }
  const std::string output = tks::runWithinLimit(request).output;
  // Output that is no text counts as empty.
  const std::string_view shown = tks::utf8::isValid(output) ? tks::firstCharacters(output, kShownOutput) : "(null)";
  TKSILog::logWithLevel(TKSILogLevelInfo, "ResetTask Output: %@", tks::masked(shown));
  TKSILog::logWithLevel(TKSILogLevelInfo, "Reset access to folder end.");
}

std::string TKSUtilBase::getSystemPolicyFolderToResetAccess(std::string_view pkgPath) {
  std::string_view service = kEveryService;
  const std::string home = getRealHomeDirectory();
  for (const ProtectedFolder& folder : kProtectedFolders) {
    // A plain comparison of texts: a sibling whose name begins alike matches too.
    if (!pkgPath.starts_with(tks::joinedPath(home, folder.name))) continue;
    service = folder.service;
    break;
  }
  TKSILog::logWithLevel(TKSILogLevelInfo, "Get SystemPolicyFolderToResetAccess: %@.", service);
  return std::string(service);
}
