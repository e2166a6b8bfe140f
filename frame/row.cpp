#include "frame/row.h"

namespace TORVINFTPAppDataCom {

Variant Trim(Variant value) {
  if (value.isNull()) return value;
  const Text* strText = value.as<Text>();
  if (strText == nullptr) return toText(value);
  const TextView strTrimmed = automation::trimBlanks(*strText);
  return strTrimmed.size() == strText->size() ? std::move(value) : Variant(strTrimmed);
}

Text TrimText(TextView strText) {
  return Text(automation::trimBlanks(strText));
}

std::vector<Text> Split(TextView strText, char16_t chrDelimiter) {
  std::vector<Text> aPieces;
  if (strText.empty()) return aPieces;
  for (;;) {
    const std::size_t lngEnd = strText.find(chrDelimiter);
    aPieces.emplace_back(strText.substr(0, lngEnd));
    if (lngEnd == TextView::npos) return aPieces;
    strText.remove_prefix(lngEnd + 1);
  }
}

const Text& PieceOf(const std::vector<Text>& aPieces, std::size_t intIndex) {
  if (intIndex >= aPieces.size()) automation::failSubscript();
  return aPieces[intIndex];
}

void WriteColumn(const ObjectRef& objRs, TextView strColumn, const Variant& value) {
  automation::writeIndexed(objRs, u"Collect", strColumn, value);
}

}  // namespace TORVINFTPAppDataCom
