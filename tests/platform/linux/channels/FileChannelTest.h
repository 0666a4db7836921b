#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "platform/platform.h"
#include "platform/posix/file_descriptor.h"
#include "tests/support/TemporaryFolder.h"

namespace tks::test {

inline void append(const std::string& path, std::string_view bytes) {
  const posix::FileDescriptor file(::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
  ASSERT_EQ(::write(file.get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
}

/// A conversation folder with one file in it.
class FileChannel : public testing::Test {
 protected:
  FileChannel() {
    std::filesystem::create_directory(folder);
    writeFile(path, "");
  }

  std::unique_ptr<platform::ByteSource> openSource() {
    TKSError error;
    auto source = platform::channels().fileSource(path, &error);
    EXPECT_NE(source, nullptr) << error.localizedDescription;
    return source;
  }
  std::shared_ptr<platform::ByteSink> openSink() {
    TKSError error;
    auto sink = platform::channels().fileSink(path, &error);
    EXPECT_NE(sink, nullptr) << error.localizedDescription;
    return sink;
  }

  const TemporaryFolder parent;
  const std::string folder = parent / "conversation";
  const std::string path = folder + "/messages";
};

}  // namespace tks::test
