// Installing a launcher of 200 MB from its archive, measured against what nobody can do without: unpacking it, checking
// its signature once, and assessing it once, of the same bytes on the same volume.
//
// A benchmark "ours/X" comes with "limit/X" on the same content; targets stand in benchmarks/targets.txt.

#include <benchmark/benchmark.h>
#include <tksinterface/tksinterface.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "codesign/signing/mach_o_writer.h"
#include "codesign/signing/signer.h"
#include "platform/linux/processes/tool_runner.h"
#include "platform/platform.h"

namespace {

namespace fs = std::filesystem;
using tks::platform::Replaced;
using tks::platform::Tool;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kResources = 2000;
constexpr std::size_t kResourceSize = 94'000;
constexpr std::size_t kExecutableSize = 12'000'000;
constexpr std::string_view kVersion = "5.0.1";

void writeFile(const fs::path& path, const void* content, std::size_t size) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary).write(static_cast<const char*>(content), static_cast<std::streamsize>(size));
}

/// Gives the space of a tree back and keeps its names until the program ends: a volume that looks for free inodes among
/// thousands that were freed a moment ago takes several times as long to unpack as one in use does.
void emptyFiles(const fs::path& folder) {
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
    if (entry.is_regular_file() && !entry.is_symlink()) fs::resize_file(entry.path(), 0);
  }
}

/// Folders of the benchmark's own on one volume, the project's own assessment tool, and an archive with a signed
/// launcher of 200 MB in 2,002 files that packs to about half.
class World final : public tks::platform::KnownFolders, public tks::platform::SystemTools {
 public:
  World() {
    std::string path = fs::temp_directory_path() / "tks-benchmark-XXXXXX";
    if (::mkdtemp(path.data()) == nullptr) std::abort();
    folder_ = path;
    fs::create_directory(folder_ / "tmp");
    makeLauncher();
    const std::string command =
        "cd '" + folder_.string() + "/made' && zip -1 -qry ../backup.zip '" + std::string(TKSAppName) + "'";
    if (std::system(command.c_str()) != 0) std::abort();
    emptyFiles(folder_ / "made");
  }
  ~World() override {
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
  }

  std::string realHome() override { return folder_; }
  std::string temporary() override { return folder_ / "tmp"; }
  std::string documents() override { return folder_; }
  tks::platform::ToolResult run(const tks::platform::ToolRequest& request) override { return tools_->run(request); }

  std::string zip() const { return folder_ / "backup.zip"; }
  /// A place where nothing was yet: what was healthy once at a path is not assessed there again.
  fs::path newPlace() { return folder_ / std::to_string(++places_); }

 private:
  void makeLauncher() const {
    const fs::path bundle = folder_ / "made" / TKSAppName;
    const std::string info =
        "<plist version=\"1.0\"><dict><key>CFBundleExecutable</key><string>A</string>"
        "<key>CFBundleIdentifier</key><string>" +
        std::string(TKSAppBundleID) + "</string><key>CFBundleVersion</key><string>" + std::string(kVersion) +
        "</string></dict></plist>";
    writeFile(bundle / "Contents/Info.plist", info.data(), info.size());
    tks::signing::ImagePlan plan;
    plan.size = kExecutableSize;
    const TKSData image = tks::signing::makeImage(plan);
    writeFile(bundle / "Contents/MacOS/A", image.data(), image.size());
    fs::permissions(bundle / "Contents/MacOS/A", fs::perms(0755));
    std::minstd_rand random;
    TKSData content(kResourceSize);
    for (std::size_t i = 0; i < kResources; ++i) {
      for (std::size_t at = 0; at < content.size() / 2; ++at) content[at] = static_cast<std::uint8_t>(random() >> 8);
      writeFile(bundle / "Contents/Resources" / std::to_string(i % 20) / std::to_string(i), content.data(),
                content.size());
    }
    const tks::signing::Identity identity = tks::signing::makeIdentity({});
    tks::signing::SigningOptions options;
    options.identity = &identity;
    tks::signing::sign(bundle, options);
    writeFile(bundle / "Contents/CodeResources", "s8ch", 4);
  }

  fs::path folder_;
  int places_ = 0;
  std::unique_ptr<tks::platform::SystemTools> tools_ = tks::gnulinux::makeSystemTools([](Tool tool) {
    return tool == Tool::spctl ? std::string(TKS_BUILD_FOLDER) + "/spctl" : tks::gnulinux::standardToolPath(tool);
  });
  Replaced<tks::platform::KnownFolders> replacedFolders_{*this};
  Replaced<tks::platform::SystemTools> replacedTools_{*this};
};

World& world() {
  static World made;
  return made;
}

/// Times one piece of work in a new place; what is left of it goes untimed.
template <class Work>
void measure(benchmark::State& state, Work work) {
  const std::string zip = world().zip();
  for (auto _ : state) {
    const fs::path place = world().newPlace();
    fs::create_directory(place);
    const auto begin = Clock::now();
    const bool done = work(zip, place);
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - begin).count());
    emptyFiles(place);
    if (!done) {
      state.SkipWithError("not installed");
      return;
    }
  }
}

void limit(benchmark::State& state) {
  measure(state, [](const std::string& zip, const fs::path& place) {
    tks::platform::systemTools().run({Tool::unzip, {"-u", "-d", place, zip}});
    const std::string bundle = place / TKSAppName;
    std::unique_ptr<tks::platform::StaticCode> code;
    std::string details;
    return tks::platform::signatures().create(bundle, code) == 0 && code->checkForInstalling(details) == 0 &&
           !TKSUtilBase::isBrokenApp(bundle);
  });
}

void ours(benchmark::State& state) {
  measure(state, [](const std::string& zip, const fs::path& place) {
    return TKSUtilBase::installTKSVersion(kVersion, zip, (place / TKSAppName).string());
  });
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::RegisterBenchmark("limit/install_200mb", limit)
      ->UseManualTime()
      ->Iterations(1)
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("ours/install_200mb", ours)
      ->UseManualTime()
      ->Iterations(1)
      ->Unit(benchmark::kMillisecond);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
