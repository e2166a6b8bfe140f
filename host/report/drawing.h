// What belongs to what on a server, drawn: boxes on the left, boxes on the right, and lines between them.
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
  // Kinds are the classes of the page's style.
  struct Node {
    std::string name;
    std::string kind;
  };
  // Further nodes are not drawn, only counted.
  static constexpr std::size_t kMostNodes = 150;

  // A box of that name, which is made where it isn't there. Gives its place. One on the left that no line
  // begins at is drawn with a dashed edge.
  std::size_t left(const std::string& name);
  std::size_t right(const std::string& name, std::string_view kind = "");
  // It isn't known which lines begin at it.
  void leaveOpen(std::size_t left);
  void join(std::size_t left, std::size_t right, bool isStrong = false);

  bool empty() const { return left_.nodes.empty(); }

  // As SVG in a figure, in HTML.
  std::string html(const std::string& caption) const;

 private:
  struct Column {
    std::vector<Node> nodes;  // that are drawn
    std::unordered_map<std::string, std::size_t> places;
    std::size_t add(const std::string& name, std::string_view kind);
  };

  Column left_;
  Column right_;
  std::array<bool, kMostNodes> isJoined_{};                    // on the left, or left open
  std::map<std::pair<std::size_t, std::size_t>, bool> lines_;  // between drawn nodes, strong ones
};

}  // namespace host
