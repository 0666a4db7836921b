// Hands every file of a corpus folder to a fuzz target, once, and then some changes of it by the target's own mutator,
// when it has one.

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "tests/fuzz/Compared.h"

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

using Bytes = std::vector<std::uint8_t>;

constexpr unsigned kMutants = 10;
constexpr std::size_t kLongest = 1 << 16;
/// For each value that is left out.
constexpr std::size_t kLeastCompared = 3;

void mutate(Bytes& input, unsigned seed) {
  std::size_t size = input.size();
  input.resize(std::min(2 * size + 64, std::max(size, kLongest)));
  if (LLVMFuzzerCustomMutator != nullptr) {
    size = LLVMFuzzerCustomMutator(input.data(), size, input.size(), seed);
  } else {
    size = LLVMFuzzerMutate(input.data(), size, input.size());
  }
  input.resize(size);
}

/// What targets that compare two readers have compared in the corpus itself.
tks::fuzz::Compared comparedInCorpus;

void replay(const Bytes& content) {
  const tks::fuzz::Compared before = tks::fuzz::compared != nullptr ? tks::fuzz::compared() : tks::fuzz::Compared{};
  LLVMFuzzerTestOneInput(content.data(), content.size());
  if (tks::fuzz::compared != nullptr) {
    comparedInCorpus.values += tks::fuzz::compared().values - before.values;
    comparedInCorpus.leftOut += tks::fuzz::compared().leftOut - before.leftOut;
  }
  if (LLVMFuzzerCustomMutator == nullptr) return;
  Bytes mutant = content;
  for (unsigned seed = 1; seed <= kMutants; ++seed) {
    mutate(mutant, seed);
    LLVMFuzzerTestOneInput(mutant.data(), mutant.size());
  }
}

bool comparesEnough() {
  if (tks::fuzz::compared == nullptr) return true;
  const auto [values, leftOut] = comparedInCorpus;
  std::printf("%zu compared with the other reader, %zu left out\n", values, leftOut);
  return values >= kLeastCompared * leftOut && values > 0;
}

/// Changes one of the inputs up to eight times and tries each; how many were tried.
std::size_t tryForSeconds(const std::vector<Bytes>& inputs, double seconds, const std::string& keep) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  std::mt19937 random(20260101);
  std::size_t tried = 0;
  while (!inputs.empty() && std::chrono::steady_clock::now() < end) {
    Bytes mutant = inputs[random() % inputs.size()];
    for (std::size_t changes = 1 + random() % 8; changes > 0; --changes, ++tried) {
      mutate(mutant, static_cast<unsigned>(random()));
      if (!keep.empty())
        std::ofstream(keep, std::ios::binary)
            .write(reinterpret_cast<const char*>(mutant.data()), static_cast<std::streamsize>(mutant.size()));
      LLVMFuzzerTestOneInput(mutant.data(), mutant.size());
    }
  }
  return tried;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<Bytes> inputs;
  double seconds = 0;
  std::string keep;
  for (int i = 1; i < argc; ++i) {
    const std::string_view word = argv[i];
    if (word.starts_with("--seconds=")) {
      seconds = std::atof(argv[i] + std::string_view("--seconds=").size());
      continue;
    }
    if (word.starts_with("--keep=")) {
      keep = word.substr(std::string_view("--keep=").size());
      continue;
    }
    for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i])) {
      if (!entry.is_regular_file()) continue;
      std::ifstream stream(entry.path(), std::ios::binary);
      std::printf("%s\n", entry.path().c_str());
      std::fflush(stdout);  // names the file that crashes
      inputs.emplace_back(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
      replay(inputs.back());
    }
  }
  if (seconds > 0) std::printf("%zu tried\n", tryForSeconds(inputs, seconds, keep));
  return inputs.empty() || !comparesEnough() ? 1 : 0;
}
