#include "tools/tksctl/parts/delta_packages.h"

#include "tools/tksctl/frame/json_values.h"

namespace tks::ctl {

void showPackages(Output& out, const TKSDictionary& packages) {
  TKSArray listed;
  for (const auto& [key, package] : packages) {
    const auto shown = [&package = package](std::string_view name) {
      return package[name].isNothing() ? std::string("-") : oneLine(package[name].description());
    };
    out.line(oneLine(key) + "  " + shown("size") + " bytes  " + shown("hash") + "  " + shown("path"));
    TKSDictionary entry = package.dictionary();
    entry.set("key", key);
    listed.append(jsonable(entry));
  }
  out.set("packages", listed);
}

}  // namespace tks::ctl
