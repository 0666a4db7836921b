#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <tksinterface/TKSValue.h>

namespace tks::signing {

/// A Mach-O image that does nothing, for tests and demonstrations.
struct ImagePlan {
  std::uint32_t type = 0x01000007;  ///< the processor: x86-64
  std::uint32_t subtype = 3;        ///< its kind: all of them
  std::size_t size = 20000;         ///< bytes of code; rounded up
  std::string infoPlist{};          ///< for section __info_plist; empty: none
  std::uint32_t fileType = 2;       ///< an executable
  bool is64 = true;                 ///< with the header of 64 bits
  bool bigEndian = false;           ///< with the bytes of each number in the other order
};
TKSData makeImage(const ImagePlan& plan);
/// Images one after the other, after a universal header.
TKSData makeUniversal(const std::vector<TKSData>& images);

/// Makes the signature for an image whose last bytes will hold it: given all that stands before.
using SignImage = std::function<TKSData(const TKSData& code)>;

/// An image with room for `signatureSize` bytes of signature, replacing one that it has, filled by `sign`.
/// Throws std::runtime_error when there is no room for the load command.
TKSData embedSignature(TKSData image, std::size_t signatureSize, const SignImage& sign);
/// The images of a universal file, or the file itself when it is thin.
std::vector<TKSData> imagesOf(const TKSData& file, bool& universal);

}  // namespace tks::signing
