// iisinventory: a host of the component for the command line.

#include <signal.h>

#include <clocale>
#include <exception>
#include <string>

#include "automation/failure.h"
#include "automation/text.h"
#include "host/options.h"
#include "host/output.h"
#include "sqlite/database.h"

namespace host {
namespace {

constexpr int kWrong = 2;

int run(int argumentCount, const char* const* arguments) {
  if (argumentCount < 2) {
    complain("no command given");
    printToError(programHelp());
    return kWrong;
  }
  Output output;
  try {
    return parseCommandLine(argumentCount, arguments)(output);
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
  sqlite::disableMemoryStats();
  return host::run(argumentCount, arguments);
}
