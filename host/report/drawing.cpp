#include "host/report/drawing.h"

#include <fmt/core.h>

#include <algorithm>

#include "host/console/terminal_text.h"

namespace host::page {
namespace {

// In pixels.
constexpr std::size_t kBoxWidth = 420;
constexpr std::size_t kBoxHeight = 22;
constexpr std::size_t kRowHeight = 28;
constexpr std::size_t kGap = 160;
constexpr std::size_t kMaxLabelWidth = 58;  // in columns of text

// Returns the y coordinate of a box. The shorter column is centred beside the longer one.
std::size_t top(std::size_t rows, std::size_t count, std::size_t index) {
  return (rows - count) * kRowHeight / 2 + index * kRowHeight + (kRowHeight - kBoxHeight) / 2;
}

DrawnBox drawnBox(const std::string& name, const std::string& kind, std::size_t x, std::size_t y) {
  const std::string escaped = escapeForTerminal(name);
  return {escaped, cutToWidth(escaped, kMaxLabelWidth), kind, x + 1, y, kBoxWidth - 2, kBoxHeight, x + 9,
          y + 15};
}

}  // namespace

std::size_t Drawing::Column::add(const std::string& name, std::string_view kind) {
  const auto [at, isNew] = indexes.try_emplace(name, indexes.size());
  if (isNew && boxes.size() < kMaxBoxes) boxes.push_back({name, std::string(kind)});
  return at->second;
}

std::size_t Drawing::addLeft(const std::string& name) {
  return left_.add(name, "");
}

std::size_t Drawing::addRight(const std::string& name, std::string_view kind) {
  return right_.add(name, kind);
}

void Drawing::markUnknown(std::size_t left) {
  if (left < kMaxBoxes) hasLines_[left] = true;
}

void Drawing::connect(std::size_t left, std::size_t right, bool isStrong) {
  if (left >= kMaxBoxes) return;
  hasLines_[left] = true;
  if (right >= kMaxBoxes) return;
  bool& known = lines_[{left, right}];
  known = known || isStrong;
}

DrawingView Drawing::view(std::string caption) const {
  const std::size_t lefts = left_.boxes.size();
  const std::size_t rights = right_.boxes.size();
  const std::size_t rows = std::max({lefts, rights, std::size_t{1}});
  DrawingView view{std::move(caption), 2 * kBoxWidth + kGap, rows * kRowHeight, {}, {}, {}};
  for (std::size_t at = 0; at < lefts; ++at) {
    const Box& box = left_.boxes[at];
    view.boxes.push_back(drawnBox(box.name, hasLines_[at] ? box.kind : "idle", 0, top(rows, lefts, at)));
  }
  for (std::size_t at = 0; at < rights; ++at) {
    const Box& box = right_.boxes[at];
    view.boxes.push_back(drawnBox(box.name, box.kind, kBoxWidth + kGap, top(rows, rights, at)));
  }
  for (const auto& [ends, isStrong] : lines_) {
    view.lines.push_back({isStrong ? "write" : "", kBoxWidth - 1,
                          top(rows, lefts, ends.first) + kBoxHeight / 2, kBoxWidth + kGap / 2,
                          kBoxWidth + kGap + 1, top(rows, rights, ends.second) + kBoxHeight / 2});
  }
  const std::size_t missing = left_.indexes.size() - lefts + right_.indexes.size() - rights;
  if (missing > 0) view.more = fmt::format("{} more not shown.", missing);
  return view;
}

}  // namespace host::page
