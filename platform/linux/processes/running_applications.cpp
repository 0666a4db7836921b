#include "platform/running_applications.h"
#include "foundation/values/FilePaths.h"

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <map>
#include <mutex>
#include <utility>

#include "platform/linux/loop/system_calls.h"
#include "platform/linux/processes/child_collector.h"
#include "platform/linux/processes/process_table.h"
#include "platform/linux/processes/spawn.h"
#include "platform/platform.h"
#include "platform/posix/extended_attributes.h"
#include "platform/posix/paths.h"
#include "platform/posix/posix_error.h"

namespace tks::platform {
namespace {

using gnulinux::ProcessFacts;

constexpr const char* kLastUsedDate = "com.apple.lastuseddate#PS";
constexpr std::string_view kExecutables = "/Contents/MacOS";
constexpr std::string_view kInformation = "/Contents/Info.plist";
constexpr std::string_view kExtension = ".app";

/// The bundle X that holds the executable X/Contents/MacOS/NAME; empty when it lies in none.
std::string_view bundleOf(std::string_view executable) {
  const std::string_view folder = folderOf(executable);
  if (!folder.ends_with(kExecutables)) return {};
  return folder.substr(0, folder.size() - kExecutables.size());
}

struct Names {
  std::string bundleIdentifier;
  std::string localizedName;
};

Names readNames(const std::string& bundle) {
  const TKSDictionary information =
      propertyLists().readDictionary(bundle + std::string(kInformation), nullptr).value_or(TKSDictionary());
  Names names{std::string(information["CFBundleIdentifier"].text()),
              std::string(information["CFBundleDisplayName"].text())};
  if (names.localizedName.empty()) names.localizedName = information["CFBundleName"].text();
  if (names.localizedName.empty()) {
    std::string_view name = lastPathComponent(bundle);
    if (name.ends_with(kExtension)) name.remove_suffix(kExtension.size());
    names.localizedName = name;
  }
  return names;
}

/// Names of bundles, read again only when their information file has changed: a look at a process has to be cheap,
/// since it is repeated while a launcher starts or ends.
class NameCache {
 public:
  Names names(const std::string& bundle) {
    const std::string file = bundle + std::string(kInformation);
    Mark mark;
    struct stat facts {};
    if (::stat(file.c_str(), &facts) == 0) {
      mark = {facts.st_dev, facts.st_ino, facts.st_size, facts.st_mtim.tv_sec, facts.st_mtim.tv_nsec};
    }
    {
      const std::lock_guard lock(mutex_);
      const auto found = entries_.find(bundle);
      if (found != entries_.end() && found->second.mark == mark) return found->second.names;
    }
    Names fresh = readNames(bundle);
    const std::lock_guard lock(mutex_);
    if (entries_.size() >= kMostEntries) entries_.clear();
    entries_[bundle] = {mark, fresh};
    return fresh;
  }

 private:
  static constexpr std::size_t kMostEntries = 256;
  struct Mark {
    dev_t device = 0;
    ino_t number = 0;
    off_t size = -1;
    time_t seconds = 0;
    long nanoseconds = 0;
    friend bool operator==(const Mark&, const Mark&) = default;
  };
  struct Entry {
    Mark mark;
    Names names;
  };
  std::mutex mutex_;
  std::map<std::string, Entry, std::less<>> entries_;
};

/// Whether `process` is still the process that was looked up. Without a start time any will do.
bool isStill(pid_t process, std::uint64_t startTime) {
  const std::optional<ProcessFacts> facts = gnulinux::readProcessFacts(process);
  return facts && !facts->isGone() && (startTime == 0 || facts->startTime == startTime);
}

bool signalProcess(const TKSRunningApplication& application, int signal) {
  const pid_t process = application.processIdentifier;
  if (process <= 0) return false;
  // Open the descriptor before the look: then the process that was looked at gets the signal, whatever ends meanwhile.
  const posix::FileDescriptor descriptor = gnulinux::openProcess(process);
  if (!descriptor && errno == ESRCH) return false;
  if (!isStill(process, application.startTime)) return false;
  if (descriptor) {
    if (gnulinux::systemCalls().pidfdSendSignal(descriptor.get(), signal, nullptr, 0) == 0) return true;
    if (errno != ENOSYS) return false;
  }
  return ::kill(process, signal) == 0;
}

/// The date as the platform keeps it: seconds and nanoseconds, 64 bits each, little-endian.
TKSData lastUsedDate() {
  using std::chrono::duration_cast;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const auto seconds = duration_cast<std::chrono::seconds>(now);
  const auto nanoseconds = duration_cast<std::chrono::nanoseconds>(now - seconds);
  TKSData data;
  for (const std::int64_t number : {std::int64_t{seconds.count()}, std::int64_t{nanoseconds.count()}}) {
    for (int shift = 0; shift < 64; shift += 8) data.push_back(static_cast<std::uint8_t>(number >> shift));
  }
  return data;
}

class LinuxRunningApplications final : public RunningApplications {
 public:
  bool canLookUp(TKSError* error) override {
    return gnulinux::hasProcessTable() || posix::fail(error, "look up processes in", "/proc");
  }

  std::optional<TKSRunningApplication> find(std::int32_t pid) override {
    gnulinux::ChildCollector::shared().collect();
    return pid > 0 ? lookAt(pid) : std::nullopt;
  }

  std::vector<TKSRunningApplication> list() override {
    gnulinux::ChildCollector::shared().collect();
    std::vector<TKSRunningApplication> applications;
    for (const pid_t process : gnulinux::allProcesses()) {
      if (std::optional<TKSRunningApplication> found = lookAt(process)) applications.push_back(std::move(*found));
    }
    return applications;
  }

  bool forceTerminate(const TKSRunningApplication& application) override { return signalProcess(application, SIGKILL); }
  bool terminate(const TKSRunningApplication& application) override { return signalProcess(application, SIGTERM); }

  std::optional<TKSRunningApplication> launch(std::string_view bundlePath, const std::vector<std::string>& arguments,
                                              TKSError* error) override {
    const std::string path = withoutClosingSlashes(bundlePath);
    const std::optional<Bundle> bundle = bundles().open(path);
    if (!bundle || bundle->executablePath.empty()) {
      errno = ENOENT;
      posix::fail(error, "launch", path);
      return std::nullopt;
    }
    gnulinux::SpawnRequest request;
    request.executable = bundle->executablePath;
    request.arguments = arguments;
    request.standardInput = request.standardOutput = request.standardError = gnulinux::SpawnRequest::kNull;
    request.group = gnulinux::SpawnRequest::Group::ownSession;
    gnulinux::SpawnedProcess process = gnulinux::spawn(request);
    if (!process) {
      posix::fail(error, "launch", request.executable);
      return std::nullopt;
    }
    TKSRunningApplication application = record(process.identifier, path);
    application.startTime = gnulinux::readProcessFacts(process.identifier).value_or(ProcessFacts()).startTime;
    gnulinux::ChildCollector::shared().adopt(std::move(process), {});
    posix::setExtendedAttribute(path, kLastUsedDate, lastUsedDate(), nullptr);  // a volume may have no attributes
    return application;
  }

  bool hasLastUsedDate(std::string_view bundlePath) override {
    if (!posix::isPath(bundlePath)) return false;
    const std::optional<TKSData> date = posix::readExtendedAttribute(withoutClosingSlashes(bundlePath), kLastUsedDate);
    return date && !date->empty();
  }

  void terminateThisApplication() override { ::kill(::getpid(), SIGTERM); }

 private:
  std::optional<TKSRunningApplication> lookAt(pid_t process) {
    const std::optional<std::string> executable = gnulinux::executablePath(process);
    if (!executable) return std::nullopt;
    const std::string_view bundle = bundleOf(*executable);
    if (bundle.empty()) return std::nullopt;
    const std::optional<ProcessFacts> facts = gnulinux::readProcessFacts(process);
    if (!facts || facts->isGone() || facts->owner != ::getuid()) return std::nullopt;
    TKSRunningApplication application = record(process, std::string(bundle));
    application.startTime = facts->startTime;
    return application;
  }

  TKSRunningApplication record(pid_t process, const std::string& bundle) {
    const Names names = names_.names(bundle);
    TKSRunningApplication application;
    application.processIdentifier = process;
    application.bundleIdentifier = names.bundleIdentifier;
    application.localizedName = names.localizedName;
    application.bundlePath = bundle;
    return application;
  }

  NameCache names_;
};

}  // namespace

template <>
RunningApplications& backend<RunningApplications>() {
  static auto& applications = *new LinuxRunningApplications;
  return applications;
}

}  // namespace tks::platform
