#include "tools/tksctl/parts/file_content.h"

#include <stdexcept>
#include <utility>

#include <tksinterface/TKSError.h>

#include "platform/platform.h"

namespace tks::ctl {

TKSData contentOf(const std::string& path, std::size_t most) {
  TKSError error;
  auto content = platform::files().read(path, most, &error);
  if (!content) throw std::runtime_error("cannot read " + path + ": " + error.localizedDescription);
  return *std::move(content);
}

}  // namespace tks::ctl
