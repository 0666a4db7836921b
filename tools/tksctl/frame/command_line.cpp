#include "tools/tksctl/frame/command_line.h"

#include <CLI/CLI.hpp>

namespace tks::ctl {

Option Option::typeName(const std::string& name) const { return Option(option_->type_name(name)); }

Option Option::required() const { return Option(option_->required()); }

Option Option::showsDefault() const { return Option(option_->capture_default_str()); }

Option Option::needs(Option other) const { return Option(option_->needs(other.option_)); }

Option Option::oneWordEach() const { return Option(option_->allow_extra_args(false)); }

Option Option::oneOf(const std::vector<std::string>& words) const {
  return Option(option_->check(CLI::IsMember(words)));
}

Option Option::between(int least, int most) const { return Option(option_->check(CLI::Range(least, most))); }

Option Option::between(double least, double most) const { return Option(option_->check(CLI::Range(least, most))); }

Option CommandLine::option(const std::string& names, std::string& value, const std::string& meaning) const {
  return Option(app_->add_option(names, value, meaning));
}

Option CommandLine::option(const std::string& names, std::vector<std::string>& values,
                           const std::string& meaning) const {
  return Option(app_->add_option(names, values, meaning));
}

Option CommandLine::option(const std::string& names, int& value, const std::string& meaning) const {
  return Option(app_->add_option(names, value, meaning));
}

Option CommandLine::option(const std::string& names, std::uint32_t& value, const std::string& meaning) const {
  return Option(app_->add_option(names, value, meaning));
}

Option CommandLine::option(const std::string& names, double& value, const std::string& meaning) const {
  return Option(app_->add_option(names, value, meaning));
}

Option CommandLine::flag(const std::string& names, bool& value, const std::string& meaning) const {
  return Option(app_->add_flag(names, value, meaning));
}

CommandLine CommandLine::command(const std::string& name, const std::string& summary) const {
  return CommandLine(*app_->add_subcommand(name, summary));
}

void CommandLine::requireCommand() const { app_->require_subcommand(1); }

bool CommandLine::isGiven() const { return app_->parsed(); }

}  // namespace tks::ctl
