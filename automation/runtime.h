// The late-binding runtime: the servers of monikers and programmatic ids, and the screen object. One per
// process. On Windows, COM serves what is not registered.
#pragma once

#include <functional>
#include <memory>
#include <shared_mutex>
#include <string>
#include <utility>
#include <vector>

#include "automation/object.h"
#include "automation/text.h"

namespace automation {

// Returns the object for a moniker, or null. Gets the whole moniker with its prefix. Must be thread-safe.
// Throws Failure.
using MonikerServer = std::function<ObjectRef(TextView moniker)>;

// Creates an object, or returns null. Must be thread-safe. Throws Failure.
using ClassServer = std::function<ObjectRef()>;

// Like ClassServer, for the class with the given programmatic id.
using AnyClassServer = std::function<ObjectRef(TextView programmaticId)>;

// The table of servers. Thread-safe.
class Runtime {
 public:
  // The process's table.
  static Runtime& process();

  // Registers the server of monikers that begin with `prefix`, which includes the colon ("IIS:"), ignoring
  // case. Replaces an earlier server; null removes it.
  void serveMoniker(TextView prefix, MonikerServer server);

  // Registers the server of a programmatic id, ignoring case. Replaces an earlier server; null removes it.
  void serveClass(TextView programmaticId, ClassServer server);

  // Sets the servers of monikers and classes that are not registered. Null removes them.
  void setFallbacks(MonikerServer monikers, AnyClassServer classes);

  // Sets the process's screen object, which all threads share.
  void setScreen(ObjectRef screen);

  // The registered servers, or null, for tests that wrap them.
  MonikerServer monikerServer(TextView prefix) const;
  ClassServer classServer(TextView programmaticId) const;
  ObjectRef screen() const;

 private:
  // Searched linearly, because there are only a few entries.
  template <typename Server>
  using Table = std::vector<std::pair<Text, std::shared_ptr<const Server>>>;

  mutable std::shared_mutex mutex_;
  Table<MonikerServer> monikers_;
  Table<ClassServer> classes_;
  std::shared_ptr<const MonikerServer> fallbackMonikers_;
  std::shared_ptr<const AnyClassServer> fallbackClasses_;
  ObjectRef screen_;

  friend ObjectRef GetObject(TextView moniker);
  friend ObjectRef CreateObject(TextView programmaticId);
};

// The object for a moniker, for example "IIS://WEB01/MSFTPSVC"; null if its server returns null. Throws the
// server's Failure, or 0x800401E4 if no server is registered for the prefix.
ObjectRef GetObject(TextView moniker);

// Creates an object of a programmatic id, for example "ADODB.Connection"; null if its server returns null.
// Throws the server's Failure, or 429 if no server is registered for the id.
ObjectRef CreateObject(TextView programmaticId);

// The process's screen object, or null.
ObjectRef Screen();

// Encodes text for plain text files: UTF-8 unless another encoder was set, once, before the first text.
std::string toSystemEncoding(TextView text);
void setSystemEncoding(std::string (*encode)(TextView text));

}  // namespace automation
