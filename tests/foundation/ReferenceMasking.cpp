#include "tests/foundation/ReferenceMasking.h"

#include <cctype>
#include <vector>

namespace tks::test {
namespace {

constexpr std::size_t npos = std::string::npos;

std::string lower(std::string text) {
  for (char& byte : text) {
    if (byte >= 'A' && byte <= 'Z') byte = static_cast<char>(std::tolower(byte));
  }
  return text;
}

std::string firstRule(std::string w) {
  const std::string l = lower(w);
  std::size_t p = l.find("https");
  if (p == npos) p = l.find("http");
  if (p == npos) return w;
  for (const std::string key : {"password", "email", "username", "ticket", "user name", "ticket", "token"}) {
    if (l.find(key) == npos) continue;
    std::size_t q = l.find("?", p);
    if (q == npos) q = l.find(",", p);
    if (q != npos) w = w.substr(0, q);
    break;
  }
  for (const std::string key : {"/meet/", "/join/", "/start/"}) {
    const std::size_t k = w.find(key);
    if (k != npos) w = referenceMask(w, k + key.size(), npos);
  }
  return w;
}

std::string secondRule(const std::string& w) {
  const std::string l = lower(w);
  const std::size_t u = l.find("username");
  if (u == npos) return w;
  const std::size_t start = u + 8 + 1;
  std::size_t end = npos;
  for (const char marker : {'&', ',', ' '}) {
    end = start > l.size() ? npos : l.find(marker, start);
    if (end != npos) break;
  }
  return referenceMask(w, start, end);
}

bool isLetterOrDigit(char byte) {
  return std::string("0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ").find(byte) != npos;
}

std::string thirdRule(std::string w) {
  std::size_t pos = 0;
  while (pos < w.size()) {
    std::size_t at = w.find("@", pos);
    if (at == npos) at = w.find("%40", pos);
    if (at == npos) break;
    if (at > 0) {
      std::size_t start = 0;
      for (std::size_t i = at - 1; i >= 1; --i) {
        if (!isLetterOrDigit(w[i])) {
          start = i + 1;
          break;
        }
      }
      w = referenceMask(w, start, at);
    }
    pos = at + 2;
  }
  return w;
}

std::string fourthRule(std::string w, const std::string& folder) {
  const std::string l = lower(w);
  std::size_t key = l.find(folder);
  while (key != npos) {
    std::size_t pos = key + folder.size();
    std::size_t j = w.find("/", pos);
    if (j != npos && j > pos) {
      w.replace(pos, j - pos, std::string(j - pos, '*'));
    } else if (j == pos) {
      pos = pos + 1;
      j = w.find("/", pos);
      if (j == npos) j = w.size();
      w.replace(pos, j - pos, std::string(j - pos, '*'));
    }
    key = l.find(folder, pos);
  }
  return w;
}

}  // namespace

std::string referenceMask(std::string text, std::size_t start, std::size_t end) {
  if (end > text.size()) end = text.size();
  if (end < start) return text;
  const std::size_t from = end - start > 3 ? start + 3 : start;
  for (std::size_t i = from; i < end; ++i) text[i] = '*';
  return text;
}

std::string referenceRemovePII(const std::string& input, const std::vector<std::string>& usersFolders) {
  if (input.empty()) return "";
  std::string w = fourthRule(thirdRule(secondRule(firstRule(input))), "/users/");
  for (const std::string& folder : usersFolders) w = fourthRule(w, folder);
  return w;
}

}  // namespace tks::test
