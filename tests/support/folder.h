// Temporary files of a test.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

namespace test {

// A temporary folder, deleted by the destructor. In memory if the system supports it.
class Folder {
 public:
  Folder()
      : Folder(::access("/dev/shm", W_OK | X_OK) == 0 ? "/dev/shm" : std::filesystem::temp_directory_path()) {
  }
  // Creates it in another folder.
  explicit Folder(const std::filesystem::path& parent) {
    std::string name = (parent / "inventory-test-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make the folder " + name);
    path_ = name;
  }
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(std::string_view name) const { return path_ / name; }

  std::filesystem::path folder(std::string_view name) const {
    std::filesystem::create_directories(path_ / name);
    return path_ / name;
  }

  std::string file(std::string_view name, std::string_view text) const {
    folder((path_ / name).parent_path().string());
    std::ofstream(path_ / name, std::ios::binary) << text;
    return (path_ / name).string();
  }

 private:
  std::filesystem::path path_;
};

inline std::string contents(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// Replaces all occurrences of `what` in a text.
inline std::string replaced(std::string text, std::string_view what, std::string_view with) {
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += with.size())
    text.replace(at, what.size(), with);
  return text;
}

}  // namespace test
