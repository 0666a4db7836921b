// The least that a launcher can be, so that what is measured is the host's side: it answers every message by its type
// and
// "_ack", over its standard input and output, until its input ends.

#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>

namespace {

bool readAll(char* into, std::size_t size) {
  while (size > 0) {
    const ssize_t count = ::read(0, into, size);
    if (count <= 0) return false;
    into += count;
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

}  // namespace

int main() {
  std::uint32_t size = 0;
  std::string text;
  while (readAll(reinterpret_cast<char*>(&size), sizeof size)) {
    text.resize(size);
    if (!readAll(text.data(), size)) break;
    constexpr std::string_view kKey = "\"message_type\":\"";
    const std::size_t begin = text.find(kKey) + kKey.size();
    const std::string type = text.substr(begin, text.find('"', begin) - begin);
    const std::string answer = R"({"message_type":")" + type + R"(_ack","message":"x"})";
    const auto length = static_cast<std::uint32_t>(answer.size());
    std::string frame(reinterpret_cast<const char*>(&length), sizeof length);
    frame += answer;
    if (::write(1, frame.data(), frame.size()) != static_cast<ssize_t>(frame.size())) break;
    if (type == "disconnect") break;
  }
  return 0;
}
