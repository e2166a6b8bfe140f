// The commands and options of the program. Hides the library that parses them, which is slow to compile.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace host {

enum class Presence { kOptional, kRequired };

// One command. Values are set while the command line is parsed, so they must live as long as the program.
// `names`: "-f,--format", or a name without dashes for an argument. `type`: what the help calls the value.
class Command {
 public:
  explicit Command(CLI::App& app) : app_(app) {}

  void argument(const char* name, std::string& value, const char* what, Presence presence);
  // Takes all that remain.
  void argument(const char* name, std::vector<std::string>& values, const char* what, Presence presence);
  void option(const char* names, std::string& value, const char* type, const char* what,
              Presence presence = Presence::kOptional);
  // An option with one value that can be repeated.
  void list(const char* names, std::vector<std::string>& values, const char* type, const char* what);
  // An option or argument whose value is one of `choices`, in any case.
  void choice(const char* names, std::string& value, std::initializer_list<const char*> choices,
              const char* type, const char* what);
  void number(const char* names, int& value, int min, int max, const char* type, const char* what);
  void number(const char* names, double& value, double min, double max, const char* type, const char* what);
  // A number of bytes above 0, with an optional unit such as MiB.
  void size(const char* names, std::uint64_t& value, const char* what);
  void flag(const char* names, bool& value, const char* what);

  void footer(const std::string& text);
  // Called once the command has been parsed; may throw UsageError.
  void onParsed(std::function<void()> act);

 private:
  CLI::App& app_;
};

class Program {
 public:
  Program(const char* name, const char* what, const char* version, const char* footer);
  ~Program();

  Command add(const char* name, const char* what);
  // What is given before or after a command.
  Command common();

  // Parses the command line and calls the command's onParsed(). Returns the text that --help or --version
  // asks for. Throws UsageError.
  std::optional<std::string> parse(int argumentCount, const char* const* arguments);

  std::string help() const;

 private:
  // The command in use, or else the program.
  const CLI::App& command() const;
  std::string seeHelp() const;
  [[noreturn]] void failOnCommand(const std::string& name) const;
  [[noreturn]] void failOnExtras(const std::string& message, const std::vector<std::string>& extras) const;

  std::unique_ptr<CLI::App> app_;
};

}  // namespace host
