// Draws a relation as SVG: boxes on the left, boxes on the right, and lines between them.
#pragma once

#include <array>
#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace host {

class Drawing {
 public:
  // `kind`: a class of the page's style sheet.
  struct Node {
    std::string name;
    std::string kind;
  };
  // Further nodes of a column are counted, not drawn.
  static constexpr std::size_t kMaxNodes = 150;

  // Adds a box of that name unless it exists. Returns its index. A box on the left without a line has a
  // dashed edge.
  std::size_t addLeft(const std::string& name);
  std::size_t addRight(const std::string& name, std::string_view kind = "");
  // Marks a box on the left whose lines are not known: its edge is not dashed.
  void markUnknown(std::size_t left);
  // Adds a line. A repeated line is strong if one of them is.
  void connect(std::size_t left, std::size_t right, bool isStrong = false);

  bool empty() const { return left_.nodes.empty(); }

  // Returns an HTML figure with the SVG.
  std::string render(const std::string& caption) const;

 private:
  struct Column {
    std::vector<Node> nodes;                               // at most kMaxNodes
    std::unordered_map<std::string, std::size_t> indexes;  // of all nodes, by name
    std::size_t add(const std::string& name, std::string_view kind);
  };

  Column left_;
  Column right_;
  std::array<bool, kMaxNodes> hasLines_{};                     // of the left nodes, or unknown
  std::map<std::pair<std::size_t, std::size_t>, bool> lines_;  // between drawn nodes: whether strong
};

}  // namespace host
