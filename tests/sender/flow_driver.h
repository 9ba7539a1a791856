// Drives a flow control by hand, and writes down what it orders.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "protocol/endpoints.h"
#include "sender/master_flow.h"

namespace quorl {

/// The receiver of row `index` in a FlowDriver.
constexpr Endpoint Row(int index) {
  return {Ipv4(10, 0, 0, static_cast<uint8_t>(index)), 27001};
}

constexpr Endpoint STRANGER{Ipv4(192, 168, 7, 7), 9};

using Lines = std::vector<std::string>;

class FlowDriver {
 public:
  /// `rows` receivers, three files of 100 blocks in all.
  FlowDriver(Profile profile, int rows) {
    for (int i = 0; i < rows; ++i) table.AddClient(Row(i));
    flow = MakeMasterFlow(profile, table);
    Begin();
  }

  void Begin() {
    flow->BeginTransfer(3);
    flow->BlocksCounted(100);
    next = WatchNext::Pause;
    watchedUntil = 1000;
  }
  Lines HandOver() {
    flow->StreamSent();
    Orders orders;
    flow->HandOver(orders);
    return ToText(orders);
  }
  Lines Ack(Endpoint from, uint32_t file, uint32_t block) {
    return React([&](Orders& orders) { return flow->TakeAck({file, block}, from, orders); });
  }
  Lines Finish(Endpoint from, uint16_t status) {
    return React([&](Orders& orders) { return flow->TakeFinish(status, from, orders); });
  }
  Lines Answer(Endpoint from, uint32_t missing) {
    return React([&](Orders& orders) { return flow->TakeAnswer(missing, from, orders); });
  }

  /// Runs the watchdog until `end`, or its own. Each line begins with its moment in milliseconds.
  Lines Watch(int end) {
    Lines lines;
    while (watchedUntil < end && next != WatchNext::End) {
      Orders orders;
      next = flow->Watch(orders);
      for (const std::string& line : ToText(orders)) lines.push_back(std::to_string(watchedUntil) + ": " + line);
      if (next == WatchNext::Pause || next == WatchNext::PauseInCycle) watchedUntil += 500;
    }
    return lines;
  }

  ClientEntry& operator[](int32_t index) { return table[index]; }

 private:
  template <typename Decision>
  Lines React(const Decision& decide) {
    Orders orders;
    if (decide(orders)) flow->DatagramHandled();
    return ToText(orders);
  }

  static std::string Name(Endpoint receiver) {
    for (int i = 0; i < 8; ++i)
      if (receiver == Row(i)) return "R" + std::to_string(i);
    return "stranger";
  }
  static std::string ToText(const SendMasterOrder& o) { return "MASTER " + std::to_string(o.state) + " " + Name(o.to); }
  static std::string ToText(const SendReleaseOrder& o) {
    return "RELEASE " + std::to_string(o.release.allSent) + std::to_string(o.release.secondPass) + " " + Name(o.to);
  }
  static std::string ToText(const ResendOrder& o) {
    return "RESEND " + std::to_string(o.file) + "." + std::to_string(o.block);
  }
  static std::string ToText(const EndOrder& o) { return "END " + std::to_string(o.code); }
  static std::string ToText(const ClientErrorOrder& o) {
    return "ERROR " + std::to_string(o.status) + " " + Name({o.address, 27001});
  }
  static std::string ToText(const CloseResendFileOrder&) { return "CLOSE"; }
  static Lines ToText(const Orders& orders) {
    Lines lines;
    for (const Order& order : orders)
      lines.push_back(std::visit([](const auto& which) { return ToText(which); }, order));
    return lines;
  }

  ReceiverTable table;
  std::unique_ptr<MasterFlow> flow;
  WatchNext next = WatchNext::Pause;
  int watchedUntil = 1000;
};

}  // namespace quorl
