#include "automation/runtime.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <utility>

#include "automation/failure.h"

namespace automation {
namespace {

const Text kSource = u"Automation runtime";

// A moniker's prefix, which selects its server: up to and including the first colon.
TextView prefixOf(TextView moniker) {
  const std::size_t colon = moniker.find(u':');
  return colon == TextView::npos ? TextView() : moniker.substr(0, colon + 1);
}

template <typename Table>
auto find(Table& table, TextView name) {
  return std::find_if(table.begin(), table.end(),
                      [&](const auto& entry) { return equalsIgnoringCase(entry.first, name); });
}

template <typename Table, typename Server>
void enter(Table& table, TextView name, Server server) {
  const auto found = find(table, name);
  if (found != table.end()) table.erase(found);
  if (server) table.emplace_back(name, std::make_shared<const Server>(std::move(server)));
}

template <typename Table>
auto serverOf(const Table& table, TextView name) {
  const auto found = find(table, name);
  return found == table.end() ? nullptr : found->second;
}

std::atomic<std::string (*)(TextView)> systemEncoding = &toUtf8;

}  // namespace

Runtime& Runtime::process() {
  static Runtime runtime;
  return runtime;
}

void Runtime::serveMoniker(TextView prefix, MonikerServer server) {
  const std::unique_lock lock(mutex_);
  enter(monikers_, prefix, std::move(server));
}

void Runtime::serveClass(TextView programmaticId, ClassServer server) {
  const std::unique_lock lock(mutex_);
  enter(classes_, programmaticId, std::move(server));
}

void Runtime::setFallbacks(MonikerServer monikers, AnyClassServer classes) {
  const std::unique_lock lock(mutex_);
  fallbackMonikers_ = monikers ? std::make_shared<const MonikerServer>(std::move(monikers)) : nullptr;
  fallbackClasses_ = classes ? std::make_shared<const AnyClassServer>(std::move(classes)) : nullptr;
}

void Runtime::setScreen(ObjectRef screen) {
  const std::unique_lock lock(mutex_);
  screen_ = std::move(screen);
}

MonikerServer Runtime::monikerServer(TextView prefix) const {
  const std::shared_lock lock(mutex_);
  const auto server = serverOf(monikers_, prefix);
  return server ? *server : nullptr;
}

ClassServer Runtime::classServer(TextView programmaticId) const {
  const std::shared_lock lock(mutex_);
  const auto server = serverOf(classes_, programmaticId);
  return server ? *server : nullptr;
}

ObjectRef Runtime::screen() const {
  const std::shared_lock lock(mutex_);
  return screen_;
}

// Both call the server without the lock, because it may use the table itself.

ObjectRef GetObject(TextView moniker) {
  const Runtime& runtime = Runtime::process();
  std::shared_ptr<const MonikerServer> server;
  {
    const std::shared_lock lock(runtime.mutex_);
    server = serverOf(runtime.monikers_, prefixOf(moniker));
    if (!server) server = runtime.fallbackMonikers_;
  }
  if (!server) {
    throw Failure(number::kMonikerSyntax, u"No server is registered for the moniker: " + Text(moniker),
                  kSource);
  }
  return (*server)(moniker);
}

ObjectRef CreateObject(TextView programmaticId) {
  const Runtime& runtime = Runtime::process();
  std::shared_ptr<const ClassServer> server;
  std::shared_ptr<const AnyClassServer> others;
  {
    const std::shared_lock lock(runtime.mutex_);
    server = serverOf(runtime.classes_, programmaticId);
    others = runtime.fallbackClasses_;
  }
  if (!server && others) return (*others)(programmaticId);
  if (!server) {
    throw Failure(number::kCannotCreateObject, u"Cannot create object: " + Text(programmaticId), kSource);
  }
  return (*server)();
}

ObjectRef Screen() {
  return Runtime::process().screen();
}

std::string toSystemEncoding(TextView text) {
  return systemEncoding.load()(text);
}

void setSystemEncoding(std::string (*encode)(TextView text)) {
  systemEncoding = encode;
}

}  // namespace automation
