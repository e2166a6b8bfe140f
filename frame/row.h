// Text splitting and row writing, shared by the collectors.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "frame/component.h"

namespace TORVINFTPAppDataCom {

class Guard;

// Converts a value to text without leading and trailing spaces. Null stays null.
Variant Trim(Variant value);

// Returns the piece of a text between delimiters with the given index. An empty text has no pieces. Fails
// with 9 if the index is out of range.
TextView PieceOf(TextView strText, char16_t chrDelimiter, std::size_t intIndex);
std::size_t CountPieces(TextView strText, char16_t chrDelimiter);

// Writes a column of the recordset's pending row: a value as it is, a text without leading and trailing
// spaces, a number as decimal text. All columns of all tables are texts.
void WriteColumn(const ObjectRef& objRs, TextView strColumn, const Variant& value);
void WriteText(const ObjectRef& objRs, TextView strColumn, TextView strText);
void WriteNumber(const ObjectRef& objRs, TextView strColumn, std::int32_t lngNumber);

// Identifying columns of a row with their values, in writing order.
using RowIdentity = std::array<std::pair<TextView, TextView>, 3>;

// Writes each column as a separate step.
void WriteIdentity(const Guard& guard, const ObjectRef& objRs, const RowIdentity& identity);

}  // namespace TORVINFTPAppDataCom
