#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "protocol/profile.h"
#include "receiver/ctrans_client.h"
#include "sender/ctrans_server.h"
#include "sim/machine/disk.h"
#include "sim/world/world.h"

namespace quorl::sim {

struct RoomOptions {
  size_t receivers = 1;
  uint64_t seed = 1;
  Profile senderProfile = Profile::Classic;
  Profile receiverProfile = Profile::Classic;
  std::string autoOpenName{};
  uint32_t capabilities = 0;  ///< Of everybody.
  bool symbols = false;       ///< Whether they know symbols, with the robust profile.
};

/// A sender and its receivers, each on a machine of its own, as a story of a few lines: put files there, start the
/// receivers, send, let the world run, look at the disks and messages. The sender sends what is in C:\src; receivers
/// are told to put it into C:\in.
class Room {
 public:
  explicit Room(const RoomOptions& options);

  /// Puts a file of `size` bytes, whose content follows from the room's seed and the file's name, into C:\src. `name`
  /// is relative: "a.txt", "photos\a.jpg".
  void File(const std::string& name, uint64_t size);
  /// Other content, of the same lengths, for every file that was put there: what a receiver still has of them is old.
  void ReplaceFiles();
  void EmptyDirectory(const std::string& name) { Sender().Disk().MakeDirectory(SOURCE + ("\\" + name)); }

  /// False when one could not be set up.
  bool StartReceivers();
  bool StartReceiver(size_t index);

  /// Switches a receiver's machine on again whose power was off, and starts a new receiver on it.
  bool RestartReceiver(size_t index);

  /// The same for the sender; nothing is set up or sent yet.
  void RestartSender();

  /// The receiver's host handles each message in a thread of its own, which calls `procedure`; at first it only records
  /// them. To be called before the start.
  void HandleMessages(size_t index, WindowProcedure procedure);
  void HandleSenderMessages(WindowProcedure procedure);

  /// Everything that is received lands in C:\in, whatever the sender says. To be called before the start.
  void ConfineReceivers();

  /// What the sender's host does until the transfer runs; takes about a second of virtual time. False when the sender
  /// could not be set up or the selection was refused.
  bool Send();

  /// Sends once more what is selected, in the session that the latest Send has set up.
  void SendAgain();

  /// What the receiver's host was told up to now was said of an earlier transfer.
  void ExpectTransfer(size_t index);

  /// Lets the world run until the sender and every receiver that has power are through, and for a second more, in which
  /// their last messages arrive. False when they are not within `limit`.
  bool RunUntilQuiet(Duration limit);

  bool IsSenderThrough();
  bool IsReceiverThrough(size_t index);

  /// Whether the receiver has what the sender has, and nothing else.
  bool TreesIdentical(size_t index) const;

  /// Whether the receiver has every file that was put into C:\src, whatever else it has and whatever has become of the
  /// sender's copy.
  bool HoldsAllFiles(size_t index) const;

  /// Whether the receiver's host, since the receiver was started, was told that the transfer is complete.
  bool WasToldComplete(size_t index) const;

  /// What GetErrInfo tells the sender's host: status by index of the receiver.
  std::map<size_t, uint32_t> FailedReceivers();

  /// The statuses of the WM_TRANS_STATUS messages of a machine, in order.
  static std::vector<uint32_t> Statuses(const SimMachine& machine);

  sim::World& World() { return world; }
  SimNetwork& Net() { return world.Net(); }
  SimMachine& Sender() { return sender; }
  SimMachine& Receiver(size_t index) { return *receivers.at(index).machine; }
  size_t Receivers() const { return receivers.size(); }
  size_t FileCount() const { return names.size(); }
  QuorlWindow ReceiverWindow(size_t index) const { return receivers.at(index).host.window; }
  QuorlWindow SenderWindow() const { return senderHost.window; }
  CTransServer& Server() { return *server; }
  CTransClient& Client(size_t index) { return *receivers.at(index).client; }

  /// The paths that Send selects.
  std::vector<std::string> SourcePaths() const;

  static constexpr const char* SOURCE = "C:\\src";
  static constexpr const char* TARGET = "C:\\in";

 private:
  void WriteFile(const std::string& name, uint64_t size);

  struct Host {
    QuorlWindow window = nullptr;
    WindowProcedure procedure{};

    void MakeWindow(SimMachine& machine);
  };
  struct Place {
    SimMachine* machine = nullptr;
    std::unique_ptr<CTransClient> client;
    Host host{};
    size_t firstMessage = 0;  ///< Of those that its machine has recorded, since it was started.
  };

  const RoomOptions options;
  sim::World world;  ///< Outlives the roles on its machines.
  SimMachine& sender;
  std::unique_ptr<CTransServer> server;
  Host senderHost;
  std::vector<Place> receivers;
  bool confined = false;
  uint64_t replacements = 0;
  std::vector<std::string> names;
  Patterns originalPatterns;
  SimDisk originals{originalPatterns};  ///< The files as they were put there.
};

}  // namespace quorl::sim
