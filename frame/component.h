// The late-binding vocabulary of the component.
#pragma once

#include "automation/failure.h"
#include "automation/object.h"
#include "automation/runtime.h"
#include "automation/text.h"
#include "automation/variant.h"

namespace TORVINFTPAppDataCom {

// Member names are u"..."sv literals, whose length is a compile-time constant.
using namespace std::string_view_literals;

using automation::Failure;
using automation::ObjectRef;
using automation::Text;
using automation::TextView;
using automation::Variant;
using automation::VariantBool;

using automation::False;
using automation::Null;
using automation::True;

using automation::CreateObject;
using automation::GetObject;
using automation::Screen;

using automation::call;
using automation::callByReference;
using automation::read;
using automation::readIndexed;
using automation::write;

using automation::concat;
using automation::decimalText;
using automation::element;
using automation::equalsIgnoringCase;
using automation::lowerBound;
using automation::narrowToInt16;
using automation::roundToInt32;
using automation::toInt16;
using automation::toInt32;
using automation::toObject;
using automation::toText;
using automation::trimBlanks;
using automation::upperBound;

}  // namespace TORVINFTPAppDataCom
