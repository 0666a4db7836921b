#include "platform/preferences.h"
#include "foundation/values/FilePaths.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>

#include "platform/linux/processes/process_table.h"
#include "platform/platform.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/file_lock.h"
#include "platform/posix/posix_error.h"
#include "platform/posix/whole_files.h"

namespace tks::platform {
namespace {

using posix::FileDescriptor;
using posix::retried;

constexpr std::string_view kLocaleKey = "AppleLocale";
constexpr std::string_view kLanguagesKey = "AppleLanguages";
constexpr std::size_t kLargestDamagedFile = 64u * 1024 * 1024;
constexpr std::size_t kLargestCommandLine = 16u * 1024 * 1024;
/// How long a writer waits for the others, also on a host's main thread. None of them holds the lock for longer than
/// reading and writing one file.
constexpr std::chrono::seconds kLongestWait{2};

// The argument domain.

bool isName(std::string_view argument) { return argument.size() > 1 && argument.front() == '-'; }

/// Takes the next text off a list of texts that each end in NUL.
std::string_view takeArgument(std::string_view& list) {
  const std::string_view argument = list.substr(0, list.find('\0'));
  list.remove_prefix(std::min(argument.size() + 1, list.size()));
  return argument;
}

/// Pairs "-Name value"; a later pair replaces an earlier one, and a name without a value is skipped.
TKSDictionary readArguments() {
  TKSDictionary arguments;
  const std::optional<TKSData> content = posix::readWholeFile("/proc/self/cmdline", kLargestCommandLine, nullptr);
  if (!content) return arguments;
  std::string_view rest(reinterpret_cast<const char*>(content->data()), content->size());
  takeArgument(rest);  // the program's own name
  while (!rest.empty()) {
    const std::string_view name = takeArgument(rest);
    if (!isName(name) || rest.empty()) continue;
    std::string_view after = rest;
    const std::string_view value = takeArgument(after);
    if (isName(value)) continue;
    arguments.set(name.substr(1), value);
    rest = after;
  }
  return arguments;
}

/// Read once: the command line of a process does not change, but some programs write over it later.
const TKSDictionary& argumentDomain() {
  static const auto& arguments = *new TKSDictionary(readArguments());
  return arguments;
}

// The domains in files.

/// Name of the process's own domain: the bundle identifier, else the executable's name, if valid as a file name.
std::string ownDomain() {
  const std::optional<std::string> identifier = bundles().mainBundleIdentifier();
  const auto fits = [](std::string_view name) {
    return !name.empty() && name.front() != '.' && name.find('/') == std::string_view::npos && name.size() < 200;
  };
  if (identifier && fits(*identifier)) return *identifier;
  const std::string executable = gnulinux::executablePath(::getpid()).value_or("");
  std::string name(lastPathComponent(executable));
  return fits(name) ? name : "unknown";
}

std::string preferencesFolder() { return knownFolders().realHome() + "/Library/Preferences"; }
std::string ownPath() { return preferencesFolder() + "/" + ownDomain() + ".plist"; }
std::string globalPath() { return preferencesFolder() + "/.GlobalPreferences.plist"; }

/// The values in a file; none when it is missing or no property list.
TKSDictionary readDomain(const std::string& path) {
  return propertyLists().readDictionary(path, nullptr).value_or(TKSDictionary());
}

/// "de_DE" of "de_DE.UTF-8@euro"; nothing for "C" and "POSIX". The first of the variables that says anything counts.
std::optional<std::string> localeOfEnvironment() {
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* const value = std::getenv(variable);
    if (value == nullptr || value[0] == '\0') continue;
    const std::string_view whole = value;
    const std::string_view locale = whole.substr(0, whole.find_first_of(".@"));
    if (locale.empty() || locale == "C" || locale == "POSIX") return std::nullopt;
    return std::string(locale);
  }
  return std::nullopt;
}

/// What every user has, whatever the files hold: preferences are never empty, here or elsewhere. "de_DE" speaks the
/// language "de-DE".
TKSDictionary registrationDomain() {
  const std::optional<std::string> locale = localeOfEnvironment();
  std::string language = locale.value_or("en");
  std::replace(language.begin(), language.end(), '_', '-');
  TKSDictionary values{{kLanguagesKey, TKSArray{language}}};
  if (locale) values.set(kLocaleKey, *locale);
  return values;
}

// Writing.

bool isRegularFile(const FileDescriptor& file) {
  struct stat held {};
  if (::fstat(file.get(), &held) != 0) return false;
  errno = EINVAL;
  return S_ISREG(held.st_mode);
}

/// Whether the descriptor still stands for the file at the path: writers replace the file as a whole.
bool isStillAt(const FileDescriptor& file, const std::string& path) {
  struct stat held {};
  struct stat named {};
  return ::fstat(file.get(), &held) == 0 && ::stat(path.c_str(), &named) == 0 && held.st_dev == named.st_dev &&
         held.st_ino == named.st_ino;
}

/// Opens the file at the path, made if need be, and locks it until the result goes. The lock is on the file itself,
/// which every writer replaces: who gets the lock of a file that was replaced meanwhile starts over with the new one.
FileDescriptor openLocked(const std::string& path, TKSError* error) {
  for (;;) {
    FileDescriptor file(retried(
        [&] { return ::open(path.c_str(), O_RDWR | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, mode_t{0600}); }));
    if (!file || !isRegularFile(file) || !posix::waitForLock(file, kLongestWait)) {
      posix::fail(error, file ? "lock" : "open", path);
      return {};
    }
    if (isStillAt(file, path)) return file;
  }
}

/// Keeps a copy of a file that is no property list before it is replaced.
bool keepDamaged(const std::string& path, TKSError* error) {
  const std::optional<TKSData> content = posix::readWholeFile(path, kLargestDamagedFile, error);
  return content && (content->empty() || posix::replaceFile(path + ".damaged", *content, error));
}

bool store(std::string_view key, const TKSValue& value, TKSError* error) {
  const std::string home = knownFolders().realHome();
  const std::string path = ownPath();
  // Opening the file tells the reason. A missing home is not made.
  if (files().isDirectory(home)) files().createDirectory(preferencesFolder(), 0700, nullptr);
  const FileDescriptor held = openLocked(path, error);
  if (!held) return false;
  TKSError failure;
  std::optional<TKSDictionary> values = propertyLists().readDictionary(path, &failure);
  // A file that cannot be read, or is too large, may hold the user's preferences.
  if (!values && !PropertyLists::holdsNoList(failure)) {
    if (error != nullptr) *error = failure;
    return false;
  }
  if (!values && !keepDamaged(path, error)) return false;
  TKSDictionary changed = values ? std::move(*values) : TKSDictionary();
  changed.set(key, value);
  return propertyLists().writeDictionary(changed, path, error);
}

class LinuxPreferences final : public Preferences {
 public:
  TKSDictionary dictionaryRepresentation() override {
    TKSDictionary merged = registrationDomain();
    for (const TKSDictionary& domain : {readDomain(globalPath()), readDomain(ownPath()), argumentDomain()}) {
      for (const auto& [key, value] : domain) merged.set(key, value);
    }
    return merged;
  }

  TKSValue value(std::string_view key) override {
    if (const TKSValue* found = argumentDomain().find(key)) return *found;
    for (const std::string& path : {ownPath(), globalPath()}) {
      if (TKSValue found = readDomain(path)[key]; !found.isNothing()) return found;
    }
    return registrationDomain()[key];
  }

  TKSValue argument(std::string_view key) override { return argumentDomain()[key]; }

  bool set(std::string_view key, const TKSValue& value, TKSError* error) override { return store(key, value, error); }
};

}  // namespace

template <>
Preferences& backend<Preferences>() {
  static auto& preferences = *new LinuxPreferences;
  return preferences;
}

}  // namespace tks::platform
