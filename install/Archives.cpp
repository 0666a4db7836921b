#include "install/Archives.h"

#include <algorithm>
#include <string>
#include <string_view>

#include <tksinterface/TKSUtilBase.h>

#include "foundation/logging/Logging.h"
#include "foundation/values/Characters.h"
#include "foundation/values/FilePaths.h"
#include "foundation/values/Utf8.h"
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

bool isPatternCharacter(char character) { return character == '*' || character == '?' || character == '['; }

/// Whether unzip takes a text for a pattern: a backslash takes the special meaning of the next character away.
bool isPattern(std::string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\') {
      ++i;
    } else if (isPatternCharacter(text[i])) {
      return true;
    }
  }
  return false;
}

/// The path of a zip archive for unzip, which takes the name for a pattern when anything in the path makes it one: what
/// is special in the name stands for itself then. Folders are never patterns.
std::string zipArgument(std::string_view path) {
  const std::string_view name = tks::lastPathComponent(path);
  if (std::ranges::none_of(name, isPatternCharacter) && !isPattern(path)) return archiveArgument(path);
  std::string argument(tks::folderPart(path));
  for (const char character : name) {
    if (character == '\\') argument += '\\';
    if (isPatternCharacter(character)) {
      argument.append("[").append(1, character).append("]");
    } else {
      argument += character;
    }
  }
  return archiveArgument(argument);
}

/// The beginning of what a tool printed; output that is no text counts as empty.
std::string_view shownOutput(const std::string& output) {
  return tks::utf8::isValid(output) ? tks::firstCharacters(output, kShownOutput) : "(null)";
}

}  // namespace

void tks::install::unzip(const UnpackRequest& request) {
  TKSILog::logWithLevel(TKSILogLevelInfo, "Unzip Begin");
  platform::ToolRequest tool;
  tool.tool = platform::Tool::unzip;
  // "-u": create what is not there. What is there stays: unzip would ask about it, and nobody would answer.
  tool.arguments = {"-u", "-d", archiveArgument(request.folder), zipArgument(request.archive)};
  tool.writeLimit = request.mostBytes;
  tool.onWritten = request.onBytes;
  const std::string output = runTool(tool).output;
  const std::string_view shown = shownOutput(output);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Archive: %@", masked(request.shownArchive));
  TKSILog::logWithLevel(TKSILogLevelInfo, "Unzip to: %@", masked(request.shownFolder));
  TKSILog::logWithLevel(TKSILogLevelInfo, "Unzip Output: %@", masked(shown));
  TKSILog::logWithLevel(TKSILogLevelInfo, "Unzip End");
}

void TKSUtilBase::unzip(std::string_view zipPath, std::string_view to) {
  tks::install::unzip({.archive = std::string(zipPath), .folder = std::string(to)});
}

void tks::install::untar(const UnpackRequest& request) {
  TKSILog::logWithLevel(TKSILogLevelInfo, "untar Begin");
  platform::ToolRequest tool;
  tool.tool = platform::Tool::tar;
  tool.arguments = {"-xvf", archiveArgument(request.archive), "-C", archiveArgument(request.folder)};
  tool.writeLimit = request.mostBytes;
  tool.onWritten = request.onBytes;
  runTool(tool);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Archive: %@", masked(request.shownArchive));
  TKSILog::logWithLevel(TKSILogLevelInfo, "Untar to: %@", masked(request.shownFolder));
  TKSILog::logWithLevel(TKSILogLevelInfo, "Untar End");
}

void TKSUtilBase::untar(std::string_view archivePath, std::string_view to) {
  tks::install::untar({.archive = std::string(archivePath), .folder = std::string(to)});
}
