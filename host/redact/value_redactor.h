// Redacts the texts of a metabase: names, values and what is between them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "host/redact/replacements.h"
#include "platform/metabase/names.h"
#include "platform/metabase/schema.h"

namespace host {

// What is kept of a value, beside the known words and phrases.
enum class Rule {
  kText,       // nothing
  kFields,     // fields that are numbers
  kNumbers,    // numbers
  kBinary,     // the number of hexadecimal digits
  kAddresses,  // numbers and masks of IP restrictions
};

// The words, phrases and properties of harmless.tsv and the schema.
class HarmlessTexts {
 public:
  HarmlessTexts();

  bool isWord(std::string_view word) const { return words_.find(word).has_value(); }
  // Whether a whole field is harmless.
  bool isPhrase(std::string_view field) const { return phrases_.find(field).has_value(); }
  Rule ruleOf(const platform::metabase::Property& property) const;

 private:
  platform::metabase::NameTable words_;
  platform::metabase::NameTable phrases_;
  platform::metabase::NameTable fieldProperties_;
};

class ValueRedactor {
 public:
  explicit ValueRedactor(Replacements& replacements) : replacements_(replacements) {}

  // Appends a text, spelled as in the file, to `out`: what is kept as it is spelled, and the replacements.
  void redact(std::string_view spelled, Rule rule, std::string& out);

  Rule ruleOf(const platform::metabase::Property& property) const { return harmless_.ruleOf(property); }

 private:
  const HarmlessTexts harmless_;
  Replacements& replacements_;
};

// A text of the file with its references resolved.
std::string resolveReferences(std::string_view spelled);

}  // namespace host
