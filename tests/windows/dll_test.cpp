// Quorl.dll as a host loads it that knows nothing but its name.
#include <gtest/gtest.h>
#include <quorl/quorl.h>
#include <windows.h>

#include <chrono>
#include <random>
#include <thread>

namespace {

using namespace std::chrono_literals;

bool IsLoaded() {
  return GetModuleHandleA("Quorl.dll") != nullptr;
}

template <typename Function>
Function* Find(HMODULE library, const char* name) {
  return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}

TEST(Dll, LeavesNothingBehindWhenItIsUnloaded) {
  FreeLibrary(LoadLibraryA(QUORL_DLL));  // What the system keeps for itself from the first time on.
  DWORD before = 0, after = 0;
  GetProcessHandleCount(GetCurrentProcess(), &before);
  for (int i = 0; i < 30; ++i) {
    const HMODULE library = LoadLibraryA(QUORL_DLL);
    ASSERT_TRUE(library);
    EXPECT_EQ(Find<decltype(DeInitServer)>(library, "DeInitServer")(), 1u);
    FreeLibrary(library);
    ASSERT_FALSE(IsLoaded());
  }
  GetProcessHandleCount(GetCurrentProcess(), &after);
  EXPECT_LE(after, before + 5);
}

TEST(Dll, StaysForItsThreadsWhenAHostUnloadsItTooEarly) {
  const HMODULE library = LoadLibraryA(QUORL_DLL);
  ASSERT_TRUE(library);
  constexpr uint32_t LOOPBACK = 0x0100007F;
  const uint32_t port = 20000 + std::random_device{}() % 20000;
  ASSERT_EQ(Find<decltype(InitClient)>(library, "InitClient")(nullptr, 0, port, LOOPBACK), 1u);
  EXPECT_EQ(Find<decltype(StartReceive)>(library, "StartReceive")(), 1u);
  FreeLibrary(library);
  std::this_thread::sleep_for(100ms);
  ASSERT_TRUE(IsLoaded());
  ASSERT_EQ(LoadLibraryA(QUORL_DLL), library);
  EXPECT_EQ(Find<decltype(DeInitClient)>(library, "DeInitClient")(), 1u);
  FreeLibrary(library);
  for (int i = 0; i < 100 && IsLoaded(); ++i) std::this_thread::sleep_for(100ms);
  EXPECT_FALSE(IsLoaded());
}

}  // namespace
