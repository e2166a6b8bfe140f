#include "frame/log_record.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>

#include "automation/runtime.h"

namespace TORVINFTPAppDataCom {
namespace {

constexpr std::size_t kNameWidth = 40;
constexpr std::size_t kNumberWidth = 10;

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

std::string LocalTime() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
#ifdef _WIN32
  localtime_s(&parts, &now);
#else
  localtime_r(&now, &parts);
#endif
  char text[32];
  return std::string(text, std::strftime(text, sizeof text, "%m/%d/%Y %H:%M:%S", &parts));
}

// The width counts UTF-16 code units of the text, so padding precedes encoding.
Text LeftAligned(Text strText) {
  strText.resize(std::max(strText.size(), kNameWidth), u' ');
  return strText;
}

std::string RightAlignedHexadecimal(std::int32_t lngNumber) {
  char digits[16];
  std::snprintf(digits, sizeof digits, "%*X", static_cast<int>(kNumberWidth),
                static_cast<unsigned>(lngNumber));
  return digits;
}

std::filesystem::path SystemPath(Text strPath) {
  if (std::filesystem::path::preferred_separator == '/') {
    std::replace(strPath.begin(), strPath.end(), u'\\', u'/');
  }
  return std::filesystem::path(strPath);
}

[[noreturn]] void FailOnFile(int error, const Text& strPath) {
  std::int32_t lngNumber = automation::number::kDeviceInputOutput;
  if (error == ENOENT || error == ENOTDIR) lngNumber = automation::number::kPathNotFound;
  if (error == EACCES || error == EISDIR || error == EROFS) lngNumber = automation::number::kPathFileAccess;
  if (error == ENOSPC) lngNumber = automation::number::kDiskFull;
  throw Failure(lngNumber, u"Can't write the log " + strPath + u": " +
                               automation::fromUtf8(std::generic_category().message(error)));
}

}  // namespace

void AppendLogRecord(const Text& strPath, std::int32_t aErrorNumber, const Text& aErrorMessage,
                     const Text& aObjectName, const Text& aFunctionName) {
  const std::string record = LocalTime() + "\t" + automation::toSystemEncoding(LeftAligned(aObjectName)) +
                             "\t" + automation::toSystemEncoding(LeftAligned(aFunctionName)) + "\t" +
                             RightAlignedHexadecimal(aErrorNumber) + "\t" +
                             automation::toSystemEncoding(aErrorMessage) + "\r\n";
#ifdef _WIN32
  File file(_wfopen(SystemPath(strPath).c_str(), L"ab"), &std::fclose);
#else
  File file(std::fopen(SystemPath(strPath).c_str(), "ab"), &std::fclose);
#endif
  // The error code of an empty path differs between systems.
  if (file == nullptr) FailOnFile(strPath.empty() ? ENOENT : errno, strPath);
  // Unbuffered, so that the record is a single write, also if another process writes to the file.
  std::setvbuf(file.get(), nullptr, _IONBF, 0);
  if (std::fwrite(record.data(), 1, record.size(), file.get()) != record.size()) FailOnFile(errno, strPath);
  if (std::fclose(file.release()) != 0) FailOnFile(errno, strPath);
}

}  // namespace TORVINFTPAppDataCom
