#include "platform/win32/windows.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "platform/win32/system.h"

namespace quorl {
namespace {

using namespace std::chrono_literals;

struct Seen {
  UINT message;
  WPARAM wParam;
  std::string text;
};

LRESULT CALLBACK Record(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  auto* seen = reinterpret_cast<std::vector<Seen>*>(GetWindowLongPtrA(window, GWLP_USERDATA));
  if (message < WM_USER || message > WM_USER + 30) return DefWindowProcA(window, message, wParam, lParam);
  seen->push_back({message, wParam, lParam > 1 ? reinterpret_cast<const char*>(lParam) : ""});
  return 0;
}

/// A window of the test's own thread, as a host has one.
class HostWindow {
 public:
  HostWindow() {
    handle = CreateWindowA("STATIC", "", 0, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr);
    SetWindowLongPtrA(handle, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(&seen));
    SetWindowLongPtrA(handle, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&Record));
  }
  ~HostWindow() { DestroyWindow(handle); }

  void HandleAll() {
    MSG message;
    while (PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageA(&message);
  }

  HWND handle = nullptr;
  std::vector<Seen> seen;
};

TEST(Win32Windows, TextsOfPostedMessagesAreThereWhenTheHostGetsToThem) {
  Win32Windows windows;
  HostWindow host;
  for (int i = 0; i < 3000; ++i)
    EXPECT_TRUE(windows.Post(host.handle, {WM_FILE_NAME, 0, 0, "\\name " + std::to_string(i / 2)}));
  windows.Post(host.handle, {WM_TRANS_STATUS, 1001, 0, {}});
  EXPECT_TRUE(host.seen.empty()) << "posted, not sent";
  host.HandleAll();
  ASSERT_EQ(host.seen.size(), 3001u);
  for (size_t i = 0; i < 3000; ++i) EXPECT_EQ(host.seen[i].text, "\\name " + std::to_string(i / 2));
  EXPECT_EQ(host.seen[3000].wParam, 1001u);
}

TEST(Win32Windows, SendingWaitsForTheProcedureAndADestroyedWindowGetsNothing) {
  Win32Windows windows;
  HWND gone = nullptr;
  {
    HostWindow host;
    gone = host.handle;
    std::thread sender([&] { windows.Send(host.handle, {WM_TRANS_STATUS, 0, 0, "C:\\in\\open.me"}); });
    const auto limit = std::chrono::steady_clock::now() + 10s;
    while (host.seen.empty() && std::chrono::steady_clock::now() < limit) host.HandleAll();
    sender.join();
    ASSERT_EQ(host.seen.size(), 1u);
    EXPECT_EQ(host.seen[0].text, "C:\\in\\open.me");
  }
  for (const HWND none : {gone, HWND{nullptr}}) {
    EXPECT_FALSE(windows.IsWindow(none));
    EXPECT_TRUE(windows.Post(none, {WM_FILE_NAME, 0, 0, "x"}));
    windows.Send(none, {WM_TRANS_STATUS, 0, 0, "x"});
  }
  MSG message;
  EXPECT_FALSE(PeekMessageA(&message, nullptr, WM_TASK_INFO, WM_CLIENT_ERR, PM_REMOVE)) << "nor does the thread";
}

}  // namespace
}  // namespace quorl
