#include "host/console/workbook.h"

#include <archive.h>
#include <archive_entry.h>
#include <fmt/core.h>
#include <xlsxwriter.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <fstream>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>

#include "automation/text.h"
#include "host/console/terminal_text.h"
#include "inventory/names.h"
#include "os/private_folder.h"

namespace host {
namespace {

using inventory::Type;

// Limits of Excel; lengths are in UTF-16 units.
constexpr lxw_row_t kMaxRows = 1048576;
constexpr std::size_t kMaxText = 32767;
constexpr std::size_t kMaxName = 31;
constexpr double kMaxExact = 1e15;  // beyond, digits would be lost

constexpr std::size_t kLeastWidth = 8, kMostWidth = 60;  // of a column, in characters

[[noreturn]] void fail(const std::string& why) {
  throw std::runtime_error("cannot write the workbook: " + why);
}

// Replaces what XML cannot contain. Excel reads "_x0041_" as the escape of a character.
std::string textOf(std::string_view value) {
  std::u16string text = automation::fromUtf8(value);
  if (text.size() > kMaxText)
    fail(fmt::format("a text has {} characters, and a cell at most {}", text.size(), kMaxText));
  std::u16string escaped;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const auto isHex = [](char16_t c) {
      return (c >= u'0' && c <= u'9') || (c >= u'A' && c <= u'F') || (c >= u'a' && c <= u'f');
    };
    const std::u16string_view next = std::u16string_view(text).substr(at, 7);
    if (next.size() == 7 && next.starts_with(u"_x") && next[6] == u'_' &&
        std::ranges::all_of(next.substr(2, 4), isHex)) {
      escaped += u"_x005F";
    }
    if (text[at] == u'\0') {
      escaped += u"_x0000_";
    } else {
      escaped += text[at] >= u'\uFFFE' ? u'\uFFFD' : text[at];
    }
  }
  return automation::toUtf8(escaped);
}

template <typename Number>
std::optional<Number> parse(std::string_view text) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

std::optional<double> parseNumber(std::string_view text, Type type) {
  if (type == Type::kReal) {
    const auto number = parse<double>(text);
    return number && std::isfinite(*number) ? number : std::nullopt;
  }
  const auto number = parse<std::int64_t>(text);
  if (!number || std::to_string(*number) != text) return std::nullopt;
  const auto real = static_cast<double>(*number);
  return std::abs(real) < kMaxExact ? std::optional(real) : std::nullopt;
}

// Parses a time in UTC as both kinds of databases write it.
std::optional<lxw_datetime> parseTime(std::string_view text) {
  if (text.size() < 19 || text[4] != '-' || text[7] != '-' || text[13] != ':' || text[16] != ':') return {};
  const std::size_t end = std::min(text.find_first_of("Z+", 19), text.size());
  std::array<int, 5> parts{};
  constexpr std::array<std::size_t, 5> kStarts = {0, 5, 8, 11, 14};
  for (std::size_t at = 0; at < parts.size(); ++at) {
    const auto part = parse<int>(text.substr(kStarts[at], at == 0 ? 4 : 2));
    if (!part) return {};
    parts[at] = *part;
  }
  const auto seconds = parse<double>(text.substr(17, end - 17));
  // Excel's calendar begins in 1900.
  if (!seconds || parts[0] < 1900) return {};
  return lxw_datetime{parts[0], parts[1], parts[2], parts[3], parts[4], *seconds};
}

struct WorkbookDeleter {
  void operator()(lxw_workbook* workbook) const noexcept { lxw_workbook_free(workbook); }
};

class SheetWriter {
 public:
  SheetWriter(lxw_worksheet* sheet, const Listing& listing, lxw_format* heading, lxw_format* time)
      : sheet_(sheet), listing_(listing), time_(time), widths_(listing.columns.size(), kLeastWidth) {
    if (sheet_ == nullptr) fail("out of memory");
    for (std::size_t at = 0; at < widths_.size(); ++at) {
      writeText(at, listing.columns[at].name, heading);
      widths_[at] += 3;  // the filter's button
    }
  }

  void write() {
    listing_.forEachRow([&](const Row& row) {
      if (++row_ == kMaxRows) fail(fmt::format("a sheet has at most {} rows", kMaxRows));
      for (std::size_t at = 0; at < row.size(); ++at) {
        if (row[at]) writeCell(at, *row[at]);
      }
    });
    const auto last = static_cast<lxw_col_t>(widths_.size() - 1);
    worksheet_freeze_panes(sheet_, 1, 0);
    worksheet_autofilter(sheet_, 0, 0, row_, last);
    for (std::size_t at = 0; at < widths_.size(); ++at) {
      const auto column = static_cast<lxw_col_t>(at);
      worksheet_set_column(sheet_, column, column, static_cast<double>(widths_[at]) + 1, nullptr);
    }
    // The library does not check these writes.
    if (std::fflush(sheet_->optimize_tmpfile) != 0 || std::ferror(sheet_->optimize_tmpfile) != 0)
      fail("a temporary file cannot be written");
  }

 private:
  void writeCell(std::size_t at, const std::string& text) {
    const auto column = static_cast<lxw_col_t>(at);
    const Type type = listing_.columns[at].cellType;
    if (type == Type::kInteger || type == Type::kReal) {
      if (const auto number = parseNumber(text, type)) {
        widen(at, text);
        return check(worksheet_write_number(sheet_, row_, column, *number, nullptr));
      }
    } else if (type == Type::kBoolean && (text == "true" || text == "false")) {
      return check(worksheet_write_boolean(sheet_, row_, column, text == "true" ? 1 : 0, nullptr));
    } else if (type == Type::kTime) {
      if (auto time = parseTime(text)) {
        widen(at, "2026-01-31 12:00:00");
        return check(worksheet_write_datetime(sheet_, row_, column, &*time, time_));
      }
    }
    writeText(at, text, nullptr);
  }

  void writeText(std::size_t at, const std::string& text, lxw_format* format) {
    widen(at, text);
    check(worksheet_write_string(sheet_, row_, static_cast<lxw_col_t>(at), textOf(text).c_str(), format));
  }

  void widen(std::size_t at, const std::string& text) {
    if (text.size() > widths_[at] && widths_[at] < kMostWidth)
      widths_[at] = std::min(kMostWidth, std::max(widths_[at], displayWidth(escapeForTerminal(text))));
  }

  static void check(lxw_error error) {
    if (error != LXW_NO_ERROR) fail(lxw_strerror(error));
  }

  lxw_worksheet* const sheet_;
  const Listing& listing_;
  lxw_format* const time_;
  lxw_row_t row_ = 0;
  std::vector<std::size_t> widths_;
};

// The library does not check all of its writes to temporary files. Throws unless each sheet is complete.
void checkSheets(const std::filesystem::path& file, std::size_t count) {
  constexpr std::string_view kEnd = "</worksheet>";
  const std::unique_ptr<archive, int (*)(archive*)> reader(archive_read_new(), archive_read_free);
  archive_read_support_format_zip(reader.get());
  bool isRead = archive_read_open_filename(reader.get(), file.c_str(), 64 * 1024) == ARCHIVE_OK;
  std::size_t complete = 0;
  archive_entry* entry = nullptr;
  while (isRead && archive_read_next_header(reader.get(), &entry) == ARCHIVE_OK) {
    std::string end;
    std::array<char, 64 * 1024> buffer{};
    la_ssize_t size = 0;
    while ((size = archive_read_data(reader.get(), buffer.data(), buffer.size())) > 0) {
      end.append(buffer.data(), static_cast<std::size_t>(size));
      end.erase(0, end.size() - std::min(end.size(), kEnd.size()));
    }
    isRead = size == 0;
    if (isRead && end == kEnd) ++complete;
  }
  if (!isRead || complete != count) fail("a temporary file cannot be written");
}

}  // namespace

std::vector<std::string> sheetNames(std::span<const Sheet> sheets) {
  std::vector<std::string> names;
  std::set<std::string> taken = {"history"};  // reserved by Excel
  for (const Sheet& sheet : sheets) {
    std::u16string base = automation::fromUtf8(sheet.name);
    for (char16_t& c : base) {
      if (c < u' ' || std::u16string_view(u"[]:*?/\\'").find(c) != std::u16string_view::npos) c = u'_';
    }
    std::string name;
    for (int number = 1; name.empty() || !taken.insert(inventory::folded(name)).second; ++number) {
      const std::u16string end = number == 1 ? u"" : automation::fromUtf8(fmt::format(" {}", number));
      name = automation::toUtf8(base.substr(0, kMaxName - end.size()) + end);
      if (base.empty()) name = fmt::format("Sheet{}", number);
    }
    names.push_back(name);
  }
  return names;
}

void writeWorkbook(std::span<const Sheet> sheets, Output& output) {
  if (sheets.empty()) fail("there is nothing to write");
  const os::PrivateFolder folder;
  const std::filesystem::path file = folder.path() / "workbook.xlsx";
  std::string temporary = folder.path().string();
  lxw_workbook_options options{};
  options.constant_memory = LXW_TRUE;
  options.tmpdir = temporary.data();
  options.use_zip64 = LXW_TRUE;
  std::unique_ptr<lxw_workbook, WorkbookDeleter> workbook(workbook_new_opt(file.c_str(), &options));
  if (workbook == nullptr) fail("out of memory");
  lxw_format* const heading = workbook_add_format(workbook.get());
  format_set_bold(heading);
  lxw_format* const time = workbook_add_format(workbook.get());
  format_set_num_format(time, "yyyy-mm-dd hh:mm:ss");
  const std::vector<std::string> names = sheetNames(sheets);
  for (std::size_t at = 0; at < sheets.size(); ++at) {
    try {
      lxw_worksheet* const sheet = workbook_add_worksheet(workbook.get(), names[at].c_str());
      SheetWriter(sheet, sheets[at].listing, heading, time).write();
    } catch (const std::runtime_error& error) {
      throw std::runtime_error(fmt::format("{} (in {})", error.what(), sheets[at].name));
    }
  }
  // Also frees it.
  if (const lxw_error error = workbook_close(workbook.release()); error != LXW_NO_ERROR)
    fail(lxw_strerror(error));
  checkSheets(file, sheets.size());
  std::ifstream stream(file, std::ios::binary);
  std::array<char, 64 * 1024> buffer{};
  while (stream.read(buffer.data(), buffer.size()) || stream.gcount() > 0)
    output.write({buffer.data(), static_cast<std::size_t>(stream.gcount())});
  if (stream.bad()) fail("a temporary file cannot be read");
}

}  // namespace host
