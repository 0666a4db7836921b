#include <tksinterface/TKSMessage.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <vector>

#include "foundation/values/JsonWriter.h"
#include "tools/tksctl/bundle/content.h"
#include "tools/tksctl/frame/json_values.h"

// What the user names: logs of hosts, and recordings of conversations.

namespace tks::ctl {
namespace {

namespace fs = std::filesystem;

/// Of a longer file its end is taken, and of more files those that were changed last.
constexpr std::streamoff kMostBytes = 4 * 1024 * 1024;
constexpr std::size_t kMostFiles = 100;

struct Found {
  fs::path path;
  fs::file_time_type changed;
};

/// The files that a path means: itself, or those in the folder, the latest first.
std::vector<Found> filesAt(const std::string& given, BundleContent& content, const std::string& what) {
  std::vector<Found> found;
  std::error_code failed;
  const auto add = [&](const fs::path& path) {
    std::error_code ignored;
    if (fs::is_regular_file(path, ignored)) found.push_back({path, fs::last_write_time(path, ignored)});
  };
  if (fs::is_directory(given, failed)) {
    for (const auto& entry : fs::directory_iterator(given, failed)) add(entry.path());
  } else {
    add(given);
  }
  if (failed || found.empty()) content.miss(what, given + ": " + (failed ? failed.message() : "there is no file"));
  std::ranges::sort(found, std::ranges::greater(), &Found::changed);
  return found;
}

bool isRecent(const Found& file, int days) {
  return file.changed >= fs::file_time_type::clock::now() - std::chrono::hours(24) * days;
}

/// The whole file, or its end from the beginning of a line.
bool readEnd(const fs::path& path, std::string& text) {
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  if (!file) return false;
  const std::streamoff size = file.tellg();
  const std::streamoff begin = std::max<std::streamoff>(0, size - kMostBytes);
  file.seekg(begin);
  text.resize(static_cast<std::size_t>(size - begin));
  file.read(text.data(), size - begin);
  text.resize(static_cast<std::size_t>(file.gcount()));
  if (begin > 0) text.erase(0, text.find('\n') == std::string::npos ? 0 : text.find('\n') + 1);
  return true;
}

bool isRecording(const std::string& text) {
  const TKSValue head = TKSMessage::JSONStringToObject(text.substr(0, text.find('\n')));
  return head["format"].text() == "tksinterface recording";
}

/// What stands in a file that was named, with the number that it has in the bundle.
using Add = void (*)(BundleContent& content, const std::string& number, const fs::path& path, const std::string& text);

void collect(BundleContent& content, const std::vector<std::string>& given, const BundleWishes& wishes,
             const std::string& what, Add add) {
  std::size_t number = 0;
  std::size_t old = 0;
  for (const std::string& path : given) {
    for (const Found& file : filesAt(path, content, what)) {
      std::string text;
      if (!isRecent(file, wishes.days) || number >= kMostFiles) {
        ++old;
      } else if (!readEnd(file.path, text)) {
        content.miss(what, file.path.string() + " cannot be read");
      } else {
        add(content, std::to_string(++number), file.path, text);
      }
    }
  }
  if (old > 0) {
    content.miss(what, std::to_string(old) + " left out: not changed in the last " + std::to_string(wishes.days) +
                           " days, or too many");
  }
}

void addLog(BundleContent& content, const std::string& number, const fs::path& path, const std::string& text) {
  content.addText("logs/" + number + ".txt", "a log: " + path.filename().string(), text);
}

void addRecording(BundleContent& content, const std::string& number, const fs::path& path, const std::string& text) {
  if (!isRecording(text)) return content.miss("recordings", path.string() + " is no recording of a conversation");
  content.addText("recordings/" + number + ".jsonl", "a recording: " + path.filename().string(), text);
}

}  // namespace

void collectLogs(BundleContent& content, const BundleWishes& wishes) {
  if (wishes.logs.empty()) content.miss("logs of hosts", "none was named (--log)");
  collect(content, wishes.logs, wishes, "logs of hosts", addLog);
}

void collectRecordings(BundleContent& content, const BundleWishes& wishes) {
  if (wishes.recordings.empty()) content.miss("recordings", "none was named (--recording)");
  collect(content, wishes.recordings, wishes, "recordings", addRecording);
}

}  // namespace tks::ctl
