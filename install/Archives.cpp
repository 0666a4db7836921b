#include "install/Archives.h"

#include <string>
#include <string_view>

#include <tksinterface/TKSUtilBase.h>

#include "foundation/Characters.h"
#include "foundation/FilePaths.h"
#include "foundation/Logging.h"
#include "foundation/Utf8.h"
#include "install/RunTool.h"

// Unpacking with the system's tools. Nobody looks at their exit status: callers judge by what is there afterwards.

namespace {

/// How much of a tool's output a log line shows, in characters.
constexpr std::size_t kShownOutput = 500;

/// A path that tar takes neither for an option nor for another machine's.
std::string archiveArgument(std::string_view path) {
  const bool namesMachine = !path.starts_with('/') && path.find(':') != std::string_view::npos;
  return namesMachine ? std::string("./").append(path) : tks::pathArgument(path);
}

/// The path of a zip archive for unzip, which takes the name for a pattern: what is special in one stands for itself.
std::string zipArgument(std::string_view path) {
  const std::size_t name = path.rfind('/') + 1;
  std::string argument(path.substr(0, name));
  for (const char character : path.substr(name)) {
    const bool special = character == '*' || character == '?' || character == '[';
    if (special) argument += '[';
    argument += character;
    if (special) argument += ']';
  }
  return archiveArgument(argument);
}

/// The beginning of what a tool printed; output that is no text is none.
std::string_view shownOutput(const std::string& output) {
  return tks::utf8::isValid(output) ? tks::firstCharacters(output, kShownOutput) : "(null)";
}

}  // namespace

void tks::install::unzip(std::string_view zipPath, std::string_view folder, std::optional<std::uint64_t> mostBytes) {
  TKSILog::logWithLevel(TKSILogLevelInfo, "Unzip Begin");
  platform::ToolRequest request;
  request.tool = platform::Tool::unzip;
  // "-u": update what is there and create what is not.
  request.arguments = {"-u", "-d", archiveArgument(folder), zipArgument(zipPath)};
  request.writeLimit = mostBytes;
  const std::string output = runTool(request).output;
  const std::string_view shown = shownOutput(output);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Archive: %@", masked(zipPath));
  TKSILog::logWithLevel(TKSILogLevelInfo, "Unzip to: %@", masked(folder));
  TKSILog::logWithLevel(TKSILogLevelInfo, "Unzip Output: %@", masked(shown));
  TKSILog::logWithLevel(TKSILogLevelInfo, "Unzip End");
}

void TKSUtilBase::unzip(std::string_view zipPath, std::string_view to) {
  tks::install::unzip(zipPath, to, std::nullopt);
}

void tks::install::untar(std::string_view archivePath, std::string_view folder,
                         std::optional<std::uint64_t> mostBytes) {
  TKSILog::logWithLevel(TKSILogLevelInfo, "untar Begin");
  platform::ToolRequest request;
  request.tool = platform::Tool::tar;
  request.arguments = {"-xvf", archiveArgument(archivePath), "-C", archiveArgument(folder)};
  request.writeLimit = mostBytes;
  runTool(request);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Archive: %@", masked(archivePath));
  TKSILog::logWithLevel(TKSILogLevelInfo, "Untar to: %@", masked(folder));
  TKSILog::logWithLevel(TKSILogLevelInfo, "Untar End");
}

void TKSUtilBase::untar(std::string_view archivePath, std::string_view to) {
  tks::install::untar(archivePath, to, std::nullopt);
}
