#include <chrono>
#include <cstdint>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSURL.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/Options.h"
#include "foundation/logging/Logging.h"
#include "foundation/values/ErrorReasons.h"
#include "foundation/values/FilePaths.h"
#include "install/ArchiveCheck.h"
#include "install/PrivateUnpacking.h"
#include "platform/platform.h"

// The list of delta packages: a small tar archive with a signed "deltalist.json" in it.

namespace {

constexpr std::string_view kRemoteName = "deltalist.json.delta";
constexpr std::string_view kListName = "deltalist.json";
constexpr std::string_view kSideCarName = "._deltalist.json";
constexpr std::string_view kPackageSuffix = ".delta";
constexpr std::string_view kConversionFailed = "Convert the DeltaInfos to dictionary failed";
constexpr std::size_t kLargestList = 64u * 1024 * 1024;
constexpr int kOK = 200;
// Keys of the entry, without a name, in which a list tells of itself.
constexpr std::string_view kKeyExpires = "expires";
constexpr std::string_view kKeyListVersion = "listVersion";
/// Nothing but the list and its side-car: plain files, each once. The tool reports small files that are no archive.
constexpr tks::install::ArchiveRules kListRules{
    .links = false, .repeatedNames = false, .mostBytes = 2 * kLargestList, .mostUnreadBytes = std::uint64_t{64} * 1024};

/// What a download came to: the list, or the error to report and an empty list.
struct DeltaList {
  TKSValue list = TKSArray();
  std::optional<TKSError> error;
};

/// `otherwise`: the reason when nothing failed beneath.
DeltaList failure(const TKSError& underlying, TKSErrorReason otherwise = TKSErrorReason::badMessage) {
  DeltaList result;
  result.error =
      tks::makeError(tks::reasonOf(underlying, otherwise), TKSUtilErrorDomain, 0, std::string(kConversionFailed));
  TKSILog::logWithLevel(TKSILogLevelError, "Convert the DeltaInfos to dictionary failed: %@", tks::masked(underlying));
  return result;
}

/// Makes the place of the list empty, so that an old list never passes for the new one.
bool clear(const std::string& listPath, TKSError& error) {
  if (!tks::platform::files().exists(listPath)) return true;
  const bool removed = tks::platform::files().remove(listPath, &error);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Clean existed temp app result: %i, any error: %@", removed,
                        tks::masked(error));
  return removed;
}

/// Puts the list and its side-car, as far as the archive has them, into the folder. False when the archive is refused.
bool unpack(const std::string& archive, const std::string& folder, const std::string& listPath) {
  tks::install::PrivateUnpacking unpacking(folder);
  if (!unpacking.run(archive, tks::platform::ArchiveFormat::tar, kListRules, nullptr)) return false;
  const std::string sideCar = tks::joinedPath(folder, kSideCarName);
  tks::platform::files().remove(sideCar, nullptr);
  unpacking.take(kSideCarName, sideCar, nullptr);
  unpacking.take(kListName, listPath, nullptr);
  return true;
}

/// The number under a key of the entry that has it; nothing when none has, or when it is no whole number.
std::optional<std::int64_t> numberIn(const TKSValue& list, std::string_view key) {
  for (const TKSValue& entry : list.array()) {
    const TKSValue& value = entry[key];
    if (value.isInteger()) return value.integer();
  }
  return std::nullopt;
}

/// A list that was signed once stays signed: whoever keeps an old one could hand it out for ever. As far as the options
/// ask, it says itself until when it counts, and which one it is.
bool isCurrent(const TKSValue& list, TKSError& error) {
  const auto refuse = [&](std::string text) {
    error = tks::makeError(TKSErrorReason::wrongVersion, TKSUtilErrorDomain, 0, std::move(text));
    return false;
  };
  const TKSOptions& options = tks::options();
  const std::optional<std::int64_t> expires = numberIn(list, kKeyExpires);
  if (options.listExpiry && !expires) return refuse("The list of updates does not say when it expires.");
  if (options.listExpiry && static_cast<double>(*expires) <= tks::platform::clock().secondsSince1970()) {
    return refuse("The list of updates has expired.");
  }
  const std::int64_t version = numberIn(list, kKeyListVersion).value_or(0);
  if (version >= options.lowestListVersion) return true;
  return refuse(tks::formatted("The list of updates is older than the lowest accepted one: %lu.", version));
}

/// Unpacks the archive, checks who signed the list in it, and reads the list.
DeltaList readArchive(const std::string& archive) {
  // The log line about it names the folder with a closing slash.
  const std::string folder = tks::joinedPath(tks::folderOf(archive), "");
  const std::string listPath = tks::joinedPath(folder, kListName);
  TKSError error;
  if (!clear(listPath, error)) return failure(error);
  if (!unpack(archive, folder, listPath)) return failure(error);
  if (!tks::platform::files().exists(listPath)) {
    TKSILog::logWithLevel(TKSILogLevelError, "untar fail %@", tks::masked(archive));
    return failure(error);
  }
  if (!TKSUtilBase::checkTrust(listPath, &error)) {
    TKSILog::logWithLevel(TKSILogLevelError, "Check the DeltaInfos Codesign failed: %@", tks::masked(error));
    return failure(error);
  }
  const std::optional<TKSData> listData = tks::platform::files().read(listPath, kLargestList, &error);
  if (!listData) return failure(error);
  const std::string_view text(reinterpret_cast<const char*>(listData->data()), listData->size());
  TKSValue list = TKSUtilBase::JSONStringToObject(text, &error);
  if (list.isNothing() || !isCurrent(list, error)) return failure(error);
  return {std::move(list), std::nullopt};
}

DeltaList readDownload(const tks::platform::DownloadResult& download) {
  if (download.error || download.location.empty()) {
    const TKSError error = download.error.value_or(TKSError());
    TKSILog::logWithLevel(TKSILogLevelError, "Get remote deltaList has error: %@", tks::masked(error));
    return {TKSArray(), error};
  }
  if (download.statusCode && *download.statusCode != kOK) {
    TKSILog::logWithLevel(TKSILogLevelError, "Check the delta download response statusCode failed: %d",
                          *download.statusCode);
    return failure(TKSError(), TKSErrorReason::serverRefused);
  }
  return readArchive(download.location);
}

/// Downloads and reads the list; waits for both. Without a URL the download says what is wrong.
DeltaList fetch(const std::optional<TKSURL>& url) {
  auto answer = std::make_shared<std::promise<tks::platform::DownloadResult>>();
  std::future<tks::platform::DownloadResult> arrived = answer->get_future();
  tks::platform::DownloadRequest request;
  request.url = url.value_or(TKSURL());
  request.totalTimeout = std::chrono::milliseconds(tks::options().downloadLimit);
  request.httpsOnly = tks::options().httpsOnly;
  tks::platform::download().start(
      request, [answer](tks::platform::DownloadResult result) { answer->set_value(std::move(result)); });
  const tks::platform::DownloadResult download = arrived.get();
  DeltaList list = readDownload(download);
  if (!download.location.empty()) {
    tks::platform::files().remove(tks::folderOf(download.location), nullptr);
  }
  return list;
}

/// Names are file names: one that could lead elsewhere is no delta package.
bool isPlainFileName(std::string_view name) {
  if (name.find_first_of("/\\") == std::string_view::npos) return true;
  TKSILog::logWithLevel(TKSILogLevelWarning, "Delta package name with a path separator, skip it: %@",
                        tks::masked(name));
  return false;
}

TKSDictionary packagesOf(const TKSValue& list, std::string_view baseURL) {
  std::string base(baseURL);
  while (base.ends_with('/')) base.pop_back();
  base.push_back('/');
  std::vector<std::pair<std::string, TKSValue>> packages;
  for (const TKSValue& entry : list.array()) {
    const std::string_view name = entry["name"].text();
    if (!name.ends_with(kPackageSuffix) || !isPlainFileName(name)) continue;
    std::string key(name);
    for (char& character : key) {
      if (character == '-') character = '.';
    }
    packages.emplace_back(
        std::move(key),
        TKSDictionary{
            {"version", name}, {"hash", entry["hash"]}, {"size", entry["size"]}, {"path", base + std::string(name)}});
  }
  return TKSDictionary(std::move(packages));
}

}  // namespace

std::optional<TKSDictionary> TKSUtilBase::avaliableDeltaUpdates(std::string_view baseURL, TKSError* error) {
  if (baseURL.empty()) return std::nullopt;
  tks::settleOptions();
  std::optional<TKSURL> url = TKSURL::URLWithString(baseURL);
  if (url) url = url->appendingPathComponent(kRemoteName);
  const std::string shown = url ? url->absoluteString() : "(null)";
  TKSILog::logWithLevel(TKSILogLevelInfo, "Get remote deltaList, begin. DeltaListPath: %@.", tks::masked(shown));
  const DeltaList found = fetch(url);
  if (found.error && error != nullptr) *error = *found.error;
  TKSILog::logWithLevel(TKSILogLevelInfo, "Get remote deltaList, end. deltaInfos: %@.", tks::masked(found.list));
  TKSDictionary packages = packagesOf(found.list, baseURL);
  if (packages.empty()) {
    TKSILog::logWithLevel(TKSILogLevelError, "Failed to get delta json file from server.");
    return std::nullopt;
  }
  return packages;
}
