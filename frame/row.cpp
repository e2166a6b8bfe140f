#include "frame/row.h"

#include <algorithm>

#include "frame/guards.h"

namespace TORVINFTPAppDataCom {
namespace {

// Above this a buffer isn't kept: a row with a text of megabytes is no reason to hold on to them.
constexpr std::size_t kKeptUnits = 4096;

// The Variants that a column's name and its text are handed over in. They stay with the thread, so that a row
// needs no memory of its own for each of its columns.
struct Buffers {
  Variant vColumn;
  Variant vText;
  bool bLent = false;
};

// Lends the thread's buffers for one write. Inside another write, which a host's recordset may well cause, it
// has some of its own.
class LentBuffers {
 public:
  LentBuffers() {
    thread_local Buffers kept;
    if (!kept.bLent) lent_ = &kept;
    lent_->bLent = true;
  }
  ~LentBuffers() { lent_->bLent = false; }
  LentBuffers(const LentBuffers&) = delete;
  LentBuffers& operator=(const LentBuffers&) = delete;

  Variant& column(TextView strColumn) { return filled(lent_->vColumn, strColumn); }
  const Variant& text(TextView strText) { return filled(lent_->vText, strText); }

 private:
  static Variant& filled(Variant& buffer, TextView strText) {
    Text* const strKept = buffer.as<Text>();
    if (strKept != nullptr && strKept->capacity() <= kKeptUnits) {
      strKept->assign(strText);
    } else {
      buffer = strText;
    }
    return buffer;
  }

  Buffers own_;
  Buffers* lent_ = &own_;
};

void WriteField(const ObjectRef& objRs, Variant& vColumn, const Variant& value) {
  automation::writeWith(objRs, u"Collect", {&vColumn, 1}, value);
}

}  // namespace

Variant Trim(Variant value) {
  if (value.isNull()) return value;
  const Text* strText = value.as<Text>();
  if (strText == nullptr) return toText(value);
  const TextView strTrimmed = trimBlanks(*strText);
  return strTrimmed.size() == strText->size() ? std::move(value) : Variant(strTrimmed);
}

TextView PieceOf(TextView strText, char16_t chrDelimiter, std::size_t intIndex) {
  if (strText.empty()) automation::failSubscript();
  for (;;) {
    const std::size_t lngEnd = strText.find(chrDelimiter);
    if (intIndex == 0) return strText.substr(0, lngEnd);
    if (lngEnd == TextView::npos) automation::failSubscript();
    strText.remove_prefix(lngEnd + 1);
    --intIndex;
  }
}

std::size_t CountPieces(TextView strText, char16_t chrDelimiter) {
  if (strText.empty()) return 0;
  return 1 + static_cast<std::size_t>(std::count(strText.begin(), strText.end(), chrDelimiter));
}

void WriteColumn(const ObjectRef& objRs, TextView strColumn, const Variant& value) {
  LentBuffers buffers;
  WriteField(objRs, buffers.column(strColumn), value);
}

void WriteText(const ObjectRef& objRs, TextView strColumn, TextView strText) {
  LentBuffers buffers;
  WriteField(objRs, buffers.column(strColumn), buffers.text(trimBlanks(strText)));
}

void WriteNumber(const ObjectRef& objRs, TextView strColumn, std::int32_t lngNumber) {
  WriteText(objRs, strColumn, decimalText(lngNumber));
}

void WriteIdentity(const Guard& guard, const ObjectRef& objRs, const RowIdentity& identity) {
  for (const auto& [strColumn, strText] : identity) {
    guard.step([&] { WriteText(objRs, strColumn, strText); });
  }
}

}  // namespace TORVINFTPAppDataCom
