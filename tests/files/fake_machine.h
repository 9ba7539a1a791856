// A machine whose directories, shell and clock a test sets up by hand, so that it decides the order in which a
// directory names its entries and what the shell knows.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/machine.h"

namespace quorl {

class FakeInputFile : public InputFile {
 public:
  explicit FakeInputFile(uint64_t length) : length(length) {}
  std::optional<uint64_t> Length() override { return length; }
  std::optional<size_t> ReadAt(uint64_t, std::span<uint8_t>) override { return std::nullopt; }

 private:
  const uint64_t length;
};

class FakeFiles : public Files {
 public:
  /// Entries in the order in which they are to be named; one that ends with a slash is a directory.
  void Directory(const std::string& path, const std::vector<std::string>& names) {
    std::vector<DirectoryEntry>& listing = listings[path];
    for (const std::string& name : names) {
      const bool isDirectory = name.ends_with('/');
      listing.push_back({isDirectory ? name.substr(0, name.size() - 1) : name, isDirectory});
      if (!isDirectory) lengths[path + '\\' + name] = 0;
    }
  }

  bool IsFile(const std::string& path) override { return lengths.count(path) != 0; }

  std::optional<std::vector<DirectoryEntry>> ListDirectory(const std::string& path) override {
    if (!everyDirectoryHolds.empty()) return everyDirectoryHolds;
    const auto found = listings.find(path.ends_with('\\') ? path.substr(0, path.size() - 1) : path);
    return found == listings.end() ? std::nullopt : std::optional(found->second);
  }

  std::unique_ptr<InputFile> OpenInput(const std::string& path) override {
    if (unreadable.count(path) != 0) return nullptr;
    return std::make_unique<FakeInputFile>(lengths.at(path));
  }

  void MakeTarget(const std::string&) override {}
  void CreateDirectories(const std::string& base, const RelativePath& name) override {
    created.emplace_back(base, name.Components());
  }
  bool CanOpenOutput(const std::string&, const RelativePath&) override { return false; }
  OpenedOutput OpenOutput(const std::string&, const RelativePath&, WhenMissing) override { return {}; }

  std::map<std::string, std::vector<DirectoryEntry>> listings;
  std::map<std::string, uint64_t> lengths;
  std::set<std::string> unreadable;
  std::vector<DirectoryEntry> everyDirectoryHolds;
  std::vector<std::pair<std::string, std::vector<std::string>>> created;
};

class FakeShell : public Shell {
 public:
  bool IsNtPlatform() override { return isNt; }
  SpecialFolder LookUpFolder(uint32_t folder) override { return folders[folder]; }
  std::optional<std::string> AccountName() override { return account; }
  std::optional<std::string> ComputerName() override { return "PC7"; }
  std::optional<std::string> ReadLogonValue(const std::string& key, const std::string& name) override {
    const auto found = logonValues.find(key + "|" + name);
    return found == logonValues.end() ? std::nullopt : std::optional(found->second);
  }
  std::string ThroughWideText(std::string text) override { return "wide " + text; }
  DriveType DriveTypeOf(const std::string& directory) override {
    askedAbout = directory;
    return driveType;
  }
  bool HasExtendedFreeSpaceQuery() override { return failingLookups-- <= 0; }
  std::optional<uint64_t> FreeBytes(const std::string& directory) override {
    EXPECT_EQ(directory, askedAbout);
    return freeBytes;
  }
  std::optional<FreeClusters> QueryFreeClusters(const std::string& directory) override {
    EXPECT_EQ(directory, askedAbout);
    return freeClusters;
  }

  bool isNt = true;
  std::map<uint32_t, SpecialFolder> folders;
  std::optional<std::string> account;
  std::map<std::string, std::string> logonValues;  // "key|name"
  DriveType driveType = DriveType::Fixed;
  int failingLookups = 0;
  std::optional<uint64_t> freeBytes;
  std::optional<FreeClusters> freeClusters;
  std::string askedAbout;
};

class FakeClock : public Clock {
 public:
  Moment Now() override { return now; }
  void SleepUntil(Moment moment) override { now = moment; }
  Moment now{};
};

class FakeDebug : public DebugOutput {
 public:
  void Write(std::string_view line) override { text += line; }
  std::string Take() { return std::exchange(text, ""); }
  std::string text;
};

// What the files floor has no business with.
class NoThreads : public Threads {
 public:
  std::shared_ptr<Event> MakeEvent() override { return nullptr; }
  std::shared_ptr<Thread> Start(const char*, Priority, std::function<void()>) override { return nullptr; }
};

class NoNetwork : public Network {
 public:
  bool Start() override { return false; }
  void Stop() override {}
  std::shared_ptr<DatagramSocket> OpenDatagramSocket() override { return nullptr; }
};

class NoWindows : public Windows {
 public:
  bool IsWindow(QuorlWindow) override { return false; }
  bool Post(QuorlWindow, HostMessage) override { return true; }
  void Send(QuorlWindow, HostMessage) override {}
};

class FakeMachineTest : public testing::Test {
 protected:
  FakeFiles files;
  FakeShell shell;
  FakeClock clock;
  FakeDebug debug;
  NoThreads threads;
  NoNetwork network;
  NoWindows windows;
  const Machine machine{clock, threads, network, files, shell, windows, debug};
};

}  // namespace quorl
