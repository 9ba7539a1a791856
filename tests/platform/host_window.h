#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "platform/real_machine.h"

namespace quorl {

using namespace std::chrono_literals;

/// A window with a thread of its own, whose procedure writes down what comes and does what it is told.
struct RecordingWindow {
  static constexpr uintptr_t STAY = 1'000'001;  ///< Stays in this message until the test lets it go.
  static constexpr uintptr_t DESTROY = 1'000'002;

  ~RecordingWindow() { DestroyHostWindow(window); }

  static void Proc(void* context, uint32_t message, uintptr_t wParam, intptr_t) {
    auto& self = *static_cast<RecordingWindow*>(context);
    self.seen.emplace_back(message, wParam);
    if (wParam == STAY) self.entered->Set(), self.open->Wait(10s);
    if (wParam == DESTROY) DestroyHostWindow(self.window);
  }

  bool Post(uintptr_t wParam, uint32_t message = WM_TRANS_STATUS) {
    return windows.Post(window, {message, wParam, 0, "text"});
  }
  void Send(uintptr_t wParam) { windows.Send(window, {WM_TRANS_STATUS, wParam, 0, {}}); }

  Windows& windows = RealMachine().windows;
  std::shared_ptr<Event> entered = RealMachine().threads.MakeEvent();
  std::shared_ptr<Event> open = RealMachine().threads.MakeEvent();
  /// To be read when a message that was sent is done, or the window gone.
  std::vector<std::pair<uint32_t, uintptr_t>> seen;
  QuorlWindow window = CreateHostWindow(&RecordingWindow::Proc, this);
};

inline std::shared_ptr<Thread> InThread(std::function<void()> body) {
  return RealMachine().threads.Start("test", Priority::Normal, std::move(body));
}

}  // namespace quorl
