#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "codesign/container/super_blob.h"
#include "codesign/signing/message.h"
#include "tests/codesign/Fixtures.h"
#include "tests/fuzz/Mutators.h"
#include "tests/fuzz/Require.h"

// Code whose directory says something odd and is signed all the same, so that what follows the check of the signature
// sees it as well. An input is a list of patches, five bytes each: what is patched, where (u16, little-endian), how,
// with what.

namespace {

using namespace tks::codesign;
using tks::fuzz::require;

constexpr std::size_t kPatch = 5;
constexpr std::size_t kRoomForSignature = 20000;

enum class What : std::uint8_t { directory, container, code, image };
constexpr std::size_t kWhats = 4;

struct Patch {
  What what;
  std::size_t at;
  std::uint8_t how;
  std::uint8_t value;
};

std::vector<Patch> patchesIn(const std::uint8_t* data, std::size_t size) {
  std::vector<Patch> patches;
  for (; size >= kPatch && patches.size() < 64; data += kPatch, size -= kPatch) {
    patches.push_back({static_cast<What>(data[0] % kWhats), data[1] + data[2] * std::size_t{256}, data[3], data[4]});
  }
  return patches;
}

/// Whether it changed anything. Most places are those of the beginning, where the numbers are.
bool apply(const std::vector<Patch>& patches, What what, TKSData& bytes) {
  const TKSData before = bytes;
  for (const Patch& patch : patches) {
    if (patch.what != what || bytes.empty()) continue;
    std::uint8_t& byte = bytes[patch.at % bytes.size()];
    const std::uint8_t values[] = {patch.value, static_cast<std::uint8_t>(byte ^ patch.value),
                                   static_cast<std::uint8_t>(byte + patch.value), 0};
    byte = values[patch.how % std::size(values)];
  }
  return bytes != before;
}

TKSData directoryOver(const TKSData& code) {
  static const TKSData requirements = [] {
    TKSData none;
    tks::signing::append32(none, 0);
    return tks::signing::makeBlob(magic::kRequirements, none);
  }();
  tks::signing::DirectoryPlan plan;
  plan.identifier = "com.tarvo.fuzz";
  plan.components[slot::kRequirements] = requirements;
  return tks::signing::makeDirectory(plan, code);
}

TKSData containerOf(const TKSData& directory) {
  TKSData none;
  tks::signing::append32(none, 0);
  const TKSData message = tks::signing::signDirectories(tks::test::identity(), {{HashType::sha256, directory}}, {});
  return tks::signing::makeSuperBlob({{slot::kCodeDirectory, directory},
                                      {slot::kRequirements, tks::signing::makeBlob(magic::kRequirements, none)},
                                      {slot::kSignature, tks::signing::makeBlob(magic::kWrapper, message)}});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const tks::test::TemporaryFolder folder;
  static const TKSData image = tks::signing::makeImage({});
  const std::vector<Patch> patches = patchesIn(data, size);
  bool signatureChanged = false;
  std::size_t codeSize = 0;
  TKSData file = tks::signing::embedSignature(image, kRoomForSignature, [&](const TKSData& code) {
    codeSize = code.size();
    TKSData directory = directoryOver(code);
    signatureChanged = apply(patches, What::directory, directory);
    TKSData container = containerOf(directory);
    signatureChanged = apply(patches, What::container, container) || signatureChanged;
    return container;
  });
  TKSData code(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(codeSize));
  const bool codeChanged = apply(patches, What::code, code);
  std::copy(code.begin(), code.end(), file.begin());
  signatureChanged = apply(patches, What::image, file) || signatureChanged;

  const std::string path = folder / "program";
  tks::test::writeBytes(path, file);
  std::unique_ptr<tks::platform::StaticCode> made;
  std::string details;
  std::int32_t status = tks::platform::signatures().create(path, made);
  if (status == 0) {
    status = made->checkValidity(details);
    TKSDictionary information;
    require(made->copySigningInformation(information) != 0 || !information.empty());
    const std::int32_t installing = made->checkForInstalling(details);
    require(status == 0 || installing != 0);
  }
  if (!signatureChanged) require((status != 0) == codeChanged);
  return 0;
}
