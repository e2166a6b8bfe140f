// Makes MetaBase.xml files of any size, in the real file's form: byte order mark, CR LF, tabs, values over
// several lines, inheritance from the service node. The same options give the same file on every machine.
#pragma once

#include <cstdint>
#include <iosfwd>

namespace test {

struct MetabaseOptions {
  std::uint64_t seed = 1;
  // FTP sites, and the virtual directories of each in branches of `depth` levels.
  std::int64_t sites = 100;
  std::int64_t directories = 5;
  std::int64_t depth = 3;
  // Application pools, the applications that they serve in turn, and the entries of the extension list.
  std::int64_t pools = 5;
  std::int64_t applications = 20;
  std::int64_t extensions = 10;
};

// Options for a server with so many FTP sites, everything else in proportion.
MetabaseOptions inProportion(std::int64_t sites);

// Writes the file. Failures show in the stream's state.
void writeMetabase(const MetabaseOptions& options, std::ostream& out);

}  // namespace test
