// Names of addresses. One thread asks, and is left behind when nobody wants to know any more: the system may take many
// seconds to answer and cannot be interrupted.
#include "cli/room/host_names.h"

#include <fmt/format.h>

#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <thread>

#include "cli/show/escape.h"
#include "cli/show/units.h"
#include "cli/system/network.h"

namespace quorl::cli {
namespace {

std::string LookUp(uint32_t address) {
  // The loopback network has one name for all its addresses, which tells nothing.
  if ((address & 0xFF) == 127) return "";
  const std::string text = NameOfAddress(address);
  return text.substr(0, text.find('.'));
}

}  // namespace

struct HostNames::Work {
  std::mutex lock;
  std::condition_variable changed;
  std::deque<uint32_t> open;
  std::map<uint32_t, std::string> names;  ///< Of those asked for; empty while unknown.
  bool running = false;                   ///< There is a thread.
  bool abandoned = false;
};

HostNames::HostNames() : work(std::make_shared<Work>()) {}

HostNames::~HostNames() {
  std::lock_guard guard(work->lock);
  work->abandoned = true;
}

void HostNames::Ask(std::span<const uint32_t> addresses, std::chrono::milliseconds patience) {
  std::unique_lock guard(work->lock);
  for (uint32_t address : addresses) {
    if (work->names.emplace(address, "").second) work->open.push_back(address);
  }
  if (!work->open.empty() && !work->running) {
    work->running = true;
    std::thread([shared = work] { Run(shared); }).detach();
  }
  work->changed.wait_for(guard, patience, [this] { return !work->running; });
}

void HostNames::Run(const std::shared_ptr<Work>& work) {
  std::unique_lock guard(work->lock);
  while (!work->open.empty() && !work->abandoned) {
    uint32_t address = work->open.front();
    work->open.pop_front();
    guard.unlock();
    std::string name = LookUp(address);
    guard.lock();
    work->names[address] = std::move(name);
  }
  work->running = false;
  work->changed.notify_all();
}

std::string HostNames::Short(uint32_t address) const {
  std::lock_guard guard(work->lock);
  auto found = work->names.find(address);
  return found == work->names.end() ? "" : Escape(found->second);
}

std::string HostNames::Label(uint32_t address) const {
  std::string name = Short(address);
  return fmt::format("{}{}{}", FormatAddress(address), name.empty() ? "" : " ", name);
}

}  // namespace quorl::cli
