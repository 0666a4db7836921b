#pragma once

#include "platform/platform.h"

namespace tks::test {

/// Files that pass everything on to those that were in force before, for a scope. Tests override what is to fail.
class ForwardingFiles : public platform::Files {
 public:
  bool exists(std::string_view path) override { return real().exists(path); }
  bool isDirectory(std::string_view path) override { return real().isDirectory(path); }
  bool isLink(std::string_view path) override { return real().isLink(path); }
  bool isSameItem(std::string_view one, std::string_view other) override { return real().isSameItem(one, other); }
  bool liesWithin(std::string_view folder, std::string_view outer) override { return real().liesWithin(folder, outer); }
  bool isExecutableFile(std::string_view path) override { return real().isExecutableFile(path); }
  bool isWritable(std::string_view path) override { return real().isWritable(path); }
  std::optional<std::uint64_t> size(std::string_view path, TKSError* error) override {
    return real().size(path, error);
  }
  std::optional<std::vector<std::string>> list(std::string_view path, TKSError* error) override {
    return real().list(path, error);
  }
  bool createDirectory(std::string_view path, std::uint32_t permissions, TKSError* error) override {
    return real().createDirectory(path, permissions, error);
  }
  bool createNewDirectory(std::string_view path, std::uint32_t permissions, TKSError* error) override {
    return real().createNewDirectory(path, permissions, error);
  }
  bool usePrivateDirectory(std::string_view path, TKSError* error) override {
    return real().usePrivateDirectory(path, error);
  }
  std::optional<std::string> makePrivateDirectory(std::string_view beginning, TKSError* error) override {
    return real().makePrivateDirectory(beginning, error);
  }
  bool createFile(std::string_view path, std::uint32_t permissions, TKSError* error) override {
    return real().createFile(path, permissions, error);
  }
  bool remove(std::string_view path, TKSError* error) override { return real().remove(path, error); }
  bool removeEmptyDirectory(std::string_view path, TKSError* error) override {
    return real().removeEmptyDirectory(path, error);
  }
  bool copy(std::string_view from, std::string_view to, TKSError* error) override {
    return real().copy(from, to, error);
  }
  bool copyContent(std::string_view from, std::string_view to, TKSError* error) override {
    return real().copyContent(from, to, error);
  }
  bool visitTree(std::string_view folder, const std::function<bool(const platform::TreeItem&)>& visit,
                 TKSError* error) override {
    return real().visitTree(folder, visit, error);
  }
  bool move(std::string_view from, std::string_view to, TKSError* error) override {
    return real().move(from, to, error);
  }
  bool exchange(std::string_view first, std::string_view second, TKSError* error) override {
    return real().exchange(first, second, error);
  }
  std::unique_ptr<platform::FileLock> lock(std::string_view path, std::chrono::milliseconds patience,
                                           TKSError* error) override {
    return real().lock(path, patience, error);
  }
  std::optional<TKSData> read(std::string_view path, std::size_t limit, TKSError* error) override {
    return real().read(path, limit, error);
  }
  bool writeAtomically(std::string_view path, std::span<const std::uint8_t> content, TKSError* error) override {
    return real().writeAtomically(path, content, error);
  }
  std::optional<std::string> writableByOthers(std::string_view path, platform::Reach reach, TKSError* error) override {
    return real().writableByOthers(path, reach, error);
  }
  std::optional<TKSData> changeMark(std::string_view path, TKSError* error) override {
    return real().changeMark(path, error);
  }
  std::optional<platform::FileAttributes> attributes(std::string_view path, TKSError* error) override {
    return real().attributes(path, error);
  }
  std::optional<std::uint32_t> permissions(std::string_view path, TKSError* error) override {
    return real().permissions(path, error);
  }
  bool setPermissions(std::string_view path, std::uint32_t permissions, TKSError* error) override {
    return real().setPermissions(path, permissions, error);
  }
  int removeExtendedAttribute(std::string_view path, std::string_view name) override {
    return real().removeExtendedAttribute(path, name);
  }
  std::optional<platform::VolumeSpace> volumeSpace(std::string_view path, TKSError* error) override {
    return real().volumeSpace(path, error);
  }

 protected:
  platform::Files& real() const { return replaced_.before(); }

 private:
  platform::Replaced<platform::Files> replaced_{*this};
};

}  // namespace tks::test
