#include <tksinterface/KVRXCodeSignUtil.h>
#include <tksinterface/TKSURL.h>

#include <ctime>
#include <memory>

#include "codesign/Codesign.h"
#include "tools/tksctl/catalogue/catalogue.h"
#include "tools/tksctl/commands/table.h"
#include "tools/tksctl/frame/json_values.h"
#include "tools/tksctl/parts/signatures.h"

namespace tks::ctl {
namespace {

struct Wishes {
  std::vector<std::string> paths;
  bool deep = false;
  bool anySigner = false;
};

constexpr int kLabel = 14;

void field(Output& out, std::string_view label, std::string_view value) {
  if (value.empty()) return;
  std::string line = "  " + std::string(label) + ":";
  line.resize(std::max<std::size_t>(line.size() + 1, kLabel + 2), ' ');
  out.line(line.append(oneLine(value)));
}

void fields(Output& out, std::string_view label, const TKSArray& values) {
  for (const TKSValue& value : values) field(out, label, value.text());
}

void showCertificate(Output& out, const TKSValue& certificate) {
  field(out, "signed by", certificate["commonName"].text());
  std::string validity =
      std::string(certificate["notBefore"].text()) + " to " + std::string(certificate["notAfter"].text());
  if (!certificate["validNow"].boolean()) validity += out.terminal().styled(Style::warning, " (not now)");
  out.line(std::string(kLabel + 4, ' ') + "valid " + validity);
  out.line(std::string(kLabel + 4, ' ') + "SHA-256 " + std::string(certificate["sha256"].text()));
}

void show(Output& out, const TKSDictionary& report) {
  const auto text = [&](std::string_view key) { return report[key].text(); };
  const bool isGood = report["status"].integer() == 0;
  out.line(text("path"));
  const std::string status =
      isGood ? "good" : std::string(text("statusText")) + " (" + report["status"].description() + ")";
  field(out, "signature", out.terminal().styled(isGood ? Style::good : Style::bad, status));
  field(out, "concerns", text("concerns"));
  for (const char* kind : {"added", "altered", "missing"}) fields(out, kind, report[kind].array());
  const std::string why = text("makerText").empty() ? "" : ": " + std::string(text("makerText"));
  field(out, "maker's", report["maker"].boolean() ? "yes" : "no" + why);
  for (const char* key : {"identifier", "format"}) field(out, key, text(key));
  fields(out, "architecture", report["architectures"].array());
  std::string flags;
  for (const TKSValue& flag : report["flags"].array()) flags.append(flags.empty() ? "" : ", ").append(flag.text());
  field(out, "flags", flags);
  field(out, "team", text("team"));
  for (const TKSValue& certificate : report["chain"].array()) showCertificate(out, certificate);
  field(out, "signed at", text("signingTime"));
  field(out, "time stamp", text("timeStamp"));
  field(out, "requirement", text("requirement"));
  for (const auto& [key, value] : report["entitlements"].dictionary()) {
    field(out, "entitlement", std::string(key) + " = " + value.description());
  }
  for (const auto& [key, value] : report["hashes"].dictionary()) field(out, key, value.text());
}

/// What went wrong with one path, and the code for it.
Exit judge(Output& out, const TKSDictionary& report, const Wishes& wishes) {
  const std::string path(report["path"].text());
  const auto status = report["status"].integer();
  if (status == codesign::status::kNotFound) return out.fail(Exit::failed, "nothing that can be signed is at " + path);
  if (status != 0) {
    const std::string text = std::string(report["statusText"].text()) + " (" + std::to_string(status) + ")";
    return out.fail(Exit::notTrusted, path + ": " + text, explainStatus(status).remedy);
  }
  if (wishes.anySigner || report["maker"].boolean()) return Exit::ok;
  return out.fail(Exit::notTrusted, path + ": " + std::string(report["makerText"].text()),
                  "Use --any-signer where it does not matter who signed.");
}

Exit verifyAll(Context& context, const Wishes& wishes) {
  TKSArray reports;
  Exit code = Exit::ok;
  for (const std::string& path : wishes.paths) {
    const TKSDictionary report = signatureReport(path, wishes.deep);
    if (report["status"].integer() != codesign::status::kNotFound) show(context.out, report);
    const Exit one = judge(context.out, report, wishes);
    if (code == Exit::ok) code = one;
    reports.append(report);
  }
  context.out.set("reports", reports);
  return code;
}

}  // namespace

Command verifyCommand() {
  return {
      .name = "verify",
      .summary = "checks the signature of bundles and files, and shows all that it says",
      .description =
          "Shows the status with its text, identifier, format, architectures, flags, team, the chain of certificates "
          "with validity and SHA-256, time stamp, requirement, entitlements and hashes. Ends with 0 only when every "
          "signature is good and the maker's.\n\n"
          "--deep checks as before an installation: nested code as a whole, every version of frameworks, no link "
          "that leads out, nothing outside of what is sealed.",
      .examples = {{"tksctl verify --deep \"Tarvo Kovra Start.app\"", "As the library checks before it installs."},
                   {"tksctl verify --any-signer /opt/tool --json", "Any good signature will do; for programs."}},
      .setUp = [](const CommandLine& line) -> Action {
        auto wishes = std::make_shared<Wishes>();
        line.option("path", wishes->paths, "Bundles or files").required().typeName("PATH");
        line.flag("--deep", wishes->deep, "Check nested code, and that everything is sealed");
        line.flag("--any-signer", wishes->anySigner, "Do not ask whether the maker signed it");
        return [wishes](Context& context) { return verifyAll(context, *wishes); };
      }};
}

}  // namespace tks::ctl
