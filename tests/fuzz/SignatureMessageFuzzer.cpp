#include <cstddef>
#include <cstdint>

#include "codesign/container/status.h"
#include "codesign/signing/directory_writer.h"
#include "codesign/trust/ber_structure.h"
#include "codesign/trust/certificates.h"
#include "codesign/trust/cms_signature.h"
#include "tests/fuzz/Require.h"

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
