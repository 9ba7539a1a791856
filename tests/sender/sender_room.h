// A sender in a simulated room, with receivers that follow a script of a few lines.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "protocol/datagrams.h"
#include "protocol/endpoints.h"
#include "sender/ctrans_server.h"
#include "sim/world.h"

namespace quorl {

using namespace std::chrono_literals;

constexpr Endpoint SENDER_REPLIES{Ipv4(10, 0, 0, 1), 27003};
constexpr Endpoint DATA_GROUP{DEFAULT_GROUP, DEFAULT_PORT};

inline int64_t Milliseconds(Moment moment) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(moment).count();
}

/// Answers the collection; what it does about everything else is the script's affair.
class ScriptedReceiver {
 public:
  using Script = std::function<void(ScriptedReceiver&, const FromSender&)>;

  ScriptedReceiver(sim::World& world, int number, Script newScript, uint8_t platform)
      : machine(world.AddMachine("r" + std::to_string(number), Ipv4(10, 0, 1, static_cast<uint8_t>(number)))),
        script(std::move(newScript)),
        platform(platform) {
    machine.Spawn("receiver", [this] { Listen(); });
  }

  template <typename Message>
  void Reply(const Message& message) {
    socket->Send(Build(message), SENDER_REPLIES);
  }

  /// How many datagrams of the kind have come.
  template <typename Message>
  int Count() const {
    int count = 0;
    for (const FromSender& message : heard) count += std::holds_alternative<Message>(message);
    return count;
  }

  void SetScript(Script newScript) { script = std::move(newScript); }

  sim::SimMachine& machine;
  std::vector<FromSender> heard;  ///< Without the bytes of blocks.

 private:
  void Listen() {
    socket = machine.Seam().network.OpenDatagramSocket();
    socket->SetReuseAddress();
    socket->Bind({machine.Address(), DATA_GROUP.port});
    socket->JoinGroup(DATA_GROUP.address, machine.Address());
    std::vector<uint8_t> buffer(MAX_EMPTY_DIR_DATAGRAM);
    while (true) {
      const Received received = socket->Receive(buffer, FOREVER, nullptr);
      if (received.outcome != Received::Outcome::Datagram) return;
      FromSender message = ParseFromSender(std::span(buffer).first(received.length));
      if (auto* data = std::get_if<Data>(&message)) data->bytes = {};
      if (auto* resend = std::get_if<Resend>(&message)) resend->bytes = {};
      heard.push_back(message);
      if (std::holds_alternative<Collect>(message)) Reply(Client{platform});
      if (script) script(*this, message);
    }
  }

  Script script;
  const uint8_t platform;
  std::shared_ptr<DatagramSocket> socket;
};

/// A receiver that misses the given blocks: a complete one when there are none. Asks for them one by one.
inline ScriptedReceiver::Script Missing(std::vector<Ack> blocks, uint32_t fileCount) {
  auto left = std::make_shared<std::vector<Ack>>(std::move(blocks));
  auto isMaster = std::make_shared<bool>(false);
  auto answered = std::make_shared<bool>(false);
  return [=](ScriptedReceiver& self, const FromSender& message) {
    if (std::holds_alternative<Finish>(message) && !*answered) {
      *answered = true;
      self.Reply(Answer{static_cast<uint32_t>(left->size())});
    }
    if (const auto* resend = std::get_if<Resend>(&message))
      std::erase_if(*left,
                    [&](const Ack& ack) { return ack.file == resend->head.file && ack.block == resend->head.block; });
    if (const auto* master = std::get_if<Master>(&message)) {
      *isMaster = true;
      if (master->state == 0 && left->empty()) return self.Reply(Finish{0});
    } else if (!std::holds_alternative<Resend>(message) || !*isMaster) {
      return;
    }
    self.Reply(left->empty() ? Ack{fileCount + 1, 0} : left->front());
  };
}

class SenderRoom : public testing::Test {
 protected:
  ScriptedReceiver& AddReceiver(ScriptedReceiver::Script script = {}, uint8_t platform = 1) {
    receivers.push_back(
        std::make_unique<ScriptedReceiver>(world, static_cast<int>(receivers.size()), std::move(script), platform));
    return *receivers.back();
  }

  uint32_t Init() {
    uint32_t result = 0;
    machine.Call([&] { result = server.InitServer(window, 0, 0, machine.Address()); });
    return result;
  }
  void Select(const std::string& path, const std::string& autoOpenName = {}) {
    server.SetSubDirTrans(1);
    ASSERT_EQ(server.SetSelectFiles({path}, autoOpenName), 1);
  }
  void Start() {
    machine.Call([&] { server.StartSend(); });
  }
  /// Three files of 1, 2 and 3 blocks beneath C:\data.
  void WriteThreeFiles() {
    machine.Disk().Write("C:\\data\\a", "first");
    machine.Disk().WriteSynthetic("C:\\data\\b", BLOCK_SIZE, 1);
    machine.Disk().WriteSynthetic("C:\\data\\c", 2 * BLOCK_SIZE + 1, 2);
  }

  bool RunUntilStatus(Duration limit = 120s) {
    return world.RunUntil([&] { return !Statuses().empty(); }, limit);
  }
  /// The codes of WM_TRANS_STATUS so far.
  std::vector<uint32_t> Statuses() const {
    std::vector<uint32_t> codes;
    for (const auto& message : machine.Messages())
      if (message.number == WM_TRANS_STATUS) codes.push_back(static_cast<uint32_t>(message.wParam));
    return codes;
  }
  /// What the sender has sent from `since` on: milliseconds since then, and the datagram without its names.
  std::vector<std::string> SentSince(Moment since) const {
    std::vector<std::string> lines;
    for (const auto& sent : world.Net().Sent()) {
      if (sent.from != &machine || sent.at < since) continue;
      const std::string text = Describe(sent.bytes);
      lines.push_back(std::to_string(Milliseconds(sent.at - since)) + " " + text.substr(0, text.find(" name=")));
    }
    return lines;
  }
  int CountDebug(const std::string& line) const {
    return static_cast<int>(std::count(machine.DebugLines().begin(), machine.DebugLines().end(), line));
  }
  std::vector<uint32_t> ErrInfo() {
    std::vector<uint32_t> info(401);
    const uint32_t count = server.GetErrInfo(info.data());
    EXPECT_EQ(info[0], count);
    info.resize(1 + 2 * count);
    info.erase(info.begin());
    return info;
  }
  void FailSends() {
    machine.FailEvery([](std::string_view call) { return call == "network.send"; });
  }

  mutable sim::World world{1};
  sim::SimMachine& machine = world.AddMachine("sender", Ipv4(10, 0, 0, 1));
  std::vector<std::unique_ptr<ScriptedReceiver>> receivers;
  CTransServer server{machine.Seam()};
  QuorlWindow window = machine.MakeWindow();
};

}  // namespace quorl
