// The records that the component writes into its logs.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace host {

struct Record {
  std::string object;
  std::string routine;  // without the arguments that may follow its name
  std::int32_t number = 0;
  std::string message;
};

// The records of a part of a log that consists of whole records.
std::vector<Record> parseRecords(std::string_view text);

}  // namespace host
