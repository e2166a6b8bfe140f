// Generates MetaBase.xml files of any size in the form of real files: byte order mark, CR LF, tabs, values of
// several lines, inheritance from the service node. The same options produce the same file on every machine.
#pragma once

#include <cstdint>
#include <iosfwd>

namespace test {

struct MetabaseOptions {
  std::uint64_t seed = 1;
  // FTP sites, and the virtual directories per site in branches of `depth` levels.
  std::int64_t sites = 100;
  std::int64_t directories = 5;
  std::int64_t depth = 3;
  // Application pools, the applications assigned to them in turn, and entries of the extension list.
  std::int64_t pools = 5;
  std::int64_t applications = 20;
  std::int64_t extensions = 10;
};

// Options for a server with this number of FTP sites and everything else in proportion.
MetabaseOptions optionsForSites(std::int64_t sites);

// Writes the file. Failures are reported by the stream's state.
void writeMetabase(const MetabaseOptions& options, std::ostream& out);

}  // namespace test
