#include "frame/row.h"

#include <algorithm>
#include <new>

#include "frame/guards.h"

namespace TORVINFTPAppDataCom {
namespace {

// A larger buffer is not kept, so that one row with a text of megabytes doesn't occupy them for good.
constexpr std::size_t kKeptUnits = 4096;

// The Variants that pass a column's name and text. Kept per thread, so that a row allocates nothing per
// column.
struct Buffers {
  Variant vColumn;
  Variant vText;
  bool bLent = false;
};

Buffers& ThreadBuffers() {
  thread_local Buffers buffers;
  // Without the launder the compiler looks up the thread-local object at each use.
  return *std::launder(&buffers);
}

// Marks the buffers as used during one write.
class Loan {
 public:
  explicit Loan(Buffers& buffers) : buffers_(buffers) { buffers_.bLent = true; }
  ~Loan() { buffers_.bLent = false; }
  Loan(const Loan&) = delete;
  Loan& operator=(const Loan&) = delete;

 private:
  Buffers& buffers_;
};

void Fill(Variant& buffer, TextView strText) {
  Text* const strKept = buffer.as<Text>();
  if (strKept != nullptr && strKept->capacity() <= kKeptUnits) {
    strKept->clear();
    strKept->append(strText);
  } else {
    buffer = strText;
  }
}

void WriteField(const ObjectRef& objRs, Variant& vColumn, const Variant& value) {
  automation::writeWith(objRs, u"Collect"sv, {&vColumn, 1}, value);
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

// A host's recordset may cause a nested write on this thread while the buffers are in use.

void WriteColumn(const ObjectRef& objRs, TextView strColumn, const Variant& value) {
  Buffers& buffers = ThreadBuffers();
  if (buffers.bLent) {
    Variant vColumn = strColumn;
    WriteField(objRs, vColumn, value);
    return;
  }
  const Loan loan(buffers);
  Fill(buffers.vColumn, strColumn);
  WriteField(objRs, buffers.vColumn, value);
}

void WriteText(const ObjectRef& objRs, TextView strColumn, TextView strText) {
  strText = trimBlanks(strText);
  Buffers& buffers = ThreadBuffers();
  if (buffers.bLent) {
    WriteColumn(objRs, strColumn, strText);
    return;
  }
  const Loan loan(buffers);
  Fill(buffers.vColumn, strColumn);
  Fill(buffers.vText, strText);
  WriteField(objRs, buffers.vColumn, buffers.vText);
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
