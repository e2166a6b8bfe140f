// A whole MetaBase.xml: it is refused with a failure, or every node is found by its path, every property of
// every node reads as a value or a failure, and every parse warning has a description.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "automation/failure.h"
#include "platform/metabase/metabase.h"
#include "platform/metabase/schema.h"

namespace {

using platform::metabase::Metabase;

// Large enough for all names in a small input.
constexpr Metabase::NodeId kNodes = 64;

void readEverything(const Metabase& metabase, Metabase::NodeId node) {
  const std::size_t names = platform::metabase::schemaNames().size();
  for (Metabase::PropertyId property = 0; property < names; ++property) {
    try {
      metabase.read(node, property, u"input");
    } catch (const automation::Failure&) {
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  platform::metabase::looksLikeMetabase(bytes);
  std::shared_ptr<const Metabase> metabase;
  try {
    metabase = Metabase::parse(bytes, "input");
  } catch (const automation::Failure&) {
    return 0;
  }
  for (const Metabase::ParseWarning& warning : metabase->warnings()) {
    if (metabase->describe(warning, u"input").find('\n') != std::string::npos) std::abort();
  }
  const auto nodes = std::min<std::size_t>(metabase->nodeCount(), kNodes);
  for (Metabase::NodeId node = 0; node < nodes; ++node) {
    const std::string path = metabase->path(node);
    const auto found =
        metabase->find(metabase->root(), automation::fromUtf8(node == 0 ? "" : path.substr(1)));
    if (found != node) std::abort();
    const auto parent = metabase->parent(node);
    if (parent && metabase->child(*parent, automation::fromUtf8(metabase->name(node))) != node) std::abort();
    readEverything(*metabase, node);
  }
  return 0;
}
