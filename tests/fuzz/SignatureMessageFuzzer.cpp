#include <cstddef>
#include <cstdint>

#include "platform/linux/signatures/ber_structure.h"
#include "platform/linux/signatures/certificates.h"
#include "platform/linux/signatures/cms_signature.h"
#include "platform/linux/signatures/status.h"
#include "tests/fuzz/Require.h"
#include "tools/signing/directory_writer.h"

// The message that signs a code directory, with its certificates and its time stamp.

using namespace tks::codesign;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const DirectorySet directories = [] {
    tks::signing::DirectoryPlan plan;
    plan.identifier = "fuzz";
    DirectorySet made;
    made.add(CodeDirectory(ByteSource(tks::signing::makeDirectory(plan, TKSData(100)))), true);
    made.choose();
    return made;
  }();
  const Bytes bytes(data, size);
  tks::fuzz::require(isWellNested(bytes) || !SignedMessage::isOne(bytes));
  try {
    const Signer signer = verifySignature(bytes, directories, AppleRoots::builtIn());
    tks::fuzz::require(!signer.certificates.empty());
  } catch (const Failure&) {
    // What does not hold ends in a status.
  }
  return 0;
}
