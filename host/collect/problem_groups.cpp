#include "host/collect/problem_groups.h"

#include <algorithm>
#include <utility>

#include <fmt/core.h>

#include "automation/failure.h"
#include "host/collect/record_context.h"
#include "host/console/color.h"
#include "host/console/terminal_text.h"
#include "host/console/text.h"
#include "os/terminal.h"

namespace host {
namespace {

constexpr std::size_t kMostGroups = 20;
constexpr std::size_t kMostPlacesPrinted = 3;
constexpr std::string_view kIndent = "      ";

std::string numberText(const inventory::Problem& problem) {
  return problem.number ? fmt::format("0x{:X}", static_cast<unsigned>(*problem.number)) : std::string();
}

std::string placeOf(const std::string& server, const inventory::Problem& problem) {
  if (!problem.node.empty()) return problem.node;
  if (problem.item.empty()) return server;
  return fmt::format("{}, {} {}", server,
                     problem.itemKind == inventory::ObjectKind::kPool ? "pool" : "FTP site", problem.item);
}

void addDistinct(std::vector<std::string>& texts, const std::string& text, std::size_t most) {
  if (texts.size() < most && std::ranges::find(texts, text) == texts.end()) texts.push_back(text);
}

void printWrapped(Output& output, const std::string& text, std::size_t width) {
  const std::size_t room = width > 2 * kIndent.size() ? width - kIndent.size() : width;
  for (const std::string& line : wrapToWidth(escapeForTerminal(text), room)) {
    output.write(std::string(kIndent) + line + "\n");
  }
}

void printGroup(Output& output, const ProblemGroup& group, std::size_t width) {
  std::string head = fmt::format("  {} x {}", group.count,
                                 group.routines.front().empty() ? "iisinventory" : group.routines.front());
  if (group.routines.size() > 1) head += fmt::format(" and {} more", group.routines.size() - 1);
  if (!group.number.empty()) head += ", " + group.number;
  for (const std::string& line : wrapToWidth(escapeForTerminal(head), width)) output.write(line + "\n");
  printWrapped(output, group.message.empty() ? "(no message)" : group.message, width);
  const std::size_t shown = std::min(group.places.size(), kMostPlacesPrinted);
  for (std::size_t at = 0; at < shown; ++at) printWrapped(output, "at " + group.places[at], width);
  if (group.places.size() > shown) {
    const bool areMore = group.places.size() == ProblemGroup::kMostPlaces;
    printWrapped(output,
                 areMore ? "and more places" : fmt::format("and {} more places", group.places.size() - shown),
                 width);
  }
}

}  // namespace

void ProblemGroups::add(const std::string& server, const inventory::Problem& problem) {
  ++(problem.isNote ? notes_ : problems_);
  if (!problem.isNote) ++byServer_[server];
  ProblemGroup group;
  group.count = 1;
  group.isNote = problem.isNote;
  group.number = numberText(problem);
  group.message = parseMessageLocation(problem.message).reason;
  std::string place = placeOf(server, problem);
  // Parse warnings of one kind differ in their line.
  if (const std::size_t line = group.message.rfind(" (line ");
      line != std::string::npos && group.message.ends_with(')')) {
    place += group.message.substr(line);
    group.message.erase(line);
  }
  group.places.push_back(place);
  group.routines.push_back(problem.routine);
  const bool isEffect = problem.number == automation::number::kObjectNotSet && !problem.property.empty() &&
                        problem.node == causeNode_ && problem.routine == causeRoutine_;
  if (isEffect) {
    std::tie(group.isNote, group.number, group.message) = cause_;
  } else {
    cause_ = {group.isNote, group.number, group.message};
    causeNode_ = problem.node;
    causeRoutine_ = problem.routine;
  }
  merge(std::move(group));
}

void ProblemGroups::add(const std::string& server, const ProblemGroups& groups) {
  problems_ += groups.problems_;
  notes_ += groups.notes_;
  if (groups.problems_ > 0) byServer_[server] += groups.problems_;
  std::vector<ProblemGroup> all;
  for (const auto& [key, group] : groups.groups_) all.push_back(group);
  std::ranges::sort(all, {}, &ProblemGroup::order);
  for (ProblemGroup& group : all) merge(std::move(group));
}

ProblemGroup& ProblemGroups::merge(ProblemGroup group) {
  const auto [found, isNew] = groups_.try_emplace({group.isNote, group.number, group.message});
  ProblemGroup& whole = found->second;
  if (isNew) {
    group.order = groups_.size();
    return whole = std::move(group);
  }
  whole.count += group.count;
  for (const std::string& place : group.places) addDistinct(whole.places, place, ProblemGroup::kMostPlaces);
  for (const std::string& routine : group.routines) addDistinct(whole.routines, routine, std::string::npos);
  return whole;
}

std::vector<ProblemGroup> ProblemGroups::sorted(bool notes) const {
  std::vector<ProblemGroup> groups;
  for (const auto& [key, group] : groups_) {
    if (group.isNote == notes) groups.push_back(group);
  }
  std::ranges::sort(groups, [](const ProblemGroup& left, const ProblemGroup& right) {
    return std::tuple(-left.count, left.order) < std::tuple(-right.count, right.order);
  });
  return groups;
}

std::string ProblemGroups::counted() const {
  if (problems_ == 0) return {};
  const auto causes = std::ranges::count_if(groups_, [](const auto& entry) { return !entry.second.isNote; });
  const std::string text = pluralize(causes, "problem", "problems");
  return causes == problems_ ? text : fmt::format("{} in {} places", text, problems_);
}

void ProblemGroups::print(Output& output, std::size_t width) const {
  for (const bool notes : {false, true}) {
    if ((notes ? notes_ : problems_) == 0) continue;
    output.write((notes ? pluralize(notes_, "note", "notes")
                        : colored(counted(), Ink::kProblem, os::kStandardOutput)) +
                 ":\n");
    const std::vector<ProblemGroup> groups = sorted(notes);
    for (std::size_t at = 0; at < std::min(groups.size(), kMostGroups); ++at)
      printGroup(output, groups[at], width);
    if (groups.size() > kMostGroups)
      output.write(fmt::format("  and {} more kinds\n", groups.size() - kMostGroups));
  }
}

}  // namespace host
