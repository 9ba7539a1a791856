// One simulated machine, whose disk and shell a test sets up and asks afterwards.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "protocol/endpoints.h"
#include "sim/world/world.h"

namespace quorl {

class OneMachineTest : public testing::Test {
 protected:
  using Texts = std::vector<std::string>;

  /// Empty files; a path that ends with a backslash is an empty directory.
  void Make(const Texts& paths) {
    for (const std::string& path : paths) path.ends_with('\\') ? disk.MakeDirectory(path) : disk.Write(path, "");
  }

  /// What has been written to the debug output since the last call.
  std::string TakeDebug() {
    std::string text;
    while (debugTaken < pc.DebugLines().size()) text += pc.DebugLines()[debugTaken++];
    return text;
  }

  sim::World world{1};
  sim::SimMachine& pc = world.AddMachine("one", Ipv4(10, 0, 0, 1));
  sim::SimDisk& disk = pc.Disk();
  sim::SimShell& shell = pc.Shell();
  const Machine& machine = pc.Seam();

 private:
  size_t debugTaken = 0;
};

}  // namespace quorl
