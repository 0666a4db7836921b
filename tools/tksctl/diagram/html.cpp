#include <algorithm>
#include <set>

#include "tools/tksctl/diagram/diagram.h"
#include "tools/tksctl/frame/json_values.h"

// One page, with nothing fetched from anywhere: arrows are drawn by style, filters are a few lines of script, and
// without the script everything is shown.

namespace tks::ctl {
namespace {

constexpr std::string_view kHead = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'; script-src 'unsafe-inline'">
<title>Conversation of a host and a launcher</title>
<style>
:root { color-scheme: light dark; --line: #1f5fa8; --back: #b35900; --dim: #6a6a6a; --note: #8a3b00; }
@media (prefers-color-scheme: dark) { :root { --line: #7db4f0; --back: #f0a860; --dim: #a0a0a0; --note: #f0a860; } }
body { font: 15px/1.4 sans-serif; max-width: 60rem; margin: 2rem auto; padding: 0 1rem; }
fieldset { border: 1px solid var(--dim); border-radius: 6px; margin-bottom: 1rem; }
fieldset label { margin-right: 1rem; white-space: nowrap; }
.lanes { display: flex; justify-content: space-between; font-weight: bold; padding: 0 6.5rem; }
ol { list-style: none; margin: 0; padding: 0; }
li { display: grid; grid-template-columns: 6rem 1fr 5.5rem; gap: .5rem; align-items: baseline; padding: .2rem 0; }
.time, .size { color: var(--dim); font-variant-numeric: tabular-nums; text-align: right; }
.size { text-align: left; }
.note { color: var(--note); font-style: italic; text-align: center; }
summary { cursor: pointer; text-align: center; list-style: none; }
.toLauncher summary { border-bottom: 2px solid var(--line); }
.toHost summary { border-bottom: 2px solid var(--back); }
.toLauncher summary::after { content: " \25B6"; color: var(--line); float: right; }
.toHost summary::before { content: "\25C0 "; color: var(--back); float: left; }
pre { overflow-x: auto; border: 1px solid var(--dim); border-radius: 6px; padding: .6rem; }
[hidden] { display: none; }
</style>
</head>
<body>
<h1>Conversation of a host and a launcher</h1>
)";

constexpr std::string_view kScript = R"(<script>
for (const box of document.querySelectorAll("fieldset input")) {
  box.addEventListener("change", () => {
    for (const row of document.querySelectorAll("li")) {
      if (row.dataset.type === box.value) row.hidden = !box.checked;
    }
  });
}
</script>
</body>
</html>
)";

/// What the filter knows an event by.
std::string filterName(const RecordedEvent& event) {
  return event.isMessage() ? labelOf(event) : "(" + event.event + ")";
}

std::string filters(const Recording& recording) {
  std::set<std::string> names;
  for (const RecordedEvent& event : recording.events) names.insert(filterName(event));
  std::string text = "<fieldset><legend>Show</legend>\n";
  for (const std::string& name : names) {
    text += "<label><input type=\"checkbox\" checked value=\"" + escaped(name) + "\"> " + escaped(name) + "</label>\n";
  }
  return text + "</fieldset>\n";
}

std::string content(const RecordedEvent& event) {
  if (!event.isMessage()) return "<span class=\"note\">" + escaped(labelOf(event)) + "</span>";
  return "<details><summary>" + escaped(labelOf(event)) + "</summary><pre>" + escaped(prettyJson(event.message)) +
         "</pre></details>";
}

std::string row(const RecordedEvent& event) {
  std::string kind = "event";
  if (event.isMessage()) kind = event.direction == Direction::toLauncher ? "frame toLauncher" : "frame toHost";
  const std::string size = event.isMessage() ? sizeOf(event.length) : "";
  return "<li class=\"" + kind + "\" data-type=\"" + escaped(filterName(event)) + "\"><span class=\"time\" title=\"" +
         escaped(event.time) + "\">" + secondsOf(event) + "</span>" + content(event) + "<span class=\"size\">" + size +
         "</span></li>\n";
}

}  // namespace

std::string htmlDiagram(const Recording& recording) {
  const auto messages = std::ranges::count_if(recording.events, &RecordedEvent::isMessage);
  std::string text(kHead);
  text += "<p>Recorded " + escaped(recording.time) + " by version " + escaped(recording.library) + ": " +
          std::to_string(messages) + " messages. Select one to see its content, which is masked.</p>\n";
  text += filters(recording);
  text += "<div class=\"lanes\"><span>Host</span><span>Launcher</span></div>\n<ol>\n";
  for (const RecordedEvent& event : recording.events) text += row(event);
  return text.append("</ol>\n").append(kScript);
}

}  // namespace tks::ctl
