#include "host/report/render.h"

#include <concepts>
#include <kainjow/mustache.hpp>
#include <map>
#include <type_traits>
#include <utility>

#include "host/report/drawing.h"
#include "host/report/page.h"
#include "host/report/problem_list.h"
#include "host/report/report_parts.h"
#include "host/report/server_findings.h"
#include "host/report/server_section.h"

namespace host::page {
namespace {

using kainjow::mustache::data;
using kainjow::mustache::mustache;

// Collects the members that a view passes to it.
class Members {
 public:
  Members& operator()(const char* name, const auto& value) {
    data_.set(name, toData(value));
    return *this;
  }

  template <typename View>
  static data of(const View& view) {
    Members members;
    view.visit(members);
    return std::move(members.data_);
  }

 private:
  static data toData(bool value) { return data(value ? data::type::bool_true : data::type::bool_false); }
  // An empty text is false, so that templates can leave out what surrounds it.
  static data toData(const std::string& text) { return text.empty() ? toData(false) : data(text); }
  static data toData(std::integral auto number) { return data(std::to_string(number)); }
  template <typename Element>
  static data toData(const std::vector<Element>& elements) {
    data list{data::type::list};
    for (const auto& each : elements) list.push_back(toData(each));
    return list;
  }
  template <typename View>
  requires std::is_class_v<View>
  static data toData(const View& view) { return of(view); }

  data data_;
};

// Parses each part once.
template <typename View>
std::string render(const char* part, const View& view) {
  static std::map<const char*, mustache> parsed;
  return parsed.try_emplace(part, part).first->second.render(Members::of(view));
}

}  // namespace

std::string render(const DrawingView& drawing) {
  return render(parts::drawing, drawing);
}
std::string render(const Item& item) {
  return render(parts::item, item);
}
std::string render(const OverviewView& overview) {
  return render(parts::overview, overview);
}
std::string render(const PageEnd& end) {
  return render(parts::page_end, end);
}
std::string render(const PageHead& head) {
  return render(parts::page_start, head);
}
std::string render(const ProblemList& problems) {
  return render(parts::problems, problems);
}
std::string render(const RuleFindings& rule) {
  return render(parts::rule, rule);
}
std::string render(const SectionHead& head) {
  return render(parts::section_start, head);
}
std::string render(const ServerRow& row) {
  return render(parts::server_row, row);
}
std::string render(const TableSection& section) {
  return render(parts::table_section, section);
}
std::string render(const UnevaluatedRules& rules) {
  return render(parts::unevaluated, rules);
}

}  // namespace host::page
