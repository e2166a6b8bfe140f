// Runs a fuzz target on the files and folders given as arguments: the corpus as a regression test, with any
// compiler.

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

void replay(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
  int inputs = 0;
  for (int index = 1; index < argc; ++index) {
    if (!fs::exists(argv[index])) {
      std::fprintf(stderr, "replay: there is no %s\n", argv[index]);
      return 1;
    }
    if (fs::is_regular_file(argv[index])) {
      replay(argv[index]);
      ++inputs;
      continue;
    }
    for (const auto& entry : fs::recursive_directory_iterator(argv[index])) {
      if (!entry.is_regular_file()) continue;
      replay(entry.path());
      ++inputs;
    }
  }
  std::printf("%d inputs replayed\n", inputs);
  return inputs > 0 ? 0 : 1;
}
