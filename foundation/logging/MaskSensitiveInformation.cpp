#include <tksinterface/MaskSensitiveInformation.h>

#include "foundation/logging/Masking.h"
#include "platform/platform.h"

using tks::masking::maskRange;
using tks::masking::removePersonalData;
using tks::masking::Unit;

std::string removePII(const std::string& input) {
  std::string text = input;
  removePersonalData(text, Unit::bytes);
  return text;
}

std::string mask(std::string text, unsigned long start, unsigned long end) {
  maskRange(text, start, end, Unit::bytes);
  return text;
}

std::string removeSensitiveInformationCpp(const std::string& input) { return removePII(input); }

std::string removeSensitiveInformationCpp(const char* input) {
  return input == nullptr ? std::string() : removeSensitiveInformationCpp(std::string(input));
}

std::string addMaskCpp(const std::string& input) { return mask(input, 0, input.size()); }

std::string addMaskCpp(const char* input) { return input == nullptr ? std::string() : addMaskCpp(std::string(input)); }

std::string toLower(const std::string& input) {
  std::string text = input;
  for (char& byte : text) byte = byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
  return text;
}

std::string MaskSensitiveInformation::removeSensitiveInformation(std::string_view text) {
  std::string result(text);
  removePersonalData(result, Unit::characters, tks::platform::usersFolders().list());
  return result;
}

std::string MaskSensitiveInformation::addMask(std::string_view text) {
  std::string result(text);
  maskRange(result, 0, result.size(), Unit::characters);
  return result;
}
