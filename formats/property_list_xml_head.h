#pragma once

#include <string_view>

// What everybody writes around the value of a list in XML.

namespace tks::formats::property_list {

inline constexpr std::string_view kXmlDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
inline constexpr std::string_view kXmlDoctype =
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">";
inline constexpr std::string_view kXmlOpening = "<plist version=\"1.0\">";
inline constexpr std::string_view kXmlClosing = "</plist>";

}  // namespace tks::formats::property_list
