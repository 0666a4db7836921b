#include "tools/tksctl/bundle/this_computer.h"

#include <pwd.h>
#include <tksinterface/TKSUtilBase.h>
#include <unistd.h>

#include <climits>
#include <string>
#include <string_view>

namespace tks::ctl {
namespace {

/// Numbers of people's accounts on Debian.
constexpr uid_t kFirstPerson = 1000;
constexpr uid_t kLastPerson = 60000;

/// Each part of a text between these marks.
void hideParts(Scrubber& scrubber, Personal kind, std::string_view text, std::string_view marks) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find_first_of(marks), text.size());
    scrubber.hide(kind, text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

/// The account's name; the person's, as a whole and each part of it; room and telephone numbers.
void hideAccount(Scrubber& scrubber, const passwd& account) {
  if (account.pw_uid < kFirstPerson || account.pw_uid > kLastPerson) return;
  scrubber.hide(Personal::user, account.pw_name);
  const std::string_view about = account.pw_gecos == nullptr ? "" : account.pw_gecos;
  hideParts(scrubber, Personal::user, about, ",");
  hideParts(scrubber, Personal::user, about.substr(0, about.find(',')), " ");
}

}  // namespace

void hideThisComputer(Scrubber& scrubber) {
  scrubber.setHome(TKSUtilBase::getRealHomeDirectory());
  // This user first: a directory of users may list none.
  if (const passwd* account = ::getpwuid(::getuid())) hideAccount(scrubber, *account);
  ::setpwent();
  while (const passwd* account = ::getpwent()) hideAccount(scrubber, *account);
  ::endpwent();
  char name[HOST_NAME_MAX + 1] = {};
  if (::gethostname(name, sizeof name - 1) != 0) return;
  const std::string_view whole = name;
  const std::string_view first = whole.substr(0, whole.find('.'));
  if (first == "localhost") return;
  scrubber.hide(Personal::host, whole);
  scrubber.hide(Personal::host, first);
}

}  // namespace tks::ctl
