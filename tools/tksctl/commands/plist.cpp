#include <tksinterface/TKSUtilBase.h>

#include <filesystem>
#include <memory>

#include "platform/platform.h"
#include "tools/tksctl/commands/table.h"
#include "tools/tksctl/frame/json_values.h"
#include "tools/tksctl/parts/typed_values.h"

namespace tks::ctl {
namespace {

constexpr std::size_t kLargest = 16u * 1024 * 1024;

struct Wishes {
  std::string file;
  std::vector<std::string> keys;
  std::string type = "text";
};

/// The whole property list; nothing, and the failure told, when it cannot be read.
std::optional<TKSValue> readList(Output& out, const std::string& file, Exit& code) {
  TKSError error;
  const auto content = platform::files().read(file, kLargest, &error);
  if (!content) {
    code = out.fail(error, "cannot read " + file);
    return std::nullopt;
  }
  TKSValue list = platform::propertyLists().parse(*content, &error);
  if (!list.isNothing()) return list;
  code = out.fail(Exit::failed, file + " is no property list: " + error.localizedDescription);
  return std::nullopt;
}

std::string joined(const std::vector<std::string>& keys) {
  std::string text;
  for (const std::string& key : keys) text.append(text.empty() ? "" : " > ").append(key);
  return text;
}

Exit get(Context& context, const Wishes& wishes) {
  Exit code = Exit::ok;
  const std::optional<TKSValue> list = readList(context.out, wishes.file, code);
  if (!list) return code;
  const TKSValue value = valueAt(*list, wishes.keys);
  if (value.isNothing()) return context.out.fail(Exit::failed, "there is no value under " + joined(wishes.keys));
  showValue(context.out, value);
  return Exit::ok;
}

Exit set(Context& context, const Wishes& wishes) {
  TKSKeyPath keys = wishes.keys;
  if (keys.size() < 2) return context.out.fail(Exit::usage, "KEY and VALUE are required");
  const std::string word = keys.back();
  keys.pop_back();
  const TKSValue value = readTyped(word, wishes.type);
  Exit code = Exit::ok;
  // A file that is something else must not be lost.
  if (std::filesystem::exists(wishes.file) && !readList(context.out, wishes.file, code)) return code;
  const std::string file = std::filesystem::absolute(wishes.file).string();
  context.interrupts.hold();
  if (TKSUtilBase::setPlist(keys, value, file)) {
    context.out.set("value", jsonable(value));
    return Exit::ok;
  }
  const bool isDenied = !platform::files().isWritable(std::filesystem::path(file).parent_path().string());
  return context.out.fail(isDenied ? Exit::noPermission : Exit::failed, "cannot write " + wishes.file);
}

Action addBelow(const CommandLine& line, const std::string& name, const std::string& summary, const std::string& keys,
                const std::shared_ptr<Wishes>& wishes, Exit (*act)(Context&, const Wishes&)) {
  const CommandLine below = line.command(name, summary);
  below.option("file", wishes->file, "The property list, XML or binary").required().typeName("FILE");
  if (!keys.empty()) below.option("key", wishes->keys, keys).required().typeName(name == "set" ? "KEY VALUE" : "KEY");
  if (name == "set") {
    below.option("--type", wishes->type, "Kind of the value: text, boolean, integer, real, data, date or json")
        .typeName("TYPE")
        .oneOf(valueTypes());
  }
  return [below, wishes, act](Context& context) { return below.isGiven() ? act(context, *wishes) : Exit::usage; };
}

}  // namespace

Command plistCommand() {
  return {
      .name = "plist",
      .summary = "reads and changes property lists",
      .description =
          "Keys are given outermost first, one word each; elements of arrays by their numbers from 0. Values "
          "are shown as text, and as JSON where they hold others. A file is replaced as a whole or stays as "
          "it is.",
      .examples = {{"tksctl plist get Info.plist CFBundleVersion", "One value."},
                   {"tksctl plist set settings.plist Window Width 800 --type integer", "Stores one, under two keys."},
                   {"tksctl plist print Info.plist", "The whole list."}},
      .setUp = [](const CommandLine& line) -> Action {
        auto wishes = std::make_shared<Wishes>();
        line.requireCommand();
        const std::vector<Action> actions = {
            addBelow(line, "get", "shows the value under keys", "Keys, outermost first", wishes, get),
            addBelow(line, "set", "stores a value under keys", "Keys, outermost first, then the value", wishes, set),
            addBelow(line, "print", "shows the whole list", "", wishes, get)};
        return [actions](Context& context) {
          for (const Action& action : actions) {
            if (const Exit code = action(context); code != Exit::usage) return code;
          }
          return Exit::usage;
        };
      }};
}

}  // namespace tks::ctl
