// Recording and fault injection between the component and its external objects.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "automation/failure.h"
#include "automation/object.h"

namespace test {

// The error number of an injected failure.
inline constexpr std::int32_t kInjectedFailure = static_cast<std::int32_t>(0x8000FFFF);

// Records each external operation as a line of text in chronological order, and makes selected operations
// fail before they reach their object. The line of a failed operation ends in " !".
//
//   GetObject IIS://WEB01/MSFTPSVC        CreateObject ADODB.Connection
//   /MSFTPSVC/1.servercomment             Connection1.Provider = Microsoft.Jet.OLEDB.4.0
//   Recordset1[Identifier] = 1            Connection1.Open(C:\test.mdb)
//   children of /MSFTPSVC                 next of /MSFTPSVC
class Journal : public std::enable_shared_from_this<Journal> {
 public:
  std::vector<std::string> lines;

  // Whether to fail an operation, given its number, from 1, and its line. Null fails none.
  std::function<bool(std::size_t number, const std::string& line)> fails;

  // Fails the operations whose line starts with `beginning`, from the `first`-th to the `last`-th of them.
  void failAt(const std::string& beginning, std::size_t first = 1, std::size_t last = 1);

  // The lines that start with `beginning`.
  std::vector<std::string> linesWith(const std::string& beginning) const;

  // The lines from the first `from` to the next `to`, inclusive, each followed by a line break. Replaces
  // every `first` of the replacements by its `second`.
  std::string excerpt(const std::string& from, const std::string& to,
                      const std::vector<std::pair<std::string, std::string>>& replacements = {}) const;

  // Wraps an object in a recording proxy. Null stays null.
  automation::ObjectRef wrap(automation::ObjectRef object, std::string label);

  // The same for the results of GetObject and CreateObject.
  automation::ObjectRef getObject(automation::TextView moniker,
                                  const std::function<automation::ObjectRef()>& serve);
  automation::ObjectRef createObject(automation::TextView programmaticId,
                                     const std::function<automation::ObjectRef()>& serve);

  template <typename Action>
  auto pass(const std::string& line, Action&& action) {
    const std::size_t at = lines.size();
    lines.push_back(line);
    try {
      if (fails && fails(at + 1, line))
        throw automation::Failure(kInjectedFailure, u"injected failure", u"FaultInjector");
      return action();
    } catch (...) {
      lines[at] += " !";
      throw;
    }
  }

 private:
  std::map<std::string, int> created_;
};

// Converts operations separated by semicolons or line breaks to the form of an excerpt.
std::string operations(const std::string& text);

}  // namespace test
