#include "host/report/drawing.h"

#include <algorithm>
#include <kainjow/mustache.hpp>

#include "host/console/terminal_text.h"
#include "host/report/html.h"
#include "host/report/report_parts.h"

namespace host {
namespace {

using kainjow::mustache::data;

// In pixels.
constexpr std::size_t kBoxWidth = 420;
constexpr std::size_t kBoxHeight = 22;
constexpr std::size_t kRowHeight = 28;
constexpr std::size_t kGap = 160;
constexpr std::size_t kMaxLabelWidth = 58;  // in columns of text

std::string number(std::size_t value) {
  return std::to_string(value);
}

// Returns the y coordinate of a box. The shorter column is centred beside the longer one.
std::size_t top(std::size_t rows, std::size_t count, std::size_t index) {
  return (rows - count) * kRowHeight / 2 + index * kRowHeight + (kRowHeight - kBoxHeight) / 2;
}

data nodeData(const Drawing::Node& node, std::size_t x, std::size_t y) {
  const std::string name = escapeForTerminal(node.name);
  data box;
  box.set("kind", node.kind);
  box.set("full", name);
  box.set("text", cutToWidth(name, kMaxLabelWidth));
  box.set("x", number(x + 1));
  box.set("y", number(y));
  box.set("w", number(kBoxWidth - 2));
  box.set("h", number(kBoxHeight));
  box.set("tx", number(x + 9));
  box.set("ty", number(y + 15));
  return box;
}

// A curve between two boxes, given by their y coordinates.
data lineData(std::size_t leftTop, std::size_t rightTop, bool isStrong) {
  const std::string from = number(leftTop + kBoxHeight / 2);
  const std::string to = number(rightTop + kBoxHeight / 2);
  const std::string middle = number(kBoxWidth + kGap / 2);
  data line;
  line.set("kind", isStrong ? "write" : "");
  line.set("d", "M" + number(kBoxWidth - 1) + " " + from + "C" + middle + " " + from + " " + middle + " " +
                    to + " " + number(kBoxWidth + kGap + 1) + " " + to);
  return line;
}

}  // namespace

std::size_t Drawing::Column::add(const std::string& name, std::string_view kind) {
  const auto [at, isNew] = indexes.try_emplace(name, indexes.size());
  if (isNew && nodes.size() < kMaxNodes) nodes.push_back({name, std::string(kind)});
  return at->second;
}

std::size_t Drawing::addLeft(const std::string& name) {
  return left_.add(name, "");
}

std::size_t Drawing::addRight(const std::string& name, std::string_view kind) {
  return right_.add(name, kind);
}

void Drawing::markUnknown(std::size_t left) {
  if (left < kMaxNodes) hasLines_[left] = true;
}

void Drawing::connect(std::size_t left, std::size_t right, bool isStrong) {
  if (left >= kMaxNodes) return;
  hasLines_[left] = true;
  if (right >= kMaxNodes) return;
  bool& known = lines_[{left, right}];
  known = known || isStrong;
}

std::string Drawing::render(const std::string& caption) const {
  const std::size_t lefts = left_.nodes.size();
  const std::size_t rights = right_.nodes.size();
  const std::size_t rows = std::max({lefts, rights, std::size_t{1}});
  data nodes{data::type::list}, lines{data::type::list};
  for (std::size_t at = 0; at < lefts; ++at) {
    Node node = left_.nodes[at];
    if (!hasLines_[at]) node.kind = "idle";
    nodes.push_back(nodeData(node, 0, top(rows, lefts, at)));
  }
  for (std::size_t at = 0; at < rights; ++at)
    nodes.push_back(nodeData(right_.nodes[at], kBoxWidth + kGap, top(rows, rights, at)));
  for (const auto& [ends, isStrong] : lines_)
    lines.push_back(lineData(top(rows, lefts, ends.first), top(rows, rights, ends.second), isStrong));
  data page;
  page.set("caption", caption);
  page.set("width", number(2 * kBoxWidth + kGap));
  page.set("height", number(rows * kRowHeight));
  page.set("nodes", nodes);
  page.set("lines", lines);
  const std::size_t missing = left_.indexes.size() - lefts + right_.indexes.size() - rights;
  if (missing > 0) page.set("more", number(missing) + " more not shown.");
  return host::render(parts::drawing, page);
}

}  // namespace host
