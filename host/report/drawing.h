// A relation as a picture: boxes on the left, boxes on the right, and lines between them.
#pragma once

#include <array>
#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace host::page {

// In pixels, with the position of the text in the box.
struct DrawnBox {
  std::string name, text, kind;
  std::size_t x = 0, y = 0, width = 0, height = 0, textX = 0, textY = 0;

  void visit(auto& add) const {
    add("full", name)("text", text)("kind", kind)("x", x)("y", y)("w", width)("h", height)("tx", textX)(
        "ty", textY);
  }
};

// A curve whose control points are in the middle.
struct DrawnLine {
  std::string kind;
  std::size_t fromX = 0, fromY = 0, middleX = 0, toX = 0, toY = 0;

  void visit(auto& add) const {
    add("kind", kind)("x1", fromX)("y1", fromY)("xm", middleX)("x2", toX)("y2", toY);
  }
};

struct DrawingView {
  std::string caption;
  std::size_t width = 0, height = 0;
  std::vector<DrawnBox> boxes;
  std::vector<DrawnLine> lines;
  std::string more;  // what is not drawn

  void visit(auto& add) const {
    add("caption", caption)("width", width)("height", height)("nodes", boxes)("lines", lines)("more", more);
  }
};

class Drawing {
 public:
  // Further boxes of a column are counted, not drawn.
  static constexpr std::size_t kMaxBoxes = 150;

  // Adds a box of that name unless it exists. Returns its index. A box on the left without a line is of the
  // kind "idle".
  std::size_t addLeft(const std::string& name);
  std::size_t addRight(const std::string& name, std::string_view kind = "");
  // Marks a box on the left whose lines are not known: it is not "idle".
  void markUnknown(std::size_t left);
  // Adds a line. A repeated line is strong, and of the kind "write", if one of them is.
  void connect(std::size_t left, std::size_t right, bool isStrong = false);

  bool empty() const { return left_.boxes.empty(); }

  DrawingView view(std::string caption) const;

 private:
  struct Box {
    std::string name;
    std::string kind;
  };
  struct Column {
    std::vector<Box> boxes;                                // at most kMaxBoxes
    std::unordered_map<std::string, std::size_t> indexes;  // of all boxes, by name
    std::size_t add(const std::string& name, std::string_view kind);
  };

  Column left_;
  Column right_;
  std::array<bool, kMaxBoxes> hasLines_{};                     // of the left boxes, or unknown
  std::map<std::pair<std::size_t, std::size_t>, bool> lines_;  // between drawn boxes: whether strong
};

}  // namespace host::page
