// Signatures, measured against the cryptography that nobody can do without: OpenSSL's SHA-256 of as many bytes in
// memory on all processors, and a bare CMS_verify with its chain.
//
// A benchmark "ours/X" comes with "limit/X" on the same content; targets stand in benchmarks/targets.txt.

#include <benchmark/benchmark.h>
#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/x509_vfy.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "codesign/container/code_directory.h"
#include "codesign/signing/directory_writer.h"
#include "codesign/signing/mach_o_writer.h"
#include "codesign/signing/message.h"
#include "codesign/signing/signer.h"
#include "codesign/trust/cms_signature.h"
#include "install/ContentCheck.h"
#include "platform/platform.h"

namespace {

namespace fs = std::filesystem;
using tks::codesign::ByteSource;

constexpr std::size_t kResources = 2000;
constexpr std::size_t kResourceSize = 100'000;
constexpr std::size_t kExecutableSize = 12'000'000;

const tks::signing::Identity& identity() {
  static const tks::signing::Identity made = tks::signing::makeIdentity({});
  return made;
}

void writeFile(const std::string& path, const void* content, std::size_t size) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path, std::ios::binary).write(static_cast<const char*>(content), static_cast<std::streamsize>(size));
}

/// A signed application with so many resources of a size, in a folder that goes with the program.
class LargeApp {
 public:
  LargeApp(std::size_t resources, std::size_t size) {
    folder_ = fs::temp_directory_path() / "tks-benchmark-XXXXXX";
    if (::mkdtemp(folder_.data()) == nullptr) std::abort();
    const std::string info =
        "<plist version=\"1.0\"><dict><key>CFBundleExecutable</key><string>A</string></dict></plist>";
    writeFile(path() + "/Contents/Info.plist", info.data(), info.size());
    tks::signing::ImagePlan plan;
    plan.size = kExecutableSize;
    const TKSData image = tks::signing::makeImage(plan);
    writeFile(path() + "/Contents/MacOS/A", image.data(), image.size());
    TKSData content(size);
    for (std::size_t i = 0; i < resources; ++i) {
      for (std::size_t at = 0; at < content.size(); ++at) content[at] = static_cast<std::uint8_t>(at * 7 + i);
      const std::string name = "/Contents/Resources/" + std::to_string(i % 20) + "/" + std::to_string(i);
      writeFile(path() + name, content.data(), content.size());
    }
    tks::signing::SigningOptions options;
    options.identity = &identity();
    tks::signing::sign(path(), options);
  }
  ~LargeApp() {
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
  }
  LargeApp(const LargeApp&) = delete;
  LargeApp& operator=(const LargeApp&) = delete;

  std::string path() const { return folder_ + "/A.app"; }

 private:
  std::string folder_;
};

void bundleLimit(benchmark::State& state) {
  const std::size_t threads = std::max(std::thread::hardware_concurrency(), 1u);
  const std::size_t share = (kResources * kResourceSize + kExecutableSize) / threads;
  const std::vector<std::uint8_t> bytes(std::size_t{1} << 20, 7);
  for (auto _ : state) {
    std::vector<std::thread> workers;
    for (std::size_t i = 0; i < threads; ++i) {
      workers.emplace_back([&] {
        EVP_MD_CTX* context = ::EVP_MD_CTX_new();
        ::EVP_DigestInit_ex(context, ::EVP_sha256(), nullptr);
        for (std::size_t done = 0; done < share; done += bytes.size()) {
          ::EVP_DigestUpdate(context, bytes.data(), std::min(bytes.size(), share - done));
        }
        unsigned char digest[EVP_MAX_MD_SIZE];
        ::EVP_DigestFinal_ex(context, digest, nullptr);
        benchmark::DoNotOptimize(digest);
        ::EVP_MD_CTX_free(context);
      });
    }
    for (std::thread& worker : workers) worker.join();
  }
}

/// 212 MB in 2,002 files.
const LargeApp& largeApp() {
  static const LargeApp app(kResources, kResourceSize);
  return app;
}

void bundleOurs(benchmark::State& state) {
  const LargeApp& app = largeApp();
  for (auto _ : state) {
    std::unique_ptr<tks::platform::StaticCode> code;
    std::string details;
    if (tks::platform::signatures().create(app.path(), code) != 0 || code->checkValidity(details) != 0) {
      state.SkipWithError(details.c_str());
      return;
    }
  }
}

/// What the check of a launch asks: who signed it, without a look at what is sealed.
void signingInformation(benchmark::State& state) {
  const std::string path = largeApp().path();
  for (auto _ : state) {
    std::unique_ptr<tks::platform::StaticCode> code;
    TKSDictionary information;
    if (tks::platform::signatures().create(path, code) != 0 || code->copySigningInformation(information) != 0) {
      state.SkipWithError("no information");
      return;
    }
    benchmark::DoNotOptimize(&information);
  }
}

/// What the check of content may cost a start when the launcher was not changed.
constexpr double kUnchangedSeconds = 0.002;

void unchangedLimit(benchmark::State& state) {
  for (auto _ : state) state.SetIterationTime(kUnchangedSeconds);
}

/// The check of content before a start, of a bundle of 1,002 files that passed before.
void contentUnchanged(benchmark::State& state) {
  static const LargeApp app(1000, 4096);
  const std::string path = app.path();
  TKSError error;
  bool passed = tks::install::checkContent(path, {.whole = true}, &error);
  for (auto _ : state) {
    const auto begin = std::chrono::steady_clock::now();
    passed = passed && tks::install::checkContent(path, {.whole = true}, &error);
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
  }
  if (!passed) state.SkipWithError(error.localizedDescription.c_str());
}

/// A directory and the message that signs it.
struct Signed {
  TKSData message;
  TKSData directory;
  tks::codesign::DirectorySet directories;

  Signed() {
    tks::signing::DirectoryPlan plan;
    plan.identifier = "com.example.benchmark";
    plan.team = "T4RV0K0VRA";
    directory = tks::signing::makeDirectory(plan, TKSData(200'000));
    message = tks::signing::signDirectories(identity(), {{tks::codesign::HashType::sha256, directory}}, {});
    directories.add(tks::codesign::CodeDirectory(ByteSource(directory)), true);
    directories.choose();
  }
};

const Signed& signedDirectory() {
  static const Signed made;
  return made;
}

int anyCriticalExtension(int good, X509_STORE_CTX* context) {
  return good == 1 || ::X509_STORE_CTX_get_error(context) == X509_V_ERR_UNHANDLED_CRITICAL_EXTENSION ? 1 : 0;
}

void cmsLimit(benchmark::State& state) {
  const Signed& made = signedDirectory();
  X509_STORE* store = ::X509_STORE_new();
  ::X509_STORE_add_cert(store, identity().chain.back().get());
  ::X509_STORE_set_purpose(store, X509_PURPOSE_ANY);
  ::X509_STORE_set_verify_cb(store, anyCriticalExtension);
  for (auto _ : state) {
    const unsigned char* at = made.message.data();
    CMS_ContentInfo* message = ::d2i_CMS_ContentInfo(nullptr, &at, static_cast<long>(made.message.size()));
    BIO* content = ::BIO_new_mem_buf(made.directory.data(), static_cast<int>(made.directory.size()));
    if (::CMS_verify(message, nullptr, store, content, nullptr, CMS_BINARY) != 1) state.SkipWithError("not verified");
    ::BIO_free(content);
    ::CMS_ContentInfo_free(message);
  }
  ::X509_STORE_free(store);
}

void cmsOurs(benchmark::State& state) {
  const Signed& made = signedDirectory();
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        tks::codesign::verifySignature(made.message, made.directories, tks::codesign::AppleRoots::builtIn()));
  }
}

BENCHMARK(bundleLimit)->Name("limit/bundle_check_212mb")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(bundleOurs)->Name("ours/bundle_check_212mb")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(signingInformation)->Name("alone/signing_information_212mb")->Unit(benchmark::kMicrosecond);
BENCHMARK(unchangedLimit)->Name("limit/content_unchanged")->UseManualTime()->Iterations(10);
BENCHMARK(contentUnchanged)->Name("ours/content_unchanged")->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(cmsLimit)->Name("limit/cms_verify")->Unit(benchmark::kMicrosecond);
BENCHMARK(cmsOurs)->Name("ours/cms_verify")->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
