#include "os/file.h"

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <string>
#include <system_error>

#include "os/unchanged_file.h"

// A file is identified by its volume and its index there.
namespace os {
namespace {

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

// An open file, named in error messages. Other processes may write to it meanwhile.
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
      refuse(FileFailure::kNotFound, "there is no such file");
    }
    refuseSystem(FileFailure::kUnreadable, "the file cannot be opened", error);
  }

  FileStamp stamp() const {
    if (::GetFileType(file_.get()) != FILE_TYPE_DISK) {
      refuse(FileFailure::kUnreadable, "it is not a regular file");
    }
    BY_HANDLE_FILE_INFORMATION found{};
    if (::GetFileInformationByHandle(file_.get(), &found) == 0) {
      refuseSystem(FileFailure::kReadFault, "the file cannot be read", ::GetLastError());
    }
    if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
      refuse(FileFailure::kIsDirectory, "this is a directory and not a file");
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
      refuse(FileFailure::kTooLarge, "the file is larger than 2 GiB");
    }
    file.bytes.reset(new char[size + 1]);
    while (file.size < size) {
      DWORD count = 0;
      if (::ReadFile(file_.get(), file.bytes.get() + file.size, static_cast<DWORD>(size - file.size), &count,
                     nullptr) == 0) {
        refuseSystem(FileFailure::kReadFault, "the file cannot be read", ::GetLastError());
      }
      if (count == 0) break;
      file.size += count;
    }
    return file;
  }

  [[noreturn]] void refuse(FileFailure failure, const std::string& what) const {
    throw FileError(failure, name_ + ": " + what);
  }

 private:
  [[noreturn]] void refuseSystem(FileFailure failure, const char* what, DWORD error) const {
    refuse(failure, std::string(what) + ": " + std::system_category().message(static_cast<int>(error)));
  }

  std::string name_;
  Handle file_;
};

}  // namespace

std::optional<FileStamp> stampOf(const std::filesystem::path& path) {
  try {
    return File(path).stamp();
  } catch (const FileError&) {
    return std::nullopt;
  }
}

FileBytes readFile(const std::filesystem::path& path) {
  return readUnchanged<File>(path);
}

}  // namespace os
