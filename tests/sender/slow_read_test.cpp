// A repair's read from a slow disk, in the middle of which the host stops the transfer or starts another.
#include <gtest/gtest.h>

#include "protocol/datagrams.h"
#include "protocol/endpoints.h"
#include "receiver/ctrans_client.h"
#include "sender/ctrans_server.h"
#include "sim/world.h"

namespace quorl {
namespace {

using namespace std::chrono_literals;

/// The disk of a machine, of which one read takes long, and may fail then.
class SlowFiles : public Files {
 public:
  SlowFiles(Files& disk, Clock& clock) : disk(disk), clock(clock) {}

  void HoldUpNextRead(Duration pause, bool fails) {
    holdUp = pause;
    failsThen = fails;
  }
  bool IsHeldUp() const { return holdUp == Duration::zero(); }

  bool IsFile(const std::string& path) override { return disk.IsFile(path); }
  std::optional<std::vector<DirectoryEntry>> ListDirectory(const std::string& path) override {
    return disk.ListDirectory(path);
  }
  std::unique_ptr<InputFile> OpenInput(const std::string& path) override {
    auto file = disk.OpenInput(path);
    return file ? std::make_unique<SlowFile>(*this, std::move(file)) : nullptr;
  }

  // A sender writes nothing.
  void MakeTarget(const std::string&) override {}
  void CreateDirectories(const std::string&, const RelativePath&) override {}
  bool CanOpenOutput(const std::string&, const RelativePath&) override { return false; }
  OpenedOutput OpenOutput(const std::string&, const RelativePath&, WhenMissing) override { return {}; }

 private:
  class SlowFile : public InputFile {
   public:
    SlowFile(SlowFiles& files, std::unique_ptr<InputFile> file) : files(files), file(std::move(file)) {}
    std::optional<uint64_t> Length() override { return file->Length(); }
    std::optional<size_t> ReadAt(uint64_t offset, std::span<uint8_t> into) override {
      if (files.holdUp > Duration::zero()) {
        files.clock.Sleep(std::exchange(files.holdUp, Duration::zero()));
        if (files.failsThen) return std::nullopt;
      }
      return file->ReadAt(offset, into);
    }

   private:
    SlowFiles& files;
    const std::unique_ptr<InputFile> file;
  };

  Files& disk;
  Clock& clock;
  Duration holdUp = -1ns;
  bool failsThen = false;
};

/// A sender with such a disk and one receiver that loses block 0 of file 1 of every stream.
struct SlowRead : testing::TestWithParam<Profile> {
  SlowRead() {
    server.SetProfile(GetParam());
    client.SetProfile(GetParam());
    for (const char* folder : {"d", "e"}) {
      sender.Disk().WriteSynthetic(std::string("C:\\") + folder + "\\a", 5, static_cast<uint64_t>(*folder));
      sender.Disk().WriteSynthetic(std::string("C:\\") + folder + "\\z", 40 * BLOCK_SIZE, 7);
    }
    world.Net().SetFilter([](const sim::Transit& transit) {
      if (transit.datagram[2] != CMD_DATA) return true;
      const auto head = ReadFields<BlockHead>(transit.datagram);
      return head.file != 1 || head.block != 0;
    });
    receiver.Call([&] {
      client.InitClient(receiver.MakeWindow(), 0, 0, receiver.Address());
      client.StartReceive();
    });
    sender.Call([&] {
      server.InitServer(sender.MakeWindow(), 0, 0, sender.Address());
      server.SetTargetPath(0xFFFFFFFF, "C:\\in");
    });
  }

  void Send(const std::string& folder) {
    sender.Call([&] {
      server.SetSelectFiles({folder}, "");
      server.StartSend();
    });
  }

  /// Runs until the repair's read hangs.
  void RunIntoTheRead(Duration pause, bool fails) {
    ASSERT_TRUE(world.RunUntil([&] { return server.GetState().phase == SendPhase::Finishing; }, 10s));
    files.HoldUpNextRead(pause, fails);
    ASSERT_TRUE(world.RunUntil([&] { return files.IsHeldUp(); }, 10s));
    world.RunFor(10ms);
  }

  std::vector<uint32_t> SenderStatuses() {
    std::vector<uint32_t> statuses;
    for (const auto& message : sender.Messages())
      if (message.number == WM_TRANS_STATUS) statuses.push_back(static_cast<uint32_t>(message.wParam));
    return statuses;
  }

  size_t BlocksSentAfter(Moment moment) {
    size_t count = 0;
    for (const auto& sent : world.Net().Sent()) count += sent.at > moment && sent.bytes[2] == CMD_RESEND ? 1 : 0;
    return count;
  }

  sim::World world{1};
  sim::SimMachine& sender = world.AddMachine("sender", Ipv4(10, 0, 0, 1));
  sim::SimMachine& receiver = world.AddMachine("receiver", Ipv4(10, 0, 1, 1));
  const Machine& seam = sender.Seam();
  SlowFiles files{seam.files, seam.clock};
  CTransServer server{Machine{seam.clock, seam.threads, seam.network, files, seam.shell, seam.windows, seam.debug}};
  CTransClient client{receiver.Seam()};
};

INSTANTIATE_TEST_SUITE_P(Profiles, SlowRead, testing::Values(Profile::Classic, Profile::Robust),
                         [](const auto& profile) { return profile.param == Profile::Classic ? "Classic" : "Robust"; });

TEST_P(SlowRead, ABlockOfTheLastTransferDoesNotGetIntoTheNext) {
  Send("C:\\d");
  RunIntoTheRead(200ms, false);
  Send("C:\\e");
  ASSERT_TRUE(world.RunUntil([&] { return server.GetState().phase == SendPhase::Ended; }, 60s));
  world.RunFor(1s);
  EXPECT_TRUE(client.GetState().complete);
  EXPECT_TRUE(receiver.Disk().SameTree("C:\\in\\e", sender.Disk(), "C:\\e"));
}

TEST_P(SlowRead, NothingFollowsAStop) {
  Send("C:\\d");
  RunIntoTheRead(300ms, false);
  sender.Call([&] { server.StopSend(); });
  const Moment stopped = world.Now();
  world.RunFor(5s);
  EXPECT_EQ(BlocksSentAfter(stopped), 0u);
  EXPECT_EQ(SenderStatuses(), std::vector<uint32_t>{0});
}

TEST_P(SlowRead, AThreadThatHangsBeyondEveryWaitCannotEndTheNextTransfer) {
  Send("C:\\d");
  RunIntoTheRead(8s, true);
  Send("C:\\e");
  ASSERT_TRUE(world.RunUntil([&] { return client.GetState().complete; }, 60s));
  world.RunFor(10s);
  EXPECT_EQ(SenderStatuses(), std::vector<uint32_t>{0});
  EXPECT_TRUE(receiver.Disk().SameTree("C:\\in\\e", sender.Disk(), "C:\\e"));
}

}  // namespace
}  // namespace quorl
