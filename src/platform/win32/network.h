#pragma once

#include "platform/network.h"

namespace quorl {

class Win32Network : public Network {
 public:
  bool Start() override;
  void Stop() override;
  std::shared_ptr<DatagramSocket> OpenDatagramSocket() override;
};

}  // namespace quorl
