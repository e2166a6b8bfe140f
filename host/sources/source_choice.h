// Chooses one source for each server.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "host/sources/search.h"
#include "host/sources/sources.h"

namespace host {

class SourceChoice {
 public:
  explicit SourceChoice(Sources::Names names) : isAny_(names == Sources::Names::kAny) {}

  // Adds the source that an argument names. Throws UsageError.
  void addGiven(const std::string& argument, const std::string& name, Source source);

  // Adds what was found below an argument.
  void addFound(std::vector<Candidate> found);

  void addProblem(std::string problem) { sources_.problems.push_back(std::move(problem)); }
  void addNote(std::string note) { sources_.notes.push_back(std::move(note)); }

  // The servers. Of several sources with the same name, uses the one that was given as an argument, or else
  // the newest, or else the first by path.
  Sources finish();

 private:
  void addIgnoredNote(const Candidate& ignored, const Source& used);

  const bool isAny_;
  Sources sources_;
  std::map<std::string, std::size_t> given_;  // by folded name, the place in sources_.servers
  std::vector<Candidate> found_;
};

}  // namespace host
