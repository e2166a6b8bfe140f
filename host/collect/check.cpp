#include "host/collect/check.h"

#include <algorithm>
#include <string>

#include "automation/failure.h"
#include "host/console/terminal_text.h"
#include "host/console/text.h"
#include "host/sources/sources.h"
#include "platform/metabase/metabase.h"

namespace host {

int check(const CheckOptions& options, Output& output) {
  const Sources sources = findSources(options.metabases, options.maxSize, Sources::Names::kAny);
  // The status is returned even if the output is closed.
  bool isRead = true;
  const auto print = [&](const std::string& text, bool all = false) {
    if (!isRead) return;
    try {
      output.write(text);
      if (all) output.flush();
    } catch (const OutputClosed&) {
      isRead = false;
    }
  };
  int status = sources.servers.empty() ? 2 : 0;
  for (const std::string& problem : sources.problems) {
    printError(problem);
    status = 2;
  }
  for (const Server& server : sources.servers) {
    try {
      const auto metabase = platform::metabase::Metabase::parse(readSource(server.source, options.maxSize),
                                                                server.source.shown());
      const auto places = static_cast<std::int64_t>(metabase->warnings().size());
      print(escapeForTerminal(server.source.shown()) + ": a metabase of " +
            pluralize(static_cast<std::int64_t>(metabase->nodeCount()), "node", "nodes") +
            (places == 0 ? ", no warnings" : ", " + pluralize(places, "warning", "warnings")) + "\n");
      const automation::Text name = automation::fromUtf8(server.name);
      for (const auto& warning : metabase->warnings()) {
        print("  " + escapeForTerminal(metabase->describe(warning, name)) + "\n");
      }
      if (places > 0) status = std::max(status, 1);
    } catch (const automation::Failure& failure) {
      print("", true);
      printError(automation::toUtf8(failure.description()));
      status = 2;
    }
  }
  print("", true);
  return status;
}

}  // namespace host
