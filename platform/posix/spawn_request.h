#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tks::posix {

/// How a process is started: what both systems can do. A back end may ask for more.
struct SpawnRequest {
  enum class Group {
    inherited,   ///< that of this process
    ownSession,  ///< a new session with a group of its own: no terminal, and ended as a whole
  };
  /// In place of a descriptor: /dev/null.
  static constexpr int kNull = -1;

  /// Absolute path of the executable.
  std::string executable;
  /// Without the program's name, which is added. Passed on byte for byte.
  std::vector<std::string> arguments;
  /// The source of the process's descriptors 0, 1 and 2: the same number, one above 2, or kNull. A number that is
  /// not open counts as kNull.
  int standardInput = 0;
  int standardOutput = 1;
  int standardError = 2;
  Group group = Group::inherited;
  /// A clean environment instead of this process's own.
  bool cleanEnvironment = false;
  /// All that its environment holds, "NAME=value", whatever the one before says.
  std::optional<std::vector<std::string>> environment{};
};

/// Whether the system passes the texts of a request on whole: a NUL byte would silently cut the rest off. Else false,
/// and errno.
bool canBePassed(const SpawnRequest& request);

/// A clean environment: the system's folders of programs, `locale`, the real home.
std::vector<std::string> cleanEnvironment(std::string_view locale);

/// Texts as the system's call takes them: pointers to characters, which it does not change, and a null pointer.
/// `first` stands before the others unless it is null. The texts have to live as long as the pointers.
std::vector<char*> pointersTo(const std::vector<std::string>& texts, const std::string* first = nullptr);

}  // namespace tks::posix
