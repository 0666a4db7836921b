// Hands every file of a corpus folder to a fuzz target, once, and then some changes of it by the target's own mutator,
// when it has one.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" {
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
[[gnu::weak]] std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t room,
                                                  unsigned seed);

/// In the place of the engine's: one byte becomes another, goes or comes.
std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t room) {
  static std::minstd_rand random(20260101);
  const std::size_t at = size == 0 ? 0 : random() % size;
  const std::size_t kind = random() % 3;
  if (kind == 0 && size > 1) {
    std::move(data + at + 1, data + size, data + at);
    return size - 1;
  }
  if (kind == 1 && size < room) {
    std::move_backward(data + at, data + size, data + size + 1);
    ++size;
  }
  if (size > 0) data[at] = static_cast<std::uint8_t>(random());
  return size;
}
}

namespace {

constexpr unsigned kMutants = 10;

void replay(const std::string& content) {
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(content.data()), content.size());
  if (LLVMFuzzerCustomMutator == nullptr) return;
  std::vector<std::uint8_t> mutant(content.begin(), content.end());
  std::size_t size = content.size();
  mutant.resize(2 * size + 64);
  for (unsigned seed = 1; seed <= kMutants; ++seed) {
    size = LLVMFuzzerCustomMutator(mutant.data(), size, mutant.size(), seed);
    LLVMFuzzerTestOneInput(mutant.data(), size);
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t files = 0;
  for (int i = 1; i < argc; ++i) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i])) {
      if (!entry.is_regular_file()) continue;
      std::ifstream stream(entry.path(), std::ios::binary);
      std::printf("%s\n", entry.path().c_str());
      std::fflush(stdout);  // names the file that crashes
      replay({std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()});
      ++files;
    }
  }
  return files == 0 ? 1 : 0;
}
