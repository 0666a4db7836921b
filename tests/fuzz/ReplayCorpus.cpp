// Hands every file of a corpus folder to a fuzz target, once.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
  std::size_t files = 0;
  for (int i = 1; i < argc; ++i) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i])) {
      if (!entry.is_regular_file()) continue;
      std::ifstream stream(entry.path(), std::ios::binary);
      const std::string content{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
      std::printf("%s\n", entry.path().c_str());
      std::fflush(stdout);  // names the file that crashes
      LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(content.data()), content.size());
      ++files;
    }
  }
  return files == 0 ? 1 : 0;
}
