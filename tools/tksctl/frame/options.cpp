#include "tools/tksctl/frame/options.h"

#include <tksinterface/TKSOptions.h>
#include <tksinterface/TKSUtilBase.h>

#include <fstream>
#include <iterator>

#include "foundation/Options.h"

namespace tks::ctl {
namespace {

/// The options in a file; nothing, and the code, when there are none to be had.
std::optional<TKSOptions> optionsIn(const std::string& path, Output& out, Exit& code) {
  std::ifstream file(path, std::ios::binary);
  const std::string text(std::istreambuf_iterator<char>(file), {});
  TKSError error;
  const TKSValue values = file ? TKSUtilBase::JSONStringToObject(text, &error) : TKSValue();
  if (!values.isDictionary()) {
    code = out.fail(Exit::failed, path + (file ? " is no JSON object" : " cannot be read"));
    return std::nullopt;
  }
  std::optional<TKSOptions> options = TKSOptions::optionsFromDictionary(values.dictionary(), &error);
  if (!options) code = out.fail(Exit::usage, path + ": " + error.localizedDescription);
  return options;
}

}  // namespace

void addLibraryOptions(const CommandLine& line, OptionWishes& wishes) {
  line.option("--option", wishes.assignments, "An option of the library; may be given several times")
      .typeName("NAME=VALUE")
      .oneWordEach();
  line.option("--options", wishes.file, "A JSON object of options of the library").typeName("FILE");
}

std::optional<Exit> setLibraryOptions(const OptionWishes& wishes, Output& out) {
  TKSOptions options;
  Exit code = Exit::ok;
  if (!wishes.file.empty()) {
    const std::optional<TKSOptions> read = optionsIn(wishes.file, out, code);
    if (!read) return code;
    options = *read;
  }
  TKSError error;
  for (const std::string& assignment : wishes.assignments) {
    if (!setOption(options, assignment, &error)) return out.fail(Exit::usage, error.localizedDescription);
  }
  if (options == TKSOptions() || TKSOptions::setOptions(options, &error)) return std::nullopt;
  return out.fail(Exit::usage, error.localizedDescription);
}

}  // namespace tks::ctl
