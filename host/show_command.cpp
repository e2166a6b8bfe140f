#include "host/commands.h"

#include <CLI/CLI.hpp>

#include "host/show.h"

namespace host {
namespace {

constexpr const char* kShowFooter =
    "Examples:\n"
    "  iisinventory show --database inventory.db\n"
    "  iisinventory show tblHealth --database inventory.db\n"
    "  iisinventory show tblvirtualDirectory --database inventory.db --format json";

struct Raw {
  RawDatabase database;
  std::string table;
  std::string format;
};

}  // namespace

void addShow(CLI::App& program, Work& work) {
  const auto raw = std::make_shared<Raw>();
  CLI::App& command = *program.add_subcommand("show", "Show what a database holds");
  command.add_option("TABLE", raw->table, "Table to show; without it, a list of them")->type_name("");
  addDatabase(command, raw->database);
  addFormat(command, raw->format);
  command.footer(kShowFooter);
  command.callback([raw, &work] {
    const ShowOptions options{raw->table, raw->database.name(), raw->database.access(),
                              formatOf(raw->format)};
    work = [options](Output& output) {
      show(options, output);
      return 0;
    };
  });
}

}  // namespace host
