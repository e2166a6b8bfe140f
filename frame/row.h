// What the collectors share to cut texts apart and to fill a row.
#pragma once

#include <cstddef>
#include <vector>

#include "frame/component.h"

namespace TORVINFTPAppDataCom {

// A value without the blanks at its ends, as text. Null stays null.
Variant Trim(Variant value);
Text TrimText(TextView strText);

// The pieces of a text between the delimiters. An empty text has no piece at all.
std::vector<Text> Split(TextView strText, char16_t chrDelimiter);

// One piece. Fails with 9 where there is no such piece.
const Text& PieceOf(const std::vector<Text>& aPieces, std::size_t intIndex);

// Writes a column of the recordset's pending row.
void WriteColumn(const ObjectRef& objRs, TextView strColumn, const Variant& value);

}  // namespace TORVINFTPAppDataCom
