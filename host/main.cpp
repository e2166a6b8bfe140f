// iisinventory: a host of the component for the command line.

#include <signal.h>

#include <clocale>
#include <exception>
#include <string>
#include <variant>

#include "automation/failure.h"
#include "automation/text.h"
#include "host/check.h"
#include "host/collect.h"
#include "host/copy.h"
#include "host/options.h"
#include "host/output.h"
#include "host/show.h"
#include "sqlite/database.h"

namespace host {
namespace {

constexpr int kWrong = 2;

int run(int argumentCount, const char* const* arguments) {
  if (argumentCount < 2) {
    complain("nothing is said to be done");
    printToError(programHelp());
    return kWrong;
  }
  Output output;
  try {
    const Options options = parseCommandLine(argumentCount, arguments);
    if (const auto* toCollect = std::get_if<CollectOptions>(&options)) return collect(*toCollect, output);
    if (const auto* toCheck = std::get_if<CheckOptions>(&options)) return check(*toCheck, output);
    if (const auto* toCopy = std::get_if<CopyOptions>(&options)) return copy(*toCopy, output);
    if (const auto* toShow = std::get_if<ShowOptions>(&options)) {
      show(*toShow, output);
    } else {
      output.write(std::get<HelpOptions>(options).text);
      output.flush();
    }
    return 0;
  } catch (const OutputClosed&) {
    return 0;
  } catch (const automation::Failure& failure) {
    complain(automation::toUtf8(failure.description()));
  } catch (const std::exception& error) {
    complain(error.what());
  }
  return kWrong;
}

}  // namespace
}  // namespace host

int main(int argumentCount, char** arguments) {
  host::openStandardFiles();
  // A reader that goes away shows as an error of the write.
  ::signal(SIGPIPE, SIG_IGN);
  // So does a file that grows beyond what is allowed.
  ::signal(SIGXFSZ, SIG_IGN);
  // Names in archives are UTF-8, whatever the user speaks.
  std::setlocale(LC_CTYPE, "C.UTF-8");
  sqlite::leaveMemoryUncounted();
  return host::run(argumentCount, arguments);
}
