#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include <tksinterface/tksinterface.h>

// A host that has another JSON library, and functions of its own under the very names of functions inside this library,
// visible to everything that it loads. The library must not take them for its own, nor the host the library's.

namespace {
int called = 0;
}

namespace tks {

std::string_view lastPathComponent(std::string_view) {
  ++called;
  return "the host's own";
}

namespace json {
std::optional<std::string> write(const TKSValue&, TKSError*) {
  ++called;
  return "the host's own";
}
}  // namespace json

}  // namespace tks

int main() {
  const std::string text = R"({"a":[1,2.5,"x",null,true],"b":{"c":"\u00e4"}})";
  TKSError error;
  const TKSValue value = TKSUtilBase::JSONStringToObject(text, &error);
  const std::string written = TKSUtilBase::objectToJSONString(value, &error).value_or("");
  if (nlohmann::json::parse(written) != nlohmann::json::parse(text)) return std::puts(written.c_str()), 1;

  TKSInterface facade;
  facade.setTKSAppPath("/nowhere/Some Launcher.app");
  if (facade.appManager->TKSExePath != "/nowhere/Some Launcher.app/Contents/MacOS/Some Launcher") {
    return std::puts(facade.appManager->TKSExePath.c_str()), 2;
  }
  if (called != 0) return 3;
  return tks::lastPathComponent("/a/b") == "the host's own" ? 0 : 4;
}
