// iisinventory: a host of the component for the command line.

#include <clocale>
#include <exception>
#include <string>

#include "automation/failure.h"
#include "automation/text.h"
#include "host/cli/command_line.h"
#include "host/console/output.h"
#include "os/terminal.h"
#include "os/termination_signals.h"
#include "sqlite/database.h"

namespace host {
namespace {

constexpr int kWrong = 2;

int run(int argumentCount, const char* const* arguments) {
  if (argumentCount < 2) {
    printError("no command given");
    printToError(programHelp());
    return kWrong;
  }
  Output output;
  try {
    return parseCommandLine(argumentCount, arguments)(output);
  } catch (const OutputClosed&) {
    return 0;
  } catch (const automation::Failure& failure) {
    printError(automation::toUtf8(failure.description()));
  } catch (const std::exception& error) {
    printError(error.what());
  }
  return kWrong;
}

}  // namespace
}  // namespace host

int main(int argumentCount, char** arguments) {
  os::openStandardStreams();
  os::ignoreWriteSignals();
  // Names in archives are UTF-8, whatever the user's locale is.
  std::setlocale(LC_CTYPE, "C.UTF-8");
  sqlite::disableMemoryStats();
  return host::run(argumentCount, arguments);
}
