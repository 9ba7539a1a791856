#include "platform/win32/windows.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "platform/real_machine.h"
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

/// What a window made by CreateHostWindow was told.
struct Told {
  static constexpr uintptr_t STAY = 1, DESTROY = 2;

  static void Proc(void* context, uint32_t, uintptr_t wParam, intptr_t) {
    Told& told = *static_cast<Told*>(context);
    told.seen.push_back(wParam);
    told.thread = GetCurrentThreadId();
    told.entered->Set();
    if (wParam == STAY) told.open->Wait(10s);
    if (wParam == DESTROY) DestroyHostWindow(told.window);
  }

  std::shared_ptr<Event> entered = RealMachine().threads.MakeEvent();
  std::shared_ptr<Event> open = RealMachine().threads.MakeEvent();
  std::vector<uintptr_t> seen;
  DWORD thread = 0;
  QuorlWindow window = CreateHostWindow(&Told::Proc, this);
};

TEST(HostWindows, HaveAThreadOfTheirOwnThatDestroyingWaitsFor) {
  Told told;
  Windows& windows = RealMachine().windows;
  ASSERT_TRUE(windows.IsWindow(told.window));
  windows.Send(told.window, {WM_TASK_INFO, 0, 0, {}});
  EXPECT_EQ(told.seen.size(), 1u) << "a sent one is handled when Send returns";
  EXPECT_NE(told.thread, GetCurrentThreadId());
  told.entered->Reset();
  windows.Post(told.window, {WM_TASK_INFO, Told::STAY, 0, {}});
  ASSERT_TRUE(told.entered->Wait(10s));
  const auto destroyer =
      RealMachine().threads.Start("destroyer", Priority::Normal, [&] { DestroyHostWindow(told.window); });
  EXPECT_FALSE(destroyer->WaitForEnd(20ms)) << "the procedure still runs";
  told.open->Set();
  EXPECT_TRUE(destroyer->WaitForEnd(10s));
  EXPECT_FALSE(windows.IsWindow(told.window));
  DestroyHostWindow(told.window);
  EXPECT_EQ(CreateHostWindow(nullptr, nullptr), nullptr);
}

TEST(HostWindows, OneThatItsOwnProcedureDestroysDropsWhatIsQueued) {
  Told told;
  Windows& windows = RealMachine().windows;
  windows.Post(told.window, {WM_TASK_INFO, Told::STAY, 0, {}});
  windows.Post(told.window, {WM_TASK_INFO, Told::DESTROY, 0, {}});
  windows.Post(told.window, {WM_TASK_INFO, 3, 0, {}});
  told.open->Set();
  for (int i = 0; i < 1000 && windows.IsWindow(told.window); ++i) RealMachine().clock.Sleep(10ms);
  EXPECT_FALSE(windows.IsWindow(told.window));
  EXPECT_EQ(told.seen, (std::vector<uintptr_t>{Told::STAY, Told::DESTROY}));
}

}  // namespace
}  // namespace quorl
