#include "platform/metabase/file.h"

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <string>
#include <system_error>

#include "platform/metabase/failures.h"

// The same as file.cpp on Windows, where a file is told by its volume and its index on it.
namespace platform::metabase {
namespace {

constexpr int kAttempts = 3;
constexpr std::uint64_t kTicksPerSecond = 10'000'000;
constexpr std::int64_t kSecondsFrom1601To1970 = 11'644'473'600;

constexpr std::uint64_t joined(DWORD high, DWORD low) {
  return std::uint64_t{high} << 32 | low;
}

class Handle {
 public:
  explicit Handle(HANDLE handle) : handle_(handle) {}
  ~Handle() {
    if (valid()) ::CloseHandle(handle_);
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  bool valid() const { return handle_ != INVALID_HANDLE_VALUE; }
  HANDLE get() const { return handle_; }

 private:
  HANDLE handle_;
};

// An open file, which failures name. Others may write to it meanwhile, as everywhere else.
class File {
 public:
  explicit File(const std::filesystem::path& path)
      : name_(shownPath(path)),
        file_(::CreateFileW(path.c_str(), GENERIC_READ,
                            FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                            FILE_FLAG_BACKUP_SEMANTICS, nullptr)) {
    if (file_.valid()) return;
    const DWORD error = ::GetLastError();
    if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) {
      refuse(number::kFileNotFound, "there is no such file");
    }
    refuseSystem(number::kFileUnreadable, "the file cannot be opened", error);
  }

  Stamp stamp() const {
    if (::GetFileType(file_.get()) != FILE_TYPE_DISK) {
      refuse(number::kFileUnreadable, "this is no ordinary file");
    }
    BY_HANDLE_FILE_INFORMATION found{};
    if (::GetFileInformationByHandle(file_.get(), &found) == 0) {
      refuseSystem(number::kFileReadFault, "the file cannot be read", ::GetLastError());
    }
    if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
      refuse(number::kFileIsDirectory, "this is a directory and not a file");
    }
    const std::uint64_t ticks =
        joined(found.ftLastWriteTime.dwHighDateTime, found.ftLastWriteTime.dwLowDateTime);
    return {found.dwVolumeSerialNumber, joined(found.nFileIndexHigh, found.nFileIndexLow),
            static_cast<std::int64_t>(joined(found.nFileSizeHigh, found.nFileSizeLow)),
            static_cast<std::int64_t>(ticks / kTicksPerSecond) - kSecondsFrom1601To1970,
            static_cast<std::int64_t>(ticks % kTicksPerSecond) * 100};
  }

  FileBytes read() const {
    FileBytes file;
    file.stamp = stamp();
    const auto size = static_cast<std::size_t>(file.stamp.size);
    if (file.stamp.size > static_cast<std::int64_t>(kLargestFile)) {
      refuse(number::kFileTooLarge, "the file is larger than 2 GiB");
    }
    file.bytes.reset(new char[size + 1]);
    while (file.size < size) {
      DWORD count = 0;
      if (::ReadFile(file_.get(), file.bytes.get() + file.size, static_cast<DWORD>(size - file.size), &count,
                     nullptr) == 0) {
        refuseSystem(number::kFileReadFault, "the file cannot be read", ::GetLastError());
      }
      if (count == 0) break;
      file.size += count;
    }
    return file;
  }

  [[noreturn]] void refuse(std::int32_t failureNumber, const std::string& what) const {
    fail(failureNumber, name_ + ": " + what);
  }

 private:
  [[noreturn]] void refuseSystem(std::int32_t failureNumber, const char* what, DWORD error) const {
    refuse(failureNumber, std::string(what) + ": " + std::system_category().message(static_cast<int>(error)));
  }

  std::string name_;
  Handle file_;
};

}  // namespace

std::optional<Stamp> stampOf(const std::filesystem::path& path) {
  try {
    return File(path).stamp();
  } catch (const automation::Failure&) {
    return std::nullopt;
  }
}

FileBytes readFile(const std::filesystem::path& path) {
  for (int attempt = 1;; ++attempt) {
    const File file(path);
    FileBytes bytes = file.read();
    if (file.stamp() == bytes.stamp && stampOf(path) == bytes.stamp) return bytes;
    if (attempt == kAttempts) {
      file.refuse(number::kFileChanged, "the file keeps changing while it is being read");
    }
  }
}

}  // namespace platform::metabase
