// Renders the parts of the report from their templates, which escape all values.
#pragma once

#include <string>

namespace host::page {

struct DrawingView;
struct Item;
struct OverviewView;
struct PageEnd;
struct PageHead;
struct ProblemList;
struct RuleFindings;
struct SectionHead;
struct ServerRow;
struct TableSection;
struct UnevaluatedRules;

std::string render(const DrawingView& drawing);
std::string render(const Item& item);
std::string render(const OverviewView& overview);
std::string render(const PageEnd& end);
std::string render(const PageHead& head);
std::string render(const ProblemList& problems);
std::string render(const RuleFindings& rule);
std::string render(const SectionHead& head);
std::string render(const ServerRow& row);
std::string render(const TableSection& section);
std::string render(const UnevaluatedRules& rules);

}  // namespace host::page
