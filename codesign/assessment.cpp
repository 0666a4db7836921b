#include "codesign/assessment.h"

#include <fcntl.h>
#include <openssl/asn1.h>
#include <openssl/x509.h>
#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string_view>

#include "codesign/Codesign.h"
#include "codesign/trust/certificates.h"
#include "platform/backend.h"
#include "platform/posix/file_descriptor.h"

namespace tks::assessment {
namespace {

namespace status = codesign::status;

// Extensions of a leaf that say which programme it belongs to, and from when on.
constexpr const char* kDeveloperMark = "1.2.840.113635.100.6.1.13";
constexpr const char* kStoreMark = "1.2.840.113635.100.6.1.9";
constexpr const char* kIssueDateMark = "1.2.840.113635.100.6.1.33";
/// What was signed with certificates from before this day did not need to be notarized.
constexpr std::string_view kNotarizationBegins = "20190408";

/// Line ends in a path would let it write lines of its own.
std::string shown(std::string_view path) {
  std::string text(path);
  for (char& character : text) {
    if (static_cast<unsigned char>(character) < ' ') character = '?';
  }
  return text;
}

/// Where code comes from, by its certificates and its ticket.
struct Source {
  bool accepted = false;
  std::string_view name;
};

/// The day on which a certificate was made, as eight digits.
std::string issueDateOf(X509* leaf) {
  if (const std::optional<TKSData> mark = codesign::extensionOf(leaf, kIssueDateMark)) {
    std::string digits;
    for (const std::uint8_t byte : *mark) {
      if (byte >= '0' && byte <= '9') {
        digits += static_cast<char>(byte);
      } else if (digits.size() >= kNotarizationBegins.size()) {
        break;
      } else {
        digits.clear();
      }
    }
    if (digits.size() >= kNotarizationBegins.size()) return digits.substr(0, kNotarizationBegins.size());
  }
  std::tm parts{};
  std::array<char, 16> day{};
  if (::ASN1_TIME_to_tm(::X509_get0_notBefore(leaf), &parts) == 1) {
    std::strftime(day.data(), day.size(), "%Y%m%d", &parts);
  }
  return day.data();
}

Source sourceOf(const codesign::Description& description, X509* leaf) {
  if (leaf == nullptr) return {};
  if (description.implicitRequirement.ends_with(" and anchor apple")) return {true, "Apple System"};
  if (codesign::hasExtension(leaf, kStoreMark)) return {true, "Mac App Store"};
  if (!codesign::hasExtension(leaf, kDeveloperMark)) return {};
  if (description.ticket) return {true, "Notarized Developer ID"};
  if (issueDateOf(leaf) < kNotarizationBegins) return {true, "Developer ID"};
  return {false, "Unnotarized Developer ID"};
}

std::string lines(std::string_view path, std::string_view verdict, std::string_view source, std::string_view origin,
                  int verbosity) {
  std::string text = shown(path).append(": ").append(verdict).append("\n");
  if (verbosity >= 1 && !source.empty()) text.append("source=").append(source).append("\n");
  if (verbosity >= 2 && !origin.empty()) text.append("origin=").append(shown(origin)).append("\n");
  return text;
}

Verdict judgeBroken(const std::string& path, std::int32_t code, std::string_view origin, int verbosity) {
  if (code == status::kUnsigned) return {kRejected, lines(path, "rejected", "no usable signature", "", verbosity)};
  if (code == status::kWeakResourceRules || code == status::kWeakResourceEnvelope) {
    return {kRejected, lines(path, "rejected", "obsolete resource envelope", origin, verbosity)};
  }
  std::string reason = codesign::statusText(code);
  if (reason.empty()) reason = "code " + std::to_string(code);
  return {kRejected, lines(path, reason, "", "", verbosity)};
}

// What a process is short of must not pass for what is wrong with an application: parts that cannot be opened or held
// in memory look like parts that are missing.

/// Descriptors and bytes that an assessment always finds enough.
constexpr std::size_t kDescriptors = 32;
constexpr std::size_t kMemory = std::size_t{16} * 1024 * 1024;

/// Whether there is room to look at everything.
bool hasRoom() {
  void* const memory = ::mmap(nullptr, kMemory, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return false;
  ::munmap(memory, kMemory);
  std::array<posix::FileDescriptor, kDescriptors> descriptors;
  return std::ranges::all_of(descriptors, [](posix::FileDescriptor& descriptor) {
    descriptor.reset(posix::retried([] { return ::open("/dev/null", O_RDONLY | O_CLOEXEC); }));
    return static_cast<bool>(descriptor);
  });
}

/// Whether a status tells of the process that looked, and not of what it looked at.
bool isShortage(std::int32_t code) {
  constexpr auto kShortages =
      std::to_array<std::int32_t>({status::kNotEnoughMemory, status::ofErrno(ENOMEM), status::ofErrno(EMFILE),
                                   status::ofErrno(ENFILE), status::ofErrno(EAGAIN), status::ofErrno(ENOBUFS)});
  return std::ranges::find(kShortages, code) != kShortages.end();
}

/// What the program was asked.
struct Question {
  bool assessing = false;
  int verbosity = 0;
  std::vector<std::string> paths;
};

/// An argument such as "-avv": several flags in one.
bool readFlags(std::string_view flags, Question& question) {
  for (const char flag : flags) {
    if (flag == 'a') {
      question.assessing = true;
    } else if (flag == 'v') {
      ++question.verbosity;
    } else {
      return false;
    }
  }
  return !flags.empty();
}

/// Nothing when it was asked wrongly.
std::optional<Question> readQuestion(const std::vector<std::string>& arguments) {
  Question question;
  for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
    if (*argument == "--assess") {
      question.assessing = true;
    } else if (*argument == "--verbose") {
      ++question.verbosity;
    } else if (*argument == "-t" || *argument == "--type") {
      if (++argument == arguments.end() || *argument != "execute") return std::nullopt;
    } else if (argument->starts_with('-')) {
      if (!readFlags(std::string_view(*argument).substr(1), question)) return std::nullopt;
    } else {
      question.paths.push_back(*argument);
    }
  }
  if (!question.assessing || question.paths.empty()) return std::nullopt;
  return question;
}

Verdict noVerdict(const std::string& path) {
  return {kNoVerdict, lines(path, "no verdict, out of memory or descriptors", "", "", 0)};
}

bool isApplication(const codesign::Description& description) {
  return description.format.find("bundle") != std::string::npos;
}

/// What the assessment says of code that can be described.
Verdict judge(const std::string& path, std::int32_t valid, const codesign::Description& description, int verbosity) {
  const std::vector<codesign::CertificateDescription>& chain = description.chain;
  const std::string origin = chain.empty() ? std::string() : chain.front().commonName;
  if (valid != 0) return judgeBroken(path, valid, origin, verbosity);
  if (!isApplication(description)) {
    return {kRejected,
            lines(path, "rejected (the code is valid but does not seem to be an app)", "", origin, verbosity)};
  }
  const codesign::Certificate leaf = chain.empty() ? nullptr : codesign::parseCertificate(chain.front().der);
  const Source source = sourceOf(description, leaf.get());
  return {source.accepted ? kAccepted : kRejected,
          lines(path, source.accepted ? "accepted" : "rejected", source.name, origin, verbosity)};
}

Verdict judge(const std::string& path, int verbosity) {
  codesign::Outcome opened;
  const std::optional<codesign::Code> code = codesign::Code::open(path, &opened);
  if (!code) {
    if (isShortage(opened.status)) return noVerdict(path);
    return {kFailure, lines(path, opened.text.empty() ? "internal error" : opened.text, "", "", verbosity)};
  }
  const std::int32_t valid = code->verify(codesign::Depth::assessing).status;
  const codesign::Description description = code->describe();
  if (isShortage(valid) || isShortage(description.outcome.status)) return noVerdict(path);
  if (!description.outcome.isGood()) return {kFailure, lines(path, "internal error", "", "", verbosity)};
  return judge(path, valid, description, verbosity);
}

}  // namespace

Verdict assess(const std::string& path, int verbosity) {
  if (!hasRoom()) return noVerdict(path);
  Verdict verdict = judge(path, verbosity);
  return verdict.exitCode == kAccepted || hasRoom() ? verdict : noVerdict(path);
}

Verdict run(const std::vector<std::string>& arguments) noexcept {
  try {
    const std::optional<Question> question = readQuestion(arguments);
    if (!question) return {kUsage, "usage: spctl -a [-t execute] [-v] path ...\n"};
    Verdict all{kAccepted, {}};
    for (const std::string& path : question->paths) {
      const Verdict verdict = assess(path, question->verbosity);
      all.text.append(verdict.text);
      all.exitCode = std::max(all.exitCode, verdict.exitCode);
    }
    return all;
  } catch (...) {
    return {kNoVerdict, {}};
  }
}

}  // namespace tks::assessment

namespace tks::platform {
namespace {

class EngineAssessment final : public Assessment {
 public:
  assessment::Verdict run(const std::vector<std::string>& arguments) noexcept override {
    return assessment::run(arguments);
  }
};

}  // namespace

template <>
Assessment& backend<Assessment>() {
  static auto& assessment = *new EngineAssessment;
  return assessment;
}

}  // namespace tks::platform
