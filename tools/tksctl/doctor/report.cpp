#include "tools/tksctl/doctor/report.h"

#include <tksinterface/TKSUtilBase.h>

#include <algorithm>
#include <filesystem>
#include <utility>

#include "tools/tksctl/frame/json_values.h"

namespace tks::ctl::doctor {
namespace {

struct StateRow {
  State state;
  std::string_view name;
  Style style;
};
constexpr StateRow kStates[] = {{State::pass, "PASS", Style::good},
                                {State::warn, "WARN", Style::warning},
                                {State::fail, "FAIL", Style::bad},
                                {State::skip, "SKIP", Style::dim}};

const StateRow& rowOf(State state) { return *std::ranges::find(kStates, state, &StateRow::state); }

void show(Output& out, const Finding& finding) {
  const StateRow& row = rowOf(finding.state);
  const Terminal& terminal = out.terminal();
  const std::string seen = finding.seen.empty() ? "" : ": " + oneLine(finding.seen);
  out.line(terminal.styled(row.style, row.name) + "  " + finding.title + seen);
  if (!finding.remedy.empty()) out.print(wrapped("-> " + finding.remedy, "      ", terminal.width()));
}

}  // namespace

std::string_view nameOf(State state) { return rowOf(state).name; }

void Report::add(Finding finding) {
  show(context_.out, finding);
  findings_.push_back(std::move(finding));
}

void Report::pass(std::string id, std::string title, std::string seen) {
  add({std::move(id), std::move(title), State::pass, std::move(seen)});
}

void Report::skip(std::string id, std::string title, std::string seen) {
  add({std::move(id), std::move(title), State::skip, std::move(seen)});
}

void Report::warn(std::string id, std::string title, std::string seen, std::string remedy) {
  add({std::move(id), std::move(title), State::warn, std::move(seen), std::move(remedy)});
}

void Report::fail(std::string id, std::string title, std::string seen, std::string remedy, Exit code) {
  add({std::move(id), std::move(title), State::fail, std::move(seen), std::move(remedy), code});
}

bool Report::failed(std::string_view beginning) const {
  return std::ranges::any_of(findings_, [&](const Finding& finding) {
    return finding.state == State::fail && finding.id.starts_with(beginning);
  });
}

std::size_t Report::count(State state) const {
  return static_cast<std::size_t>(std::ranges::count(findings_, state, &Finding::state));
}

TKSArray Report::document() const {
  TKSArray checks;
  for (const Finding& finding : findings_) {
    checks.append(TKSDictionary{{"id", finding.id},
                                {"title", finding.title},
                                {"state", nameOf(finding.state)},
                                {"seen", finding.seen},
                                {"remedy", finding.remedy}});
  }
  return checks;
}

std::string launcherPath(const Wishes& wishes) {
  if (wishes.launcher.empty()) return TKSUtilBase::getStandardTKSPath();
  std::string path = std::filesystem::absolute(wishes.launcher).lexically_normal().string();
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

void checkAll(Report& report, const Wishes& wishes) {
  using Check = void (*)(Report&, const Wishes&);
  constexpr Check kGroups[] = {[](Report& to, const Wishes&) { checkLibrary(to); },
                               checkTools,
                               [](Report& to, const Wishes&) { checkFolders(to); },
                               [](Report& to, const Wishes&) { checkLimits(to); },
                               [](Report& to, const Wishes&) { checkLocks(to); },
                               [](Report& to, const Wishes&) { checkPreferences(to); },
                               checkLauncher,
                               checkArchive,
                               checkStart};
  for (const Check check : kGroups) {
    if (report.context().interrupts.came()) return;
    check(report, wishes);
  }
}

}  // namespace tks::ctl::doctor
