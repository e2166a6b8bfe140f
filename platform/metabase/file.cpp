#include "platform/metabase/file.h"

#include "platform/metabase/failures.h"

namespace platform::metabase {
namespace {

std::int32_t numberOf(os::FileFailure failure) {
  switch (failure) {
    case os::FileFailure::kNotFound:
      return number::kFileNotFound;
    case os::FileFailure::kReadFault:
      return number::kFileReadFault;
    case os::FileFailure::kIsDirectory:
      return number::kFileIsDirectory;
    case os::FileFailure::kTooLarge:
      return number::kFileTooLarge;
    case os::FileFailure::kChanged:
      return number::kFileChanged;
    case os::FileFailure::kUnreadable:
      break;
  }
  return number::kFileUnreadable;
}

}  // namespace

os::FileBytes readFile(const std::filesystem::path& path) {
  try {
    return os::readFile(path);
  } catch (const os::FileError& error) {
    fail(numberOf(error.failure()), error.what());
  }
}

}  // namespace platform::metabase
