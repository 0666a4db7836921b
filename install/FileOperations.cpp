#include <cstdint>
#include <string>
#include <string_view>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/logging/Logging.h"
#include "foundation/values/ErrorReasons.h"
#include "foundation/values/FilePaths.h"
#include "platform/platform.h"

namespace {

using tks::masked;
using tks::platform::files;

constexpr std::uint32_t kOrdinaryFolder = 0777;

/// Where an operation leaves its error: with the caller, who may not want it, and for the log line.
class ErrorSlot {
 public:
  explicit ErrorSlot(TKSError* callers) : callers_(callers) {}
  TKSError* get() { return &error_; }
  /// Hands the error on; its description for the line.
  std::string passOn() {
    if (callers_ != nullptr) *callers_ = error_;
    return error_.description();
  }

 private:
  TKSError* callers_;
  TKSError error_;
};

bool bothPathsAreThere(std::string_view fromPath, std::string_view toPath) {
  if (fromPath.empty()) {
    TKSILog::logWithLevel(TKSILogLevelError, "FromPath is nil");
    return false;
  }
  if (toPath.empty()) {
    TKSILog::logWithLevel(TKSILogLevelError, "ToPath is nil");
    return false;
  }
  return true;
}

/// Whether something has the name, also a link that leads nowhere. A path that the system would cut short is passed on:
/// the file manager refuses it with its error.
bool isTaken(std::string_view path) { return !tks::isPath(path) || files().exists(path) || files().isLink(path); }

/// A missing source counts as success. Required behaviour: do not fix.
bool isMissing(std::string_view fromPath) {
  if (isTaken(fromPath)) return false;
  TKSILog::logWithLevel(TKSILogLevelError, "No File exist at path: %@", masked(fromPath));
  return true;
}

/// Whether clearing the destination would remove the source, or a part of it. A link is removed alone,
/// so it matters only where it leads to the other of the two.
bool areOneInTheOther(std::string_view fromPath, std::string_view toPath) {
  if (files().isSameItem(fromPath, toPath)) return true;
  if (!files().isLink(toPath) && files().liesWithin(tks::folderOf(fromPath), toPath)) return true;
  const bool isThere = files().isDirectory(toPath) && !files().isLink(toPath);
  return !files().isLink(fromPath) && files().liesWithin(isThere ? toPath : tks::folderOf(toPath), fromPath);
}

/// Copies over whatever is at the destination.
bool copyOver(std::string_view fromPath, std::string_view toPath, TKSError* error) {
  if (areOneInTheOther(fromPath, toPath)) {
    *error = tks::makeError(TKSErrorReason::invalidArgument, TKSUtilErrorDomain, 0,
                            "The source and the destination are one, or one is in the other");
    return false;
  }
  if (tks::isPath(fromPath) && tks::isPath(toPath)) TKSUtilBase::removeFileAtPath(toPath);
  return files().copy(fromPath, toPath, error);
}

/// Ends an application that runs from a folder that is to go whatever happens.
void endApplication(const TKSRunningApplication& application) {
  TKSILog::logWithLevel(TKSILogLevelWarning,
                        "Forced clean! App within the folder path is running! Terminate it firstly! Running app path: "
                        "%@.",
                        masked(application.bundlePath));
  if (TKSUtilBase::forceTerminateApp(application)) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "The terminate request was successfully sent.");
  } else {
    TKSILog::logWithLevel(TKSILogLevelError,
                          "The terminate request failed to sent! Get on clean up as in forced case.");
  }
}

/// Whether an application runs from a folder. The test of texts also meets siblings whose names begin with the folder's
/// ("Kovra 2"): required behaviour. The other test meets folders that are spelled otherwise than the system does.
bool runsFrom(const TKSRunningApplication& application, std::string_view folderPath) {
  return application.bundlePath.starts_with(folderPath) || files().liesWithin(application.bundlePath, folderPath);
}

/// Ends what runs from a folder; false when something does and may not be ended.
bool endApplicationsIn(std::string_view folderPath, bool force) {
  const std::int32_t self = tks::platform::thisProcess().identifier();
  for (const TKSRunningApplication& application : tks::platform::runningApplications().list()) {
    if (!runsFrom(application, folderPath)) continue;
    if (application.processIdentifier == self) {
      TKSILog::logWithLevel(TKSILogLevelInfo, "Ignore terminate self when clean up, pid: %d", self);
      continue;
    }
    if (!force) {
      TKSILog::logWithLevel(
          TKSILogLevelWarning,
          "Non-forced clean. Abort clean up folder: %@! Because has running app under the folder path.",
          masked(folderPath));
      return false;
    }
    endApplication(application);
  }
  return true;
}

}  // namespace

bool TKSUtilBase::cleanUpFolderPath(std::string_view folderPath, bool force) {
  if (folderPath.empty()) {
    TKSILog::logWithLevel(TKSILogLevelError, "Nil/empty folderPath! Fail to cleanup it.");
    return false;
  }
  TKSILog::logWithLevel(TKSILogLevelInfo, "Try to clean up folder path: %@. isForced: %d.", masked(folderPath), force);
  if (!endApplicationsIn(folderPath, force)) return false;
  TKSError error;
  if (removeFileAtPath(folderPath, &error)) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Succeed to clean up folder: %@", masked(folderPath));
    return true;
  }
  const std::string reason = error.description();
  TKSILog::logWithLevel(TKSILogLevelError, "Failed to clean up folder: %@. Error: %@.", masked(folderPath),
                        masked(reason));
  return false;
}

bool TKSUtilBase::removeFileAtPath(std::string_view filePath, TKSError* error) {
  if (filePath.empty()) {
    TKSILog::logWithLevel(TKSILogLevelError, "In filePath is nil");
    return false;
  }
  TKSILog::logWithLevel(TKSILogLevelInfo, "Begin to remove file at path: %@", masked(filePath));
  if (!isTaken(filePath)) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "No File exist at path: %@", masked(filePath));
    return true;
  }
  // A link goes without what it leads to, whose permissions stay as they are.
  if (tks::isPath(filePath) && !files().isLink(filePath) && !files().isWritable(filePath)) {
    TKSILog::logWithLevel(TKSILogLevelWarning,
                          "Current file: %@ is not writable, begin to add read and write permission", masked(filePath));
    addReadAndWritePermissionToFile(filePath);
  }
  ErrorSlot slot(error);
  if (files().remove(filePath, slot.get())) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Remove file at path: %@ success", masked(filePath));
    return true;
  }
  const std::string reason = slot.passOn();
  TKSILog::logWithLevel(TKSILogLevelError, "Remove file at path: %@ failed %@.", masked(filePath), masked(reason));
  return false;
}

bool TKSUtilBase::copyFileAtPath(std::string_view fromPath, std::string_view toPath, TKSError* error) {
  if (!bothPathsAreThere(fromPath, toPath)) return false;
  TKSILog::logWithLevel(TKSILogLevelInfo, "Begin to copy file at path: %@", masked(fromPath));
  if (isMissing(fromPath)) return true;
  ErrorSlot slot(error);
  const std::string_view parent = tks::folderOf(toPath);
  if (tks::isPath(toPath) && !files().isDirectory(parent) &&
      !files().createDirectory(parent, kOrdinaryFolder, slot.get())) {
    const std::string reason = slot.passOn();
    TKSILog::logWithLevel(TKSILogLevelInfo, "Copy file at path: %@ to %@ failed:%@", masked(fromPath), masked(toPath),
                          masked(reason));
    return false;
  }
  if (copyOver(fromPath, toPath, slot.get())) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Copy file at path: %@ to %@ success", masked(fromPath), masked(toPath));
    return true;
  }
  const std::string reason = slot.passOn();
  TKSILog::logWithLevel(TKSILogLevelError, "Copy file at path: %@ failed %@.", masked(fromPath), masked(reason));
  return false;
}

bool TKSUtilBase::moveFileAtPath(std::string_view fromPath, std::string_view toPath, TKSError* error) {
  if (!bothPathsAreThere(fromPath, toPath)) return false;
  TKSILog::logWithLevel(TKSILogLevelInfo, "Begin to move file at path: %@", masked(fromPath));
  if (isMissing(fromPath)) return true;
  ErrorSlot slot(error);
  if (files().move(fromPath, toPath, slot.get())) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Move file at path: %@ to %@ success", masked(fromPath), masked(toPath));
    return true;
  }
  const std::string reason = slot.passOn();
  TKSILog::logWithLevel(TKSILogLevelError, "Move file at path: %@ failed %@.", masked(fromPath), masked(reason));
  return false;
}
