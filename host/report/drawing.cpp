#include "host/report/drawing.h"

#include <algorithm>
#include <kainjow/mustache.hpp>

#include "host/console/terminal_text.h"
#include "host/report/report_parts.h"

namespace host {
namespace {

using kainjow::mustache::data;
using kainjow::mustache::mustache;

constexpr std::size_t kBoxWidth = 420;
constexpr std::size_t kBoxHeight = 22;
constexpr std::size_t kRow = 28;
constexpr std::size_t kGap = 160;
constexpr std::size_t kLetters = 58;

std::string number(std::size_t value) {
  return std::to_string(value);
}

}  // namespace

std::size_t Drawing::Column::add(const std::string& name, std::string_view kind) {
  const auto [at, isNew] = places.try_emplace(name, places.size());
  if (isNew && nodes.size() < kMostNodes) nodes.push_back({name, std::string(kind)});
  return at->second;
}

std::size_t Drawing::left(const std::string& name) {
  return left_.add(name, "");
}

std::size_t Drawing::right(const std::string& name, std::string_view kind) {
  return right_.add(name, kind);
}

void Drawing::leaveOpen(std::size_t left) {
  if (left < kMostNodes) isJoined_[left] = true;
}

void Drawing::join(std::size_t left, std::size_t right, bool isStrong) {
  if (left >= kMostNodes) return;
  isJoined_[left] = true;
  if (right >= kMostNodes) return;
  bool& known = lines_[{left, right}];
  known = known || isStrong;
}

std::string Drawing::html(const std::string& caption) const {
  static const std::string kTemplate(parts::drawing);
  const std::size_t lefts = left_.nodes.size();
  const std::size_t rights = right_.nodes.size();
  const std::size_t rows = std::max({lefts, rights, std::size_t{1}});
  // The shorter column stands in the middle of the longer one.
  const auto top = [&](std::size_t count, std::size_t at) {
    return (rows - count) * kRow / 2 + at * kRow + (kRow - kBoxHeight) / 2;
  };
  data page;
  page.set("caption", caption);
  page.set("width", number(2 * kBoxWidth + kGap));
  page.set("height", number(rows * kRow));
  data nodes{data::type::list}, lines{data::type::list};
  const auto draw = [&](const Column& column, std::size_t x) {
    const std::size_t count = column.nodes.size();
    for (std::size_t at = 0; at < count; ++at) {
      const std::string name = escapeForTerminal(column.nodes[at].name);
      data node;
      const bool isIdle = &column == &left_ && !isJoined_[at];
      node.set("kind", isIdle ? "idle" : column.nodes[at].kind);
      node.set("full", name);
      node.set("text", cutToWidth(name, kLetters));
      node.set("x", number(x + 1));
      node.set("y", number(top(count, at)));
      node.set("w", number(kBoxWidth - 2));
      node.set("h", number(kBoxHeight));
      node.set("tx", number(x + 9));
      node.set("ty", number(top(count, at) + 15));
      nodes.push_back(node);
    }
  };
  draw(left_, 0);
  draw(right_, kBoxWidth + kGap);
  for (const auto& [ends, isStrong] : lines_) {
    const std::string from = number(top(lefts, ends.first) + kBoxHeight / 2);
    const std::string to = number(top(rights, ends.second) + kBoxHeight / 2);
    const std::string middle = number(kBoxWidth + kGap / 2);
    data drawn;
    drawn.set("kind", isStrong ? "write" : "");
    drawn.set("d", "M" + number(kBoxWidth - 1) + " " + from + "C" + middle + " " + from + " " + middle + " " +
                       to + " " + number(kBoxWidth + kGap + 1) + " " + to);
    lines.push_back(drawn);
  }
  page.set("nodes", nodes);
  page.set("lines", lines);
  const std::size_t missing = left_.places.size() - lefts + right_.places.size() - rights;
  if (missing > 0) page.set("more", number(missing) + " more are not drawn.");
  return mustache(kTemplate).render(page);
}

}  // namespace host
