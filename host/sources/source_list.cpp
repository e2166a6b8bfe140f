#include "host/sources/source_list.h"

namespace host {

int listSources(const Sources& sources, Format format, Output& output) {
  Listing listing;
  listing.columns = {{"File"}, {"Server"}, {"Result"}};
  listing.forEachRow = [&](const std::function<void(const Row&)>& take) {
    for (const ListedFile& each : sources.files)
      take({each.file, each.server.empty() ? Value() : Value(each.server), each.result});
  };
  const int status = sources.servers.empty() ? 2 : sources.problems.empty() ? 0 : 1;
  printed(output, status, [&] { print(listing, {format}, output); });
  for (const std::string& text : sources.notes) printError(text);
  for (const std::string& text : sources.problems) printError(text);
  return status;
}

}  // namespace host
