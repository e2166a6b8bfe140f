// A recorder and a saboteur at the seam between the component and everything outside it.
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

// What a sabotaged operation fails with.
inline constexpr std::int32_t kSabotage = static_cast<std::int32_t>(0x8000FFFF);

// Writes down each operation that passes the seam, as a line of text in the order of events, and fails those
// that it is told to, before they reach their object. A line that ends in " !" is an operation that failed.
//
//   GetObject IIS://WEB01/MSFTPSVC        CreateObject ADODB.Connection
//   /MSFTPSVC/1.servercomment             Connection1.Provider = Microsoft.Jet.OLEDB.4.0
//   Recordset1[Identifier] = 1            Connection1.Open(/tmp/test.mdb)
//   children of /MSFTPSVC                 next of /MSFTPSVC
class Journal : public std::enable_shared_from_this<Journal> {
 public:
  std::vector<std::string> lines;

  // Whether to fail an operation, which gets its number, from 1, and its line. Null fails none.
  std::function<bool(std::size_t number, const std::string& line)> fails;

  // Fails the operations whose line begins so, from the `first`-th of them to the `last`-th.
  void failAt(const std::string& beginning, std::size_t first = 1, std::size_t last = 1);

  // The lines that begin so.
  std::vector<std::string> linesWith(const std::string& beginning) const;

  // The lines from the first that is `from` to the next that is `to`, both included, a line break behind
  // each. Every `first` of the replacements stands as its `second`.
  std::string excerpt(const std::string& from, const std::string& to,
                      const std::vector<std::pair<std::string, std::string>>& replacements = {}) const;

  // The object with the recorder before it. Null stays null.
  automation::ObjectRef wrap(automation::ObjectRef object, std::string label);

  // The same for what GetObject and CreateObject give.
  automation::ObjectRef getObject(automation::TextView moniker,
                                  const std::function<automation::ObjectRef()>& serve);
  automation::ObjectRef createObject(automation::TextView programmaticId,
                                     const std::function<automation::ObjectRef()>& serve);

  template <typename Action>
  auto pass(const std::string& line, Action&& action) {
    const std::size_t at = lines.size();
    lines.push_back(line);
    try {
      if (fails && fails(at + 1, line)) {
        throw automation::Failure(kSabotage, u"sabotaged", u"Saboteur");
      }
      return action();
    } catch (...) {
      lines[at] += " !";
      throw;
    }
  }

 private:
  std::map<std::string, int> created_;
};

// Operations written one behind the other with semicolons, or in lines of their own, as an excerpt has them.
std::string operations(const std::string& text);

}  // namespace test
