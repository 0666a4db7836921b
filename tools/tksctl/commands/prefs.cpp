#include <chrono>
#include <memory>

#include "platform/platform.h"
#include "tools/tksctl/commands/table.h"
#include "tools/tksctl/frame/json_values.h"
#include "tools/tksctl/parts/typed_values.h"

namespace tks::ctl {
namespace {

using platform::files;
using platform::propertyLists;

struct Wishes {
  std::string domain;
  std::string key;
  std::string value;
  std::string type = "text";
  bool remove = false;
};

std::string folder() { return platform::knownFolders().realHome() + "/Library/Preferences"; }

/// The file of a host's preferences, or of those that all programs share.
std::string fileOf(const Wishes& wishes) {
  return folder() + "/" + (wishes.domain.empty() ? ".GlobalPreferences" : wishes.domain) + ".plist";
}

bool isDomain(const std::string& domain) {
  return domain.empty() || (domain.front() != '.' && domain.find('/') == std::string::npos && domain.size() < 200);
}

/// What is stored; a file that is not there holds nothing.
std::optional<TKSDictionary> read(Output& out, const Wishes& wishes, Exit& code) {
  if (!isDomain(wishes.domain)) {
    code = out.fail(Exit::usage, "\"" + wishes.domain + "\" is no identifier of a bundle and no name of a program");
    return std::nullopt;
  }
  const std::string file = fileOf(wishes);
  if (!files().exists(file)) return TKSDictionary();
  TKSError error;
  std::optional<TKSDictionary> values = propertyLists().readDictionary(file, &error);
  const bool isEmpty = !values && files().size(file, nullptr) == 0u;
  if (isEmpty) return TKSDictionary();
  if (!values) code = out.fail(error, "cannot read " + file);
  return values;
}

Exit get(Context& context, const Wishes& wishes) {
  Exit code = Exit::ok;
  const std::optional<TKSDictionary> values = read(context.out, wishes, code);
  if (!values) return code;
  const TKSValue value = wishes.key.empty() ? TKSValue(*values) : (*values)[wishes.key];
  if (value.isNothing()) return context.out.fail(Exit::failed, "the preference " + wishes.key + " is not set");
  showValue(context.out, value);
  return Exit::ok;
}

Exit set(Context& context, const Wishes& wishes) {
  if (wishes.value.empty() != wishes.remove) return context.out.fail(Exit::usage, "give a VALUE, or --remove");
  const TKSValue value = wishes.remove ? TKSValue() : readTyped(wishes.value, wishes.type);
  Exit code = Exit::ok;
  if (!read(context.out, wishes, code)) return code;
  context.interrupts.hold();
  const std::string file = fileOf(wishes);
  TKSError error;
  constexpr std::uint32_t kPrivate = 0700;
  // Hosts write under the same lock.
  constexpr std::chrono::seconds kPatience{2};
  if (!files().createDirectory(folder(), kPrivate, &error)) return context.out.fail(error, "cannot make the folder");
  const auto lock = files().lock(file, kPatience, &error);
  if (!lock) return context.out.fail(error, "cannot lock " + file);
  std::optional<TKSDictionary> values = read(context.out, wishes, code);
  if (!values) return code;
  if (wishes.remove && !values->contains(wishes.key)) {
    context.out.note("the preference " + wishes.key + " is not set");
    return Exit::nothingToDo;
  }
  values->set(wishes.key, value);
  if (!propertyLists().writeDictionary(*values, file, &error)) return context.out.fail(error, "cannot write");
  context.out.set("value", jsonable(value));
  return Exit::ok;
}

void addDomain(const CommandLine& line, Wishes& wishes) {
  line.option("--domain", wishes.domain, "Identifier of the host's bundle, or its program's name; else all programs'")
      .typeName("ID");
}

}  // namespace

Command prefsCommand() {
  return {.name = "prefs",
          .summary = "reads and changes preferences of hosts",
          .description =
              "Preferences are property lists in the home's Library/Preferences: one for each host, by the "
              "identifier of its bundle or else the name of its program, over one that all programs share. "
              "Without --domain it is the latter.",
          .examples = {{"tksctl prefs get IsLabDevice", "Whether this is a lab device, for all hosts."},
                       {"tksctl prefs set IsLabDevice --remove", "Takes that back."},
                       {"tksctl prefs get --domain Tarvo-Systems.Ember", "All that one host has stored."}},
          .setUp = [](const CommandLine& line) -> Action {
            auto wishes = std::make_shared<Wishes>();
            line.requireCommand();
            const CommandLine reading = line.command("get", "shows a preference, or all");
            reading.option("key", wishes->key, "The preference; all when not given").typeName("KEY");
            addDomain(reading, *wishes);
            const CommandLine writing = line.command("set", "stores or removes a preference");
            writing.option("key", wishes->key, "The preference").required().typeName("KEY");
            writing.option("value", wishes->value, "Its value").typeName("VALUE");
            writing
                .option("--type", wishes->type, "Kind of the value: text, boolean, integer, real, data, date or json")
                .typeName("TYPE")
                .oneOf(valueTypes());
            writing.flag("--remove", wishes->remove, "Remove it");
            addDomain(writing, *wishes);
            return [wishes, reading](Context& context) {
              return reading.isGiven() ? get(context, *wishes) : set(context, *wishes);
            };
          }};
}

}  // namespace tks::ctl
