#include "host/collect/problem_groups.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "host/collect/record_context.h"
#include "host/console/terminal_text.h"
#include "host/console/text.h"

namespace host {
namespace {

constexpr std::size_t kMostGroups = 20;
constexpr std::string_view kIndent = "      ";

std::string numberText(const inventory::Problem& problem) {
  if (!problem.number) return {};
  char text[16];
  std::snprintf(text, sizeof text, "0x%X", static_cast<unsigned>(*problem.number));
  return text;
}

std::string placeOf(const std::string& server, const inventory::Problem& problem) {
  if (!problem.node.empty()) return problem.node;
  if (problem.item.empty()) return server;
  return server + (problem.itemKind == inventory::ObjectKind::kPool ? ", pool " : ", FTP site ") +
         problem.item;
}

void printWrapped(Output& output, const std::string& text, std::size_t width) {
  const std::size_t room = width > 2 * kIndent.size() ? width - kIndent.size() : width;
  for (const std::string& line : wrapToWidth(escapeForTerminal(text), room)) {
    output.write(std::string(kIndent) + line + "\n");
  }
}

}  // namespace

void ProblemGroups::add(const std::string& server, const inventory::Problem& problem) {
  ++(problem.isNote ? notes_ : problems_);
  if (!problem.isNote) ++byServer_[server];
  std::string reason = parseMessageLocation(problem.message).reason;
  // Parse warnings of one kind differ in their line.
  if (const std::size_t line = reason.rfind(" (line "); line != reason.npos && reason.ends_with(')')) {
    reason.erase(line);
  }
  Group& group = groups_[Key(problem.isNote, problem.routine, numberText(problem), std::move(reason))];
  if (group.count++ > 0) return;
  group.first = placeOf(server, problem);
  group.order = groups_.size();
}

void ProblemGroups::print(Output& output, std::size_t width) const {
  for (const bool notes : {false, true}) {
    const std::int64_t count = notes ? notes_ : problems_;
    if (count == 0) continue;
    output.write((notes ? pluralize(count, "note", "notes") : countedProblems(count)) + ":\n");
    std::vector<const decltype(groups_)::value_type*> groups;
    for (const auto& group : groups_) {
      if (std::get<0>(group.first) == notes) groups.push_back(&group);
    }
    std::sort(groups.begin(), groups.end(), [](const auto* left, const auto* right) {
      return std::tuple(-left->second.count, left->second.order) <
             std::tuple(-right->second.count, right->second.order);
    });
    for (std::size_t at = 0; at < std::min(groups.size(), kMostGroups); ++at) {
      const auto& [key, group] = *groups[at];
      const auto& [note, routine, number, message] = key;
      std::string head = "  " + std::to_string(group.count) + " x";
      head += " " + (routine.empty() ? std::string("iisinventory") : routine);
      if (!number.empty()) head += ", " + number;
      output.write(escapeForTerminal(head) + "\n");
      printWrapped(output, message.empty() ? "(no message)" : message, width);
      printWrapped(output, (group.count > 1 ? "first at " : "at ") + group.first, width);
    }
    if (groups.size() > kMostGroups) {
      output.write("  and " + std::to_string(groups.size() - kMostGroups) + " more kinds\n");
    }
  }
}

}  // namespace host
