#include "host/report/html.h"

#include <map>
#include <memory>

#include "host/console/terminal_text.h"

namespace host {

using kainjow::mustache::data;
using kainjow::mustache::mustache;

std::string render(const char* part, const data& values) {
  static std::map<const char*, std::unique_ptr<mustache>> parsed;
  std::unique_ptr<mustache>& known = parsed[part];
  if (known == nullptr) known = std::make_unique<mustache>(std::string(part));
  return known->render(values);
}

data toFlag(bool value) {
  return data(value ? data::type::bool_true : data::type::bool_false);
}

std::string cellText(const inventory::DataRow& row, std::size_t column) {
  if (row.isUnknown(column)) return "not known";
  const inventory::Cell cell = row.cell(column);
  return cell ? escapeForTerminal(*cell) : "-";
}

}  // namespace host
