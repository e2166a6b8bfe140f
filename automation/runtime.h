// The runtime of late binding: a table of who serves which moniker and which programmatic id, and the screen
// object. One per process. On a machine with COM what nobody has entered is COM's to serve.
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

// Returns the object that a moniker names, or null. The whole moniker is handed in, prefix included. May be
// called from several threads at once. Throws Failure.
using MonikerServer = std::function<ObjectRef(TextView moniker)>;

// Creates a new object, or returns null. May be called from several threads at once. Throws Failure.
using ClassServer = std::function<ObjectRef()>;

// Creates a new object of a class that it is told, or returns null. As a ClassServer else.
using AnyClassServer = std::function<ObjectRef(TextView programmaticId)>;

// The table. All members may be called from any thread.
class Runtime {
 public:
  // The process's table.
  static Runtime& process();

  // Enters who serves the monikers that begin with `prefix`, its colon included ("IIS:"), without regard to
  // case. Replaces an earlier entry. A null server takes the entry out.
  void serveMoniker(TextView prefix, MonikerServer server);

  // Enters who creates the objects of a programmatic id, without regard to case. Replaces an earlier entry. A
  // null server takes the entry out.
  void serveClass(TextView programmaticId, ClassServer server);

  // Sets who serves the monikers and who creates the objects that nobody has been entered for: the table that
  // the system itself has. A null server stands for nobody.
  void setFallbacks(MonikerServer monikers, AnyClassServer classes);

  // Sets the process's screen object, which every thread reaches.
  void setScreen(ObjectRef screen);

  // What the table holds, or null. For whoever puts something between the component and an object.
  MonikerServer monikerServer(TextView prefix) const;
  ClassServer classServer(TextView programmaticId) const;
  ObjectRef screen() const;

 private:
  // A linear search: there are only a handful of entries.
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

// The object that a moniker names, for example "IIS://WEB01/MSFTPSVC". May be null where its server gives
// none. Fails with the server's failure, or with 0x800401E4 (syntax) where nobody serves the prefix.
ObjectRef GetObject(TextView moniker);

// A new object of a programmatic id, for example "ADODB.Connection". May be null where its server gives none.
// Fails with the server's failure, or with 429 where nobody serves the id.
ObjectRef CreateObject(TextView programmaticId);

// The process's screen object, or null where the process has none.
ObjectRef Screen();

// The text as the system's plain text files have it: in UTF-8, unless another encoder has been set, which
// happens once, ahead of the first text.
std::string toSystemEncoding(TextView text);
void setSystemEncoding(std::string (*encode)(TextView text));

}  // namespace automation
