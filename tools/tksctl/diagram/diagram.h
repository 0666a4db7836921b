#pragma once

#include <span>
#include <string>
#include <string_view>

#include "tools/tksctl/recording/recording.h"

namespace tks::ctl {

/// One form of a sequence diagram: the host on the left, the launcher on the right, time from top to bottom.
struct DiagramFormat {
  std::string_view name;
  std::string (*draw)(const Recording& recording);
};

/// All of them, the one for terminals first.
std::span<const DiagramFormat> diagramFormats();

std::string textDiagram(const Recording& recording);
std::string mermaidDiagram(const Recording& recording);
std::string svgDiagram(const Recording& recording);
/// One file that needs nothing else: the diagram with filters by type and the bodies of the messages to unfold.
std::string htmlDiagram(const Recording& recording);

/// What stands at an arrow or beside the line of time: "hello", "fatal error: ...", "started, process 4711".
std::string labelOf(const RecordedEvent& event);
/// "0.012 s"
std::string secondsOf(const RecordedEvent& event);
/// "46 B", "12.0 KiB"
std::string sizeOf(std::uint64_t bytes);
/// The text for the content and for the attributes of XML and HTML.
std::string escaped(std::string_view text);

}  // namespace tks::ctl
