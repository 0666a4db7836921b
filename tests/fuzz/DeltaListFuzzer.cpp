#include <tksinterface/TKSUtilBase.h>

#include <filesystem>
#include <optional>
#include <string>

#include "BuildValues.h"
#include "tests/fuzz/Mutators.h"
#include "tests/fuzz/Require.h"
#include "tests/support/FakeHome.h"
#include "tests/support/FakeSignatures.h"

// What a server sends as its list of updates, from the tar archive to the packages in it. The archive is unpacked by
// the system's tool; who signed the list is taken for granted.

namespace {

namespace fs = std::filesystem;
using tks::fuzz::require;
using tks::platform::DownloadRequest;
using tks::platform::DownloadResult;

constexpr std::size_t kBlock = 512;
constexpr const char* kBase = "https://updates.tarvo.example/44";

/// Hands out one file, in a folder of its own.
class OneDownload final : public tks::platform::Download {
 public:
  std::string_view content;

  void start(const DownloadRequest&, std::function<void(DownloadResult)> done) override {
    const std::string location = tks::platform::knownFolders().temporary() + "/fetched/deltalist.json.delta";
    tks::test::writeFile(location, content);
    done({.location = location, .statusCode = 200, .error = std::nullopt});
  }

 private:
  tks::platform::Replaced<tks::platform::Download> replaced_{*this};
};

struct World {
  tks::test::FakeHome home;
  OneDownload download;
  tks::test::FakeSignatures signatures;
  tks::platform::Replaced<tks::platform::Signatures> replaced{signatures};

  World() {
    signatures.signedBy(TKS_TEAM_ID, {"Developer ID Application: Tarvo (" TKS_TEAM_ID ")",
                                      "Developer ID Certification Authority", "Apple Root CA"});
  }
};

void expectPackage(const std::string& key, const TKSValue& package) {
  const std::string name(package["version"].text());
  require(name.ends_with(".delta") && name.find_first_of("/\\") == std::string::npos);
  require(package["path"].text() == std::string(kBase) + "/" + name);
  require(key.size() == name.size() && key.find('-') == std::string::npos);
}

/// Makes a header's checksum true, and its size that of the content.
void repair(std::string& header, std::size_t size) {
  char number[16];
  std::snprintf(number, sizeof number, "%011zo", size);
  header.replace(124, 11, number);
  header.replace(148, 8, "        ");
  unsigned sum = 0;
  for (const char byte : header) sum += static_cast<unsigned char>(byte);
  std::snprintf(number, sizeof number, "%06o", sum);
  header.replace(148, 7, number, 7);
}

/// The size that a header says, as far as there are bytes for it.
std::size_t announced(std::string_view header, std::size_t most) {
  std::size_t size = 0;
  for (const char digit : header.substr(124, 11)) {
    if (digit < '0' || digit > '7') break;
    size = std::min(most, size * 8 + static_cast<std::size_t>(digit - '0'));
  }
  return size;
}

}  // namespace

/// Changes the header or the content of one entry and makes its size and its checksum true.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t room, unsigned seed) {
  tks::fuzz::Choice choice(seed);
  std::string archive(reinterpret_cast<const char*>(data), size);
  std::vector<std::size_t> headers;
  for (std::size_t at = 0; at + kBlock <= size && archive[at] != '\0';) {
    headers.push_back(at);
    at += kBlock + (announced({archive.data() + at, kBlock}, size) + kBlock - 1) / kBlock * kBlock;
  }
  if (headers.empty() || choice.oneIn(8)) return LLVMFuzzerMutate(data, size, room);
  const std::size_t at = headers[choice.below(headers.size())];
  std::string header = archive.substr(at, kBlock);
  const std::size_t length = std::min(announced(header, size), size - at - kBlock);
  const std::size_t padded = std::min((length + kBlock - 1) / kBlock * kBlock, size - at - kBlock);
  std::string content = archive.substr(at + kBlock, length);
  if (choice.oneIn(3)) {
    header = tks::fuzz::mutated(header, kBlock);
    header.resize(kBlock);
  } else {
    content = tks::fuzz::mutated(content, room - std::min(room, size));
  }
  repair(header, content.size());
  content.resize((content.size() + kBlock - 1) / kBlock * kBlock);
  return tks::fuzz::putBack(archive.replace(at, kBlock + padded, header + content), data, room);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static World world;
  world.download.content = tks::fuzz::textOf(data, size);
  TKSError error;
  const std::optional<TKSDictionary> packages = TKSUtilBase::avaliableDeltaUpdates(kBase, &error);
  require(!packages || !packages->empty());
  require(!packages || error == TKSError());
  if (packages) {
    for (const auto& [key, package] : *packages) expectPackage(std::string(key), package);
  }
  require(fs::is_empty(tks::platform::knownFolders().temporary()));
  world.signatures.asked.clear();
  world.signatures.paths.clear();
  return 0;
}
