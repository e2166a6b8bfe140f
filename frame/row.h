// What the collectors share to cut texts apart and to fill a row.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "frame/component.h"

namespace TORVINFTPAppDataCom {

class Guard;

// A value without the spaces at its ends, as text. Null stays null.
Variant Trim(Variant value);

// A piece of a text between delimiters, by its index. An empty text has no piece at all. Fails with 9 where
// there is no such piece.
TextView PieceOf(TextView strText, char16_t chrDelimiter, std::size_t intIndex);
std::size_t CountPieces(TextView strText, char16_t chrDelimiter);

// Writes a column of the recordset's pending row: a value as it is, a text trimmed of the spaces at its ends,
// a number as decimal text. Every table holds text alone.
void WriteColumn(const ObjectRef& objRs, TextView strColumn, const Variant& value);
void WriteText(const ObjectRef& objRs, TextView strColumn, TextView strText);
void WriteNumber(const ObjectRef& objRs, TextView strColumn, std::int32_t lngNumber);

// The columns that tell whose a row is, with their texts, in the order in which they are written.
using RowIdentity = std::array<std::pair<TextView, TextView>, 3>;

// Writes them, each as a step of its own.
void WriteIdentity(const Guard& guard, const ObjectRef& objRs, const RowIdentity& identity);

}  // namespace TORVINFTPAppDataCom
