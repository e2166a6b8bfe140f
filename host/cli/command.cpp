#include "host/cli/command.h"

#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <utility>

#include "host/console/suggestion.h"
#include "host/usage_error.h"

namespace host {
namespace {

CLI::Option* named(CLI::Option* option, const char* type, Presence presence = Presence::kOptional) {
  return option->type_name(type)->required(presence == Presence::kRequired);
}

}  // namespace

void Command::argument(const char* name, std::string& value, const char* what, Presence presence) {
  named(app_.add_option(name, value, what), "", presence);
}

void Command::argument(const char* name, std::vector<std::string>& values, const char* what,
                       Presence presence) {
  named(app_.add_option(name, values, what), "", presence);
}

void Command::option(const char* names, std::string& value, const char* type, const char* what,
                     Presence presence) {
  named(app_.add_option(names, value, what), type, presence);
}

void Command::list(const char* names, std::vector<std::string>& values, const char* type, const char* what) {
  named(app_.add_option(names, values, what), type)
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->allow_extra_args(false);
}

void Command::choice(const char* names, std::string& value, std::initializer_list<const char*> choices,
                     const char* type, const char* what) {
  const std::vector<std::string> all(choices.begin(), choices.end());
  named(app_.add_option(names, value, what), type)
      // Stores the value as it is listed.
      ->transform(CLI::IsMember(all, CLI::ignore_case).description(""));
}

void Command::number(const char* names, int& value, int min, int max, const char* type, const char* what) {
  named(app_.add_option(names, value, what), type)->check(CLI::Range(min, max).description(""));
}

void Command::number(const char* names, double& value, double min, double max, const char* type,
                     const char* what) {
  named(app_.add_option(names, value, what), type)->check(CLI::Range(min, max).description(""));
}

void Command::size(const char* names, std::uint64_t& value, const char* what) {
  const CLI::Validator positive(
      [](const std::string& text) {
        return text == "0" || text.starts_with('-') ? "it must be greater than 0" : std::string();
      },
      "");
  named(app_.add_option(names, value, what), "SIZE")
      ->transform(CLI::AsSizeValue(false).description(""))
      // Checked first: the other validators would read "-1" as a very large number.
      ->transform(positive)
      ->check(positive);
}

void Command::flag(const char* names, bool& value, const char* what) {
  app_.add_flag(names, value, what);
}

void Command::footer(const std::string& text) {
  app_.footer(text);
}

void Command::onParsed(std::function<void()> act) {
  app_.callback(std::move(act));
}

Program::Program(const char* name, const char* what, const char* version, const char* footer)
    : app_(std::make_unique<CLI::App>(what, name)) {
  app_->set_version_flag("--version", fmt::format("{} {}", name, version));
  app_->require_subcommand(1);
  app_->footer(footer);
}

Program::~Program() = default;

Command Program::add(const char* name, const char* what) {
  return Command(*app_->add_subcommand(name, what)->fallthrough());
}

Command Program::common() {
  return Command(*app_);
}

std::optional<std::string> Program::parse(int argumentCount, const char* const* arguments) {
  try {
    app_->parse(argumentCount, arguments);
  } catch (const CLI::CallForHelp&) {
    const CLI::App& asked = command();
    return &asked == app_.get() ? asked.help() : asked.help(app_->get_name());
  } catch (const CLI::CallForVersion&) {
    return app_->version() + "\n";
  } catch (const CLI::ExtrasError& error) {
    failOnExtras(error.what(), app_->remaining(true));
  } catch (const CLI::Error& error) {
    if (&command() == app_.get() && arguments[1][0] != '-') failOnCommand(arguments[1]);
    if (&command() == app_.get()) throw UsageError("no command given" + seeHelp());
    throw UsageError(error.what() + seeHelp());
  } catch (const UsageError& error) {
    const std::string message = error.what();
    throw UsageError(message.ends_with(')') ? message : message + seeHelp());
  }
  return std::nullopt;
}

std::string Program::help() const {
  return app_->help();
}

const CLI::App& Program::command() const {
  const std::vector<CLI::App*> asked = app_->get_subcommands();
  return asked.empty() ? *app_ : *asked.back();
}

std::string Program::seeHelp() const {
  const std::string name = &command() == app_.get() ? "" : " " + command().get_name();
  return fmt::format(" (see '{}{} --help')", app_->get_name(), name);
}

void Program::failOnCommand(const std::string& name) const {
  std::vector<std::string> names;
  for (const CLI::App* each : app_->get_subcommands({})) names.push_back(each->get_name());
  const std::string suggestion = didYouMean(name, names);
  throw UsageError(
      fmt::format("no command '{}'{}", name,
                  suggestion.empty() ? "; commands: " + CLI::detail::join(names, ", ") : suggestion));
}

void Program::failOnExtras(const std::string& message, const std::vector<std::string>& extras) const {
  if (extras.empty() || !extras.front().starts_with('-')) throw UsageError(message + seeHelp());
  const std::string option = extras.front().substr(0, extras.front().find('='));
  std::vector<std::string> names;
  for (const CLI::Option* each : command().get_options()) {
    for (const std::string& name : each->get_lnames()) names.push_back("--" + name);
    if (!each->check_name(option)) continue;
    throw UsageError(fmt::format("option '{}' must follow the command: {} {} {} ...", option,
                                 app_->get_name(), command().get_name(), option));
  }
  const std::string suggestion = didYouMean(option, names);
  throw UsageError(fmt::format("no option '{}'{}", option, suggestion.empty() ? seeHelp() : suggestion));
}

}  // namespace host
