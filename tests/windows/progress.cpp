// The component's progress while iisinventory collects a server, in the form of the host script: progress
// NAME=FILE
#include <cstdio>
#include <filesystem>

#include "automation/object.h"
#include "host/collect/server_collection.h"
#include "tests/support/collection.h"

namespace {

using namespace automation;

class Sink : public MemberlessObject {
 public:
  explicit Sink(const char* lead) : MemberlessObject(u"Host"), lead_(lead) {}

  void write(TextView member, Arguments, const Variant& value) override {
    if (equalsIgnoringCase(member, u"message")) std::printf("%s%s\n", lead_, toUtf8(toText(value)).c_str());
  }
  Variant call(TextView, Arguments) override { return {}; }

 private:
  const char* lead_;
};

}  // namespace

int main(int, char** arguments) {
  test::registerEverything();
  const std::string entry = arguments[1];
  const std::size_t equals = entry.find('=');
  host::Server server;
  server.name = entry.substr(0, equals);
  server.source.path = entry.substr(equals + 1);
  host::PrivateLogs logs(std::filesystem::current_path());
  host::StagingDatabase staging("inventory.db");
  const host::ProgressLine::Updaters updaters{
      std::make_shared<Sink>(""), std::make_shared<Sink>("bar "), std::make_shared<Sink>("  "), {}};
  host::collectServer(server, 1U << 30, host::select({}, {}, {}), staging, logs, updaters);
  return 0;
}
