// From what a transfer has left in staging to files under their names: what is moved, what is kept and who goes on from
// it, and calls of the system that fail.
#include "cli/transfer/delivery.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <cerrno>

#include "cli/transfer/inventory.h"
#include "temp_tree.h"
#include "tests/failing_call.h"

namespace quorl::cli {
namespace {

namespace fs = std::filesystem;

constexpr FileTime THEN{7, 0};
constexpr uint64_t PART = 9000;  // bytes, in three blocks

class DeliveryTest : public TempTreeTest {
 protected:
  DeliveryTest() { fs::create_directory(root / "in"); }

  std::string In() const { return (root / "in").native(); }

  /// These files have come; each holds its name.
  void Bring(Staging& staging, const std::vector<std::string>& names) {
    staging.Prepare([&](const std::string& prepared) { return fs::exists(path = prepared); });
    staging.Begin();
    fs::create_directory(path);
    for (const std::string& name : names) Write(path / name, name);
  }

  /// The same, and all of it: an end without faults.
  RoundEnd BringAll(Staging& staging, const std::vector<std::string>& names) {
    Bring(staging, names);
    Manifest manifest;
    manifest.onlyFor = onlyFor;
    manifest.emptyDirectories = {"new"};
    for (const std::string& name : names) manifest.files.push_back({name, name.size(), DigestOf(name), THEN, false});
    Write(path / MANIFEST_NAME, FormatManifest(manifest, nullptr));
    RoundEnd end;
    end.announced = true;
    end.state = {.complete = 1, .files = static_cast<uint32_t>(names.size() + 1)};
    return end;
  }

  fs::path path;  ///< Of staging.
  std::vector<uint32_t> onlyFor;
};

TEST_F(DeliveryTest, ACallThatFailsOrAStopIsNoGoodEnd) {
  Staging stopped(In());
  DeliveryRules stops;
  stops.progress = [](uint64_t) { return false; };
  EXPECT_TRUE(Deliver(stopped, BringAll(stopped, {"a"}), stops).interrupted);
  onlyFor = {1};
  stops.progress = nullptr;
  EXPECT_TRUE(Deliver(stopped, BringAll(stopped, {"a"}), stops).notMeant) << "for another";
  onlyFor.clear();
  Write("in/file", "another");
  using Names = std::vector<std::string>;
  for (const auto& [call, error, names, exit] : {std::tuple{SYS_fsync, EIO, Names{"a"}, Exit::LocalFiles},
                                                 {SYS_fsync, EIO, {}, Exit::LocalFiles},  // of the directories
                                                 {SYS_renameat2, EDQUOT, {"a"}, Exit::NoRoom},
                                                 {SYS_renameat2, ENOSPC, {"a", "file/below"}, Exit::NoRoom},
                                                 {SYS_renameat2, EIO, {"a"}, Exit::LocalFiles},
                                                 {SYS_utimensat, EPERM, {"a"}, Exit::NotVerified},
                                                 {SYS_fchmod, EPERM, {"a"}, Exit::NotVerified}}) {
    SCOPED_TRACE(std::to_string(call) + " " + std::to_string(error));
    Staging staging(In());
    const RoundEnd end = BringAll(staging, names);
    DeliveryRules rules;
    rules.move.sync = true;
    ReceiveResult result;
    if (!WhileCallFails(call, error, [&] { result = Deliver(staging, end, rules); }))
      GTEST_SKIP() << "calls cannot be made to fail here";
    EXPECT_EQ(result.Code(), exit);
    EXPECT_TRUE(result.moved.moved.empty());
    EXPECT_FALSE(fs::exists(root / "in/a"));
  }
}

TEST_F(DeliveryTest, WhatABrokenTransferLeavesIsCheckedOrKeptAndOneReceiverGoesOnFromIt) {
  Manifest catalogue;
  for (const char* name : {"right", "wrong", "part", "grown"})
    catalogue.files.push_back({name, std::string(name).size(), Digest{}, THEN, false});
  catalogue.files[2].size = PART;
  RoundEnd end;
  end.announced = end.stopped = true;
  for (uint32_t file = 1; file <= 4; ++file)
    end.stored.push_back({sizeof(QuorlBlocks), file, 0, 1, file == 3 ? PART : 5});
  end.stored.back().length = 6;  // It was announced with another one.
  end.digests = {{1, DigestOf("right")}, {2, DigestOf("other")}};
  const ManifestKey key{DigestOf("key")};
  DeliveryRules rules;
  rules.catalogue = &catalogue;
  const auto deliver = [&](Staging& staging) {
    Bring(staging, {"right", "wrong", "part", "grown"});
    return Deliver(staging, end, rules);
  };
  {
    rules.key = &key;
    Staging staging(In());
    EXPECT_EQ(deliver(staging).filesKept, 3u) << "nobody vouches for what the sender says on the way";
    EXPECT_FALSE(fs::exists(root / "in/right"));
  }
  rules.key = nullptr;
  {
    Staging staging(In());
    for (const long call : {SYS_pwrite64, SYS_close}) {
      Bring(staging, {"part"});
      ReceiveResult result;
      if (WhileCallFails(call, ENOSPC, [&] { result = Deliver(staging, end, rules); })) {
        EXPECT_EQ(result.filesKept, 0u) << "without its record it is worth nothing";
      }
    }
    const ReceiveResult result = deliver(staging);
    EXPECT_EQ(result.moved.moved.size(), 1u);
    EXPECT_TRUE(fs::exists(root / "in/right"));
    EXPECT_EQ(result.filesKept, 1u);
    EXPECT_TRUE(Staging(In()).KeptFiles().files.empty()) << "who has kept it goes on from it";
  }
  Staging staging(In());
  EXPECT_EQ(staging.StaleRemoved(), 0u);
  ASSERT_EQ(staging.KeptFiles().files.size(), 1u);
  EXPECT_TRUE(Staging(In()).KeptFiles().files.empty());
  EXPECT_TRUE(TakeInventory(catalogue, staging, {}).held.empty()) << "nobody knows of what it is a part";
  catalogue.files[2].digest = DigestOf("all of it");
  EXPECT_EQ(TakeInventory(catalogue, staging, {}).held.size(), 1u);
  catalogue.files[2].written = {8, 0};
  EXPECT_TRUE(TakeInventory(catalogue, staging, {}).held.empty()) << "it is another one by now";
  staging.UseKept({"part"});
  staging.Prepare([](const std::string&) { return true; });
  staging.Begin();
  EXPECT_TRUE(staging.Holds("part"));
  EXPECT_TRUE(staging.Holds(std::string(RECORD_NAME))) << "the next one goes on from a receiver that is killed now";
}

}  // namespace
}  // namespace quorl::cli
