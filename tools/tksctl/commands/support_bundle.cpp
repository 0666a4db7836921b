#include "tools/tksctl/commands/support_bundle.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <span>
#include <stdexcept>

#include "platform/platform.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/posix_error.h"
#include "platform/posix/whole_files.h"
#include "tools/tksctl/bundle/content.h"
#include "tools/tksctl/frame/json_values.h"
#include "tools/tksctl/parts/archive_writer.h"

namespace tks::ctl {
namespace {

namespace fs = std::filesystem;

/// Each part by itself: what stops one does not stop the others.
void collect(BundleContent& content, const std::string& what, const std::function<void()>& part) {
  try {
    part();
  } catch (const std::exception& stopped) {
    content.scrubber().takeCounts();
    content.miss(what, stopped.what());
  }
}

void collectAll(BundleContent& content, const BundleWishes& wishes, Context& context) {
  const auto part = [&](const char* what, const std::function<void()>& work) {
    if (!context.interrupts.came()) collect(content, what, work);
  };
  part("versions", [&] { collectVersions(content); });
  part("preferences", [&] { collectPreferences(content); });
  part("signature", [&] { collectSignature(content, wishes); });
  part("folders", [&] { collectFolders(content); });
  part("doctor", [&] { collectDoctor(content, wishes, context); });
  part("logs of hosts", [&] { collectLogs(content, wishes); });
  part("recordings", [&] { collectRecordings(content, wishes); });
}

std::string countsOf(const TKSDictionary& masked) {
  std::string text;
  for (const auto& [kind, count] : masked) {
    text.append(text.empty() ? "; masked: " : ", ").append(count.description()).append(" ").append(kind);
  }
  return text;
}

void show(Output& out, const TKSDictionary& manifest) {
  for (const TKSValue& entry : manifest["entries"].array()) {
    out.line(std::string(entry["name"].text()) + ": " + std::string(entry["what"].text()) + ", " +
             entry["bytes"].description() + " bytes" + countsOf(entry["masked"].dictionary()));
  }
  for (const TKSValue& missing : manifest["missing"].array()) {
    out.line("not in it: " + std::string(missing["what"].text()) + ": " + oneLine(missing["why"].text()));
  }
}

std::span<const std::uint8_t> bytesOf(const std::string& text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

/// A new file that this user alone can read, in its place when all is written; else nothing is left of it.
class NewFile {
 public:
  explicit NewFile(std::string path)
      : path_(std::move(path)),
        hidden_(posix::hiddenSibling(path_)),
        file_(posix::retried([&] { return ::open(hidden_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600); })) {}
  ~NewFile() { ::unlink(hidden_.c_str()); }
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  int descriptor() const { return file_.get(); }
  /// What is there is never replaced.
  bool takePlace(TKSError* error) {
    if (::fsync(file_.get()) == 0) return platform::files().move(hidden_, path_, error);
    posix::fail(error, "write", path_);
    return false;
  }

 private:
  std::string path_;
  std::string hidden_;
  posix::FileDescriptor file_;
};

Exit write(Context& context, const BundleContent& content, const TKSDictionary& manifest, const std::string& path) {
  TKSError error;
  NewFile file(path);
  if (file.descriptor() < 0) {
    posix::fail(&error, "make", path);
    return context.out.fail(error);
  }
  ArchiveWriter archive(file.descriptor(), ArchiveWriter::Format::zip);
  archive.addContent("manifest.json", bytesOf(prettyJson(jsonable(manifest)) + "\n"));
  for (const BundleEntry& entry : content.entries()) archive.addContent(entry.name, bytesOf(entry.text));
  archive.finish();
  if (context.interrupts.came()) return context.out.fail(Exit::interrupted, "interrupted");
  return file.takePlace(&error) ? Exit::ok : context.out.fail(error);
}

Exit make(Context& context, const BundleWishes& wishes) {
  if (wishes.path.empty() && !wishes.isPreview) {
    return context.out.fail(Exit::usage, "say where the bundle goes, or --preview");
  }
  const std::string path = wishes.path.empty() ? "" : fs::absolute(wishes.path).lexically_normal().string();
  std::error_code ignored;
  if (!wishes.isPreview && fs::exists(fs::symlink_status(path, ignored))) {
    return context.out.fail(Exit::failed, "there is something at " + wishes.path + " already",
                            "Choose another name, or remove it.");
  }
  context.interrupts.hold();
  BundleContent content(wishes);
  collectAll(content, wishes, context);
  if (context.interrupts.came()) return context.out.fail(Exit::interrupted, "interrupted");
  const TKSDictionary manifest = content.manifest();
  context.out.set("manifest", manifest);
  context.out.set("path", wishes.isPreview ? TKSValue(TKSNull()) : TKSValue(path));
  if (wishes.isPreview) {
    show(context.out, manifest);
    return Exit::ok;
  }
  const Exit code = write(context, content, manifest, path);
  if (code != Exit::ok) return code;
  context.out.line(path);
  context.out.note("look through it before you pass it on; tksctl support-bundle --preview lists what is in it");
  return Exit::ok;
}

}  // namespace

Command supportBundleCommand() {
  return {
      .name = "support-bundle",
      .summary = "puts into one file what somebody needs who supports users",
      .description =
          "The doctor's report with the library's log of that time, versions, preferences that matter, the launcher's "
          "signature, a listing of folders with rights, and the logs of hosts and recordings that are named. "
          "manifest.json in it lists what is in it, what is not and why, and what was masked: by the rules of the "
          "library's log and, beyond them, names of users and computers, addresses, and what stands after names such "
          "as "
          "token. Nothing else leaves this computer, and nothing is sent anywhere. It works whatever else is broken.",
      .examples = {{"tksctl support-bundle --preview", "Lists what would be in it, and writes nothing."},
                   {"tksctl support-bundle out.zip --log ~/host.log --recording talk.jsonl --hide \"Project X\"",
                    "With a log, a recording, and a word that nobody is to see."}},
      .setUp = [](const CommandLine& line) -> Action {
        auto wishes = std::make_shared<BundleWishes>();
        line.option("file", wishes->path, "The zip file to make").typeName("OUT.zip");
        line.flag("--preview", wishes->isPreview, "Print what would be in it, and write nothing");
        line.option("--days", wishes->days, "How old logs and recordings may be")
            .typeName("N")
            .showsDefault()
            .between(1, 36500);
        line.option("--log", wishes->logs, "A log of a host, or a folder of logs; may be given several times")
            .typeName("PATH")
            .oneWordEach();
        line.option("--recording", wishes->recordings, "A recording, or a folder of them; may be given several times")
            .typeName("PATH")
            .oneWordEach();
        line.option("--hide", wishes->hidden, "A word to be masked as well; may be given several times")
            .typeName("WORD")
            .oneWordEach();
        line.option("--launcher", wishes->launcher, "The launcher; else the one at the standard path").typeName("PATH");
        line.flag("--no-start", wishes->withoutStart, "Do not start the launcher");
        return [wishes](Context& context) { return make(context, *wishes); };
      }};
}

}  // namespace tks::ctl
