// A sender and a receiver with the threads, sockets and files of this machine, over its loopback, which loses nothing:
// so the receiver's network loses every so many-th datagram. For the thread sanitizer above all, which knows what the
// threads here can do to each other.
#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "platform/real_machine.h"
#include "protocol/endpoints.h"
#include "receiver/ctrans_client.h"
#include "sender/ctrans_server.h"
#include "tests/platform/temp_directory.h"

namespace quorl {
namespace {

using namespace std::chrono_literals;

// Other runs on this machine have rooms of their own.
const uint32_t PORT = 20000 + static_cast<uint32_t>(getpid() % 8000);

class LossySocket final : public DatagramSocket {
 public:
  explicit LossySocket(std::shared_ptr<DatagramSocket> real) : real(std::move(real)) {}

  bool SetReuseAddress() override { return real->SetReuseAddress(); }
  bool Bind(Endpoint local) override { return real->Bind(local); }
  bool SetReceiveBuffer(size_t bytes) override { return real->SetReceiveBuffer(bytes); }
  bool SetMulticastInterface(uint32_t address) override { return real->SetMulticastInterface(address); }
  bool SetTimeToLive(uint8_t hops) override { return real->SetTimeToLive(hops); }
  bool JoinGroup(uint32_t group, uint32_t address) override { return real->JoinGroup(group, address); }
  bool LeaveGroup(uint32_t group, uint32_t address) override { return real->LeaveGroup(group, address); }
  bool SetNonBlocking() override { return real->SetNonBlocking(); }
  bool Send(std::span<const uint8_t> datagram, Endpoint to, const SendWait& wait) override {
    return real->Send(datagram, to, wait);
  }
  Received Receive(std::span<uint8_t> buffer, Duration limit, Event* interrupt) override {
    for (;;) {
      const Received received = real->Receive(buffer, limit, interrupt);
      if (received.outcome != Received::Outcome::Datagram || ++count % 20 != 0) return received;
    }
  }
  void Close() override { real->Close(); }

 private:
  const std::shared_ptr<DatagramSocket> real;
  uint64_t count = 0;
};

class LossyNetwork final : public Network {
 public:
  bool Start() override { return RealMachine().network.Start(); }
  void Stop() override { RealMachine().network.Stop(); }
  std::shared_ptr<DatagramSocket> OpenDatagramSocket() override {
    return std::make_shared<LossySocket>(RealMachine().network.OpenDatagramSocket());
  }
};

TEST(RealThreads, AnswerTheirHostWhileALongTransferWithLossesRuns) {
  TempDirectory source, target;
  const std::string text(1500 * size_t{BLOCK_SIZE} + 1, 'x');
  WriteText(source / "a", text);
  ASSERT_TRUE(MapDrive('S', source.Path()) && MapDrive('T', target.Path()));
  const Machine& real = RealMachine();
  LossyNetwork lossy;
  CTransClient client({real.clock, real.threads, lossy, real.files, real.shell, real.windows, real.debug});
  CTransServer server(real);
  client.SetProfile(Profile::Robust);
  server.SetProfile(Profile::Robust);
  client.SetReceiveRoot("T:\\");
  server.SetSendRate(30'000);
  ASSERT_EQ(client.InitClient(nullptr, 0, PORT, Ipv4(127, 0, 0, 2)), 1u);
  client.StartReceive();
  ASSERT_EQ(server.InitServer(nullptr, 0, PORT, Ipv4(127, 0, 0, 1)), 1u);
  ASSERT_EQ(server.SetSelectFiles({"S:\\a"}, ""), 1);
  server.StartSend();
  const auto end = std::chrono::steady_clock::now() + 60s;
  uint64_t stored = 0;
  while (client.GetState().phase != ReceivePhase::Complete && std::chrono::steady_clock::now() < end) {
    const ReceiveState state = client.GetState();
    EXPECT_GE(state.blocksStored, stored);
    stored = state.blocksStored;
    server.GetState();
    client.GetCounters();
    server.GetCounters();
    std::this_thread::sleep_for(1ms);
  }
  EXPECT_GT(server.GetState().blocksResent, 30u);
  EXPECT_TRUE(ReadText(target / "a") == text);
  server.DeInitServer();
  client.DeInitClient();
}

}  // namespace
}  // namespace quorl
