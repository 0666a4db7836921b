#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "codesign/container/byte_source.h"
#include "codesign/container/code_layout.h"
#include "codesign/container/super_blob.h"

namespace tks::codesign {

/// Finds the parts of a signature for one slice of some code. Where they live:
///   Mach-O executable   in the executable's super blob
///   other executable    in its extended attributes com.apple.cs.<name>
///   bundle              there, or else as files in _CodeSignature; never some here and some there
/// A bundle's Info.plist and its seal are files only.
class SignatureComponents {
 public:
  /// `slice` counts in the image's slices and means nothing for other files. `layout` has to outlive this.
  SignatureComponents(const CodeLayout& layout, std::size_t slice);

  /// The content of a slot. Fails when the container is malformed.
  std::optional<ByteSource> find(std::uint32_t slot);

  /// Everything up from the start of the code that the pages cover.
  ByteSource code() const;
  /// Whether parts were found, and in files of the bundle.
  bool areInFolder() const { return fromExecutable_ == false; }
  /// The files that a signature is made of.
  std::vector<std::string> files() const;

 private:
  std::optional<ByteSource> findInExecutable(std::uint32_t slot);
  std::optional<ByteSource> findInImage(std::uint32_t slot);
  std::optional<ByteSource> findInAttributes(std::uint32_t slot);
  std::optional<ByteSource> findInFolder(std::uint32_t slot) const;
  std::optional<ByteSource> exclusively(bool fromExecutable, std::optional<ByteSource> found);

  const CodeLayout& layout_;
  std::size_t slice_;
  std::optional<ImageLayout> image_;
  std::optional<SuperBlob> super_;
  std::optional<TKSDictionary> attributes_;
  /// Whether the parts were found in the executable, once one was found.
  std::optional<bool> fromExecutable_;
};

/// Name under which a part is stored outside of a super blob; empty when it never is.
std::string_view componentName(std::uint32_t slot);

inline constexpr std::string_view kSignatureFolder = "_CodeSignature";
/// What a store adds to a bundle that was signed.
inline constexpr std::string_view kStoreReceiptFolder = "_MASReceipt";
inline constexpr std::string_view kAttributePrefix = "com.apple.cs.";

}  // namespace tks::codesign
