#pragma once

#include "platform/network.h"

namespace quorl {

class PosixNetwork : public Network {
 public:
  // The socket library of this system is always there.
  bool Start() override { return true; }
  void Stop() override {}

  std::shared_ptr<DatagramSocket> OpenDatagramSocket() override;
};

}  // namespace quorl
