#include "tools/tksctl/parts/browsers.h"

#include <tksinterface/TKSUtilBase.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

namespace tks::ctl {
namespace {

constexpr Browser kBrowsers[] = {
    {"chromium", "Chromium", "chromium", "NativeMessagingHosts", false, "/etc/chromium/native-messaging-hosts", false},
    {"chrome", "Chrome", "google-chrome", "NativeMessagingHosts", false, "/etc/opt/chrome/native-messaging-hosts",
     false},
    {"edge", "Edge", "microsoft-edge", "NativeMessagingHosts", false, "/etc/opt/edge/native-messaging-hosts", false},
    {"brave", "Brave", "BraveSoftware/Brave-Browser", "NativeMessagingHosts", false,
     "/etc/chromium/native-messaging-hosts", false},
    {"firefox", "Firefox", ".mozilla", "native-messaging-hosts", true, "/usr/lib/mozilla/native-messaging-hosts", true},
};

std::string environmentPath(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr && *value == '/' ? value : "";
}

std::string home() {
  const std::string named = environmentPath("HOME");
  return named.empty() ? TKSUtilBase::getRealHomeDirectory() : named;
}

std::string settingsOf(const Browser& browser) {
  if (browser.isInHome) return home() + "/" + std::string(browser.settings);
  const std::string named = environmentPath("XDG_CONFIG_HOME");
  return (named.empty() ? home() + "/.config" : named) + "/" + std::string(browser.settings);
}

}  // namespace

std::span<const Browser> browsers() { return kBrowsers; }

const Browser* browserNamed(std::string_view name) {
  const auto* const found = std::ranges::find(kBrowsers, name, &Browser::name);
  return found == std::end(kBrowsers) ? nullptr : found;
}

std::string manifestFolder(const Browser& browser, bool system) {
  if (system) return std::string(browser.systemManifests);
  return settingsOf(browser) + "/" + std::string(browser.manifests);
}

bool isUsed(const Browser& browser) {
  std::error_code unreadable;
  return std::filesystem::is_directory(settingsOf(browser), unreadable);
}

bool isHostName(std::string_view name) {
  const auto isLetter = [](char one) {
    return (one >= 'a' && one <= 'z') || (one >= '0' && one <= '9') || one == '_' || one == '.';
  };
  return !name.empty() && std::ranges::all_of(name, isLetter) && !name.starts_with('.') && !name.ends_with('.') &&
         name.find("..") == name.npos;
}

}  // namespace tks::ctl
