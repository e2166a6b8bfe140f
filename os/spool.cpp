#include "os/spool.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace os {
namespace {

constexpr std::size_t kInMemory = 8 * 1024 * 1024;
constexpr std::uint64_t kNotWritten = UINT64_MAX;

[[noreturn]] void fail(const char* why = std::strerror(errno)) {
  throw std::runtime_error(std::string("cannot store rows in a temporary file: ") + why);
}

// Reads the file if there is one, or else the buffer.
class Reader {
 public:
  Reader(std::string_view bytes, std::FILE* file) : bytes_(bytes), file_(file) {}

  void read(void* target, std::size_t size) {
    if (file_ != nullptr) {
      if (std::fread(target, 1, size, file_) == size) return;
      if (std::ferror(file_) != 0) fail();
      fail("it has been truncated");
    }
    std::memcpy(target, bytes_.data(), size);
    bytes_.remove_prefix(size);
  }

 private:
  std::string_view bytes_;
  std::FILE* file_;
};

}  // namespace

void Spool::add(std::span<const std::optional<std::string_view>> row) {
  for (const std::optional<std::string_view>& cell : row) {
    const std::uint64_t size = cell ? cell->size() : kNotWritten;
    buffer_.append(reinterpret_cast<const char*>(&size), sizeof size);
    if (cell) buffer_ += *cell;
  }
  ++rows_;
  if (buffer_.size() >= kInMemory) spill();
}

void Spool::spill() {
  if (!file_) file_.emplace();
  if (std::fwrite(buffer_.data(), 1, buffer_.size(), file_->stream()) != buffer_.size()) fail();
  buffer_.clear();
}

void Spool::forEach(std::size_t columns, const std::function<void(const Row&)>& take) {
  if (file_) {
    spill();
    if (std::fflush(file_->stream()) != 0 || std::fseek(file_->stream(), 0, SEEK_SET) != 0) fail();
  }
  Reader reader(buffer_, file_ ? file_->stream() : nullptr);
  Row row(columns);
  std::uint64_t size = 0;
  for (std::uint64_t left = rows_; left > 0; --left) {
    for (std::optional<std::string>& value : row) {
      reader.read(&size, sizeof size);
      value.reset();
      if (size == kNotWritten) continue;
      value.emplace(size, '\0');
      reader.read(value->data(), size);
    }
    take(row);
  }
}

}  // namespace os
