#include <tksinterface/TKSUtilBase.h>

#include <filesystem>
#include <memory>

#include "platform/platform.h"
#include "tools/tksctl/commands/table.h"
#include "tools/tksctl/frame/json_values.h"

namespace tks::ctl {
namespace {

constexpr std::string_view kWhereFroms = "com.apple.metadata:kMDItemWhereFroms";
constexpr std::string_view kQuarantine = "com.apple.quarantine";

std::string asText(const TKSData& data) { return {data.begin(), data.end()}; }

Exit tell(Context& context, const std::string& given) {
  Output& out = context.out;
  const std::string path = std::filesystem::absolute(given).lexically_normal().string();
  TKSError error;
  const auto attributes = platform::files().attributes(path, &error);
  if (!attributes) return out.fail(error, "cannot read " + given);
  const TKSDictionary& held = attributes->extendedAttributes;
  const TKSValue from = TKSUtilBase::getDownloadURLFromFile(path);
  const TKSValue all = held.contains(kWhereFroms) ? TKSUtilBase::getProperty(kWhereFroms, path) : TKSValue();
  out.set("path", path);
  out.set("downloadedFrom", from.isNothing() ? TKSValue(TKSNull()) : jsonable(from));
  out.set("whereFroms", all.isArray() ? jsonable(all) : TKSValue(TKSArray()));
  const bool isMarked = held.contains(kQuarantine);
  const std::string quarantine = isMarked ? asText(held[kQuarantine].data()) : std::string();
  out.set("quarantine", isMarked ? TKSValue(quarantine) : TKSValue(TKSNull()));
  if (from.isNothing() && !isMarked) {
    out.note("there is no mark of a download at " + given);
    return Exit::nothingToDo;
  }
  if (!from.isNothing()) out.line("downloaded from: " + oneLine(from.description()));
  for (const TKSValue& address : all.array()) out.line("by way of:       " + oneLine(address.description()));
  if (isMarked) out.line("quarantine:      " + oneLine(quarantine));
  return Exit::ok;
}

}  // namespace

Command provenanceCommand() {
  return {.name = "provenance",
          .summary = "shows where a downloaded file came from",
          .description =
              "Reads the marks that browsers leave on what they download: addresses, and the quarantine mark. They "
              "are hints only, because anybody can write them. Ends with 3 when there are none.",
          .examples = {{"tksctl provenance launcher.zip", "Where this archive came from."}},
          .setUp = [](const CommandLine& line) -> Action {
            auto path = std::make_shared<std::string>();
            line.option("file", *path, "The file").required().typeName("FILE");
            return [path](Context& context) { return tell(context, *path); };
          }};
}

}  // namespace tks::ctl
