#include "host/sources/server_name.h"

#include "automation/text.h"

namespace host {

std::optional<std::string> serverNameError(const std::string& name) {
  if (name.empty()) return "it is empty";
  if (automation::toUtf8(automation::fromUtf8(name)) != name) return "it is not UTF-8";
  if (name.front() == ' ' || name.back() == ' ') return "it begins or ends with a blank";
  for (const char c : name) {
    if (c == '/' || c == '\\') return "it contains a slash";
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) return "it contains a control character";
  }
  return std::nullopt;
}

}  // namespace host
