#include "host/collect/record_parser.h"

#include <charconv>

namespace host {
namespace {

constexpr std::string_view kTime = "00/00/0000 00:00:00\t";
constexpr std::size_t kNumberWidth = 10;

// A record begins with its time. A message may contain line breaks, so a line need not be a record.
bool beginsRecord(std::string_view text) {
  if (text.size() < kTime.size()) return false;
  for (std::size_t at = 0; at < kTime.size(); ++at) {
    const bool fits = kTime[at] == '0' ? text[at] >= '0' && text[at] <= '9' : text[at] == kTime[at];
    if (!fits) return false;
  }
  return true;
}

std::string trimmed(std::string_view text) {
  const std::size_t end = text.find_last_not_of(' ');
  return std::string(text.substr(0, end == text.npos ? 0 : end + 1));
}

// The position of the number: ten characters between two TABs. The field before it may contain TABs.
std::size_t findNumber(std::string_view text) {
  for (std::size_t tab = text.find('\t'); tab != text.npos; tab = text.find('\t', tab + 1)) {
    if (tab + 1 + kNumberWidth >= text.size() || text[tab + 1 + kNumberWidth] != '\t') continue;
    const std::string_view field = text.substr(tab + 1, kNumberWidth);
    const std::size_t digits = field.find_first_not_of(' ');
    if (digits != field.npos && field.find_first_not_of("0123456789ABCDEF", digits) == field.npos)
      return tab + 1;
  }
  return text.npos;
}

Record parseRecord(std::string_view line) {
  Record record;
  line.remove_prefix(kTime.size());
  if (line.ends_with("\r\n")) line.remove_suffix(2);
  const std::size_t objectEnd = line.find('\t');
  if (objectEnd == line.npos) {
    record.message = line;
    return record;
  }
  record.object = trimmed(line.substr(0, objectEnd));
  line.remove_prefix(objectEnd + 1);
  const std::size_t number = findNumber(line);
  if (number == line.npos) {
    record.message = line;
    return record;
  }
  const std::string_view routine = line.substr(0, number - 1);
  record.routine = trimmed(routine.substr(0, routine.find('(')));
  const std::string_view field = line.substr(number, kNumberWidth);
  std::uint32_t value = 0;
  std::from_chars(field.data() + field.find_first_not_of(' '), field.data() + field.size(), value, 16);
  record.number = static_cast<std::int32_t>(value);
  record.message = line.substr(number + kNumberWidth + 1);
  return record;
}

}  // namespace

std::vector<Record> parseRecords(std::string_view text) {
  std::vector<Record> records;
  std::size_t begin = 0;
  while (begin < text.size()) {
    std::size_t end = begin;
    do {
      const std::size_t lineFeed = text.find('\n', end);
      end = lineFeed == text.npos ? text.size() : lineFeed + 1;
    } while (end < text.size() && !beginsRecord(text.substr(end)));
    if (beginsRecord(text.substr(begin))) records.push_back(parseRecord(text.substr(begin, end - begin)));
    begin = end;
  }
  return records;
}

}  // namespace host
