// The exported functions as a host calls them: the shared library, this machine's loopback, real files. The sender is
// at 127.0.0.1 and the receiver at 127.0.0.2, both in this process.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <quorl/host.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <thread>

/// Allocations that the calling thread may still make, in this program and in the library; below 0, as at first, there
/// is no end of them.
extern thread_local int allocationsLeft;

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

struct Seen {
  uint32_t message;
  uintptr_t wParam;
  intptr_t lParam;
  std::string text;
};

/// A host window that keeps what it gets.
class Host {
 public:
  Host() : window(CreateHostWindow(&Host::Proc, this)) {}
  ~Host() { DestroyHostWindow(window); }

  QuorlWindow Window() const { return window; }

  bool WaitFor(const std::function<bool(const Seen&)>& wanted, std::chrono::seconds limit = 20s) {
    std::unique_lock lock(mutex);
    return arrived.wait_for(lock, limit, [&] { return std::any_of(seen.begin(), seen.end(), wanted); });
  }

  bool WaitForStatus(uintptr_t status, intptr_t lParam) {
    return WaitFor(
        [&](const Seen& s) { return s.message == WM_TRANS_STATUS && s.wParam == status && s.lParam == lParam; });
  }

  std::function<void(const Seen&)> onMessage = [](const Seen&) {};

 private:
  static void Proc(void* context, uint32_t message, uintptr_t wParam, intptr_t lParam) {
    auto* self = static_cast<Host*>(context);
    const bool isText = message == WM_FILE_NAME || (message == WM_TRANS_STATUS && wParam == 0 && lParam > 1);
    const Seen one{message, wParam, lParam, isText ? reinterpret_cast<const char*>(lParam) : ""};
    self->onMessage(one);
    const std::scoped_lock lock(self->mutex);
    self->seen.push_back(one);
    self->arrived.notify_all();
  }

  std::mutex mutex;
  std::condition_variable arrived;
  std::vector<Seen> seen;
  QuorlWindow window;
};

class Api : public testing::Test {
 protected:
  void SetUp() override {
    root = fs::temp_directory_path() / ("quorl-api-" + std::to_string(getpid()));
    fs::create_directories(root / "source");
    fs::create_directories(root / "target");
    ASSERT_EQ(MapDrive('D', (root / "source").c_str()), 1u);
  }

  void TearDown() override {
    DeInitServer();
    DeInitClient();
    SetReceiveRoot("");
    SetSendRate(0);
    SetSender(0);
    SetProfile(0);
    fs::remove_all(root);
  }

  std::string ReadTarget(const std::string& name) {
    std::ifstream file(root / "target" / name);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  /// Begins to send a file of that name.
  void Send(const std::string& name, size_t bytes, const char* autoOpenName = "") {
    std::ofstream(root / "source" / name) << std::string(bytes, 'q');
    ASSERT_EQ(SetReceiveRoot((root / "target").c_str()), 1u);
    ASSERT_EQ(InitClient(receiverHost.Window(), 0, port, inet_addr("127.0.0.2")), 1u);
    ASSERT_EQ(StartReceive(), 1u);
    ASSERT_EQ(InitServer(senderHost.Window(), 0, port, inet_addr("127.0.0.1")), 1u);
    const std::string path = "D:\\" + name;
    const char* const paths[] = {path.c_str()};
    ASSERT_EQ(SetSelectFiles(paths, 1, autoOpenName), 1);
    ASSERT_EQ(StartSend(), 1u);
  }

  static uint64_t Counter(std::string_view name) {
    std::vector<QuorlCounter> counters(GetCounters(nullptr, 0), {.size = sizeof(QuorlCounter)});
    EXPECT_EQ(GetCounters(counters.data(), static_cast<uint32_t>(counters.size())), counters.size());
    const auto found =
        std::find_if(counters.begin(), counters.end(), [&](const auto& one) { return one.name == name; });
    EXPECT_NE(found, counters.end()) << name;
    return found == counters.end() ? 0 : found->value;
  }

  fs::path root;
  const uint32_t port = static_cast<uint32_t>(20000 + getpid() % 20000);
  Host senderHost, receiverHost;
};

TEST_F(Api, ExportsInAnyOrderDoNoHarm) {
  for (int round = 0; round < 2; ++round) {
    for (const auto call : {DeInitClient, DeInitServer, StartReceive, StopReceive, StopSend, StartSend})
      EXPECT_EQ(call(), 1u);
    uint32_t errors[401] = {7};
    EXPECT_EQ(GetErrInfo(errors), 0u);
    EXPECT_EQ(errors[0], 0u);
    EXPECT_EQ(GetErrInfo(nullptr), 0u);
    EXPECT_EQ(GetReceivers(nullptr, 5), 0u);
  }
  const char* nothing = nullptr;
  EXPECT_EQ(SetSelectFiles(&nothing, 1, nullptr), 3) << "a null path is an empty one, which is too short";
  EXPECT_EQ(SetSelectFiles(nullptr, 3, nullptr), 1) << "a null array is an empty one";
  EXPECT_EQ(SetProfile(3), 0u);
  EXPECT_EQ(MapDrive('1', "/"), 0u);
  EXPECT_EQ(MapDrive('E', "/nowhere/at/all"), 0u);
  EXPECT_EQ(SetReceiveRoot("/nowhere/at/all"), 0u);
  DestroyHostWindow(nullptr);
}

TEST_F(Api, AFileArrivesAndBothHostsAreTold) {
  Send("file.bin", 30000);
  uint32_t address = 0;
  EXPECT_EQ(GetReceivers(&address, 1), 1u);
  EXPECT_EQ(address, inet_addr("127.0.0.2"));
  EXPECT_TRUE(receiverHost.WaitForStatus(0, 1));
  EXPECT_TRUE(senderHost.WaitForStatus(0, 0));
  EXPECT_TRUE(receiverHost.WaitFor([](const Seen& s) { return s.message == WM_FILE_NAME && s.text == "\\file.bin"; }));
  EXPECT_TRUE(ReadTarget("file.bin") == std::string(30000, 'q'));

  QuorlReceiveState received{.size = sizeof received};
  EXPECT_EQ(GetReceiveState(&received), 1u);
  EXPECT_EQ(received.complete, 1u);
  EXPECT_EQ(received.blocksStored, 8u);
  EXPECT_EQ(received.bytesStored, 30000u);
  EXPECT_EQ(received.senderAddress, inet_addr("127.0.0.1"));
  EXPECT_STREQ(received.currentFile, "\\file.bin");
  EXPECT_GT(Counter("sender.datagrams_out"), 8u);
  EXPECT_GT(Counter("receiver.bytes_in"), 30000u);
  EXPECT_EQ(Counter("receiver.dropped.stranger"), 0u);
  QuorlReceiverState row{.size = sizeof row};
  EXPECT_EQ(GetReceiverStates(&row, 1), 1u);
  EXPECT_EQ(row.state, uint32_t{QUORL_RECEIVER_COMPLETE});
}

TEST_F(Api, AStructureIsFilledAsFarAsTheHostKnowsIt) {
  QuorlSendState tooSmall{.size = offsetof(QuorlSendState, blocksResent), .phase = 99};
  EXPECT_EQ(GetSendState(&tooSmall), 0u);
  EXPECT_EQ(tooSmall.phase, 99u);
  struct OfTomorrow {
    QuorlCounter counter;
    uint64_t later;
  };
  std::vector<OfTomorrow> counters(GetCounters(nullptr, 0), {{}, 7});
  EXPECT_EQ(GetCounters(&counters[0].counter, 2), 0u) << "no size";
  counters[0].counter.size = sizeof(OfTomorrow);
  EXPECT_EQ(GetCounters(&counters[0].counter, static_cast<uint32_t>(counters.size())), counters.size());
  for (const OfTomorrow& one : counters)
    EXPECT_TRUE(one.counter.name && one.counter.size == sizeof(OfTomorrow) && one.later == 7);
}

TEST_F(Api, NoShortageOfMemoryCrossesTheBoundary) {
  const std::string path = (root / "source").string();
  const char* const selected[] = {"D:\\a name that is too long to be kept without memory"};
  SetProfile(1);
  // Each answers what it does when it has failed.
  const std::vector<std::pair<std::function<int64_t()>, int64_t>> calls{
      {[&] { return InitServer(senderHost.Window(), 0, port, inet_addr("127.0.0.1")); }, 0},
      {[&] { return SetSelectFiles(selected, 1, ""); }, 6},
      {[&] { return SetTargetPath(0, selected[0]); }, 1},
      {[&] { return SetSubDirTrans(1); }, 1},
      {[&] { return StartSend(); }, 1},
      {[&] { return InitClient(receiverHost.Window(), 0, port, inet_addr("127.0.0.2")); }, 0},
      {[&] { return StartReceive(); }, 1},
      {[&] { return DeInitClient(); }, 1},
      {[&] { return MapDrive('D', path.c_str()); }, 0},
      {[&] { return SetReceiveRoot(path.c_str()); }, 0},
      {[&] { return GetCounters(nullptr, 0); }, 0},
      {[] { return CreateHostWindow([](void*, uint32_t, uintptr_t, intptr_t) {}, nullptr) ? 1 : 0; }, 0}};
  for (int allowed = 0; allowed < 8; ++allowed) {
    for (size_t i = 0; i < calls.size(); ++i) {
      allocationsLeft = allowed;
      const int64_t answer = calls[i].first();
      allocationsLeft = -1;
      EXPECT_TRUE(allowed > 0 || answer == calls[i].second) << "call " << i << " answers " << answer;
    }
  }
}

TEST_F(Api, TheWindowsOwnProcMayTearTheReceiverDown) {
  SetProfile(1);
  std::atomic<bool> tornDown = false;
  receiverHost.onMessage = [&](const Seen& s) {
    if (s.message == WM_TRANS_STATUS && s.lParam > 1) tornDown = DeInitClient() == 1;
  };
  Send("start.html", 100, "\\start.html");
  EXPECT_TRUE(receiverHost.WaitFor([&](const Seen& s) { return s.text.ends_with("\\target\\start.html"); }));
  EXPECT_TRUE(tornDown);
}

TEST_F(Api, TearingDownInTheMiddleOfTheStream) {
  SetProfile(1);
  Send("big.bin", 3'000'000);
  EXPECT_TRUE(receiverHost.WaitFor([](const Seen& s) { return s.message == WM_FILE_NAME; }));
  DestroyHostWindow(senderHost.Window());
  senderHost.onMessage = [](const Seen&) { ADD_FAILURE() << "a destroyed window gets nothing"; };
  DeInitServer();
  DeInitClient();
  std::this_thread::sleep_for(200ms);
}

}  // namespace
