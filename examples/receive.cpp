// A host that goes by the messages: receives one transfer and says what arrives, file by file.
//
//   receive DIRECTORY INTERFACE PORT
#include <arpa/inet.h>
#include <quorl/host.h>

#include <future>
#include <iostream>
#include <string>

namespace {

/// What the library tells comes to OnMessage, one message at a time, on the window's own thread. So it only notes the
/// end here: the main thread waits for it and takes the receiver down, which must not be done from inside a message.
class Host {
 public:
  Host() : window(CreateHostWindow(&Host::OnMessage, this)) {}
  ~Host() { DestroyHostWindow(window); }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  QuorlWindow Window() const { return window; }
  uint32_t WaitForEnd() { return end.get_future().get(); }

 private:
  static void OnMessage(void* context, uint32_t message, uintptr_t wParam, intptr_t lParam) {
    auto* host = static_cast<Host*>(context);
    if (message == WM_TASK_INFO) std::cout << "a transfer of " << wParam << " files, " << lParam << " blocks\n";
    if (message == WM_FILE_NAME) host->SayFile(reinterpret_cast<const char*>(lParam));
    if (message == WM_TRANS_STATUS && wParam != QUORL_STATUS_FILE_UNWRITABLE) host->End(static_cast<uint32_t>(wParam));
  }

  /// Comes with each block that is stored; once a file is enough.
  void SayFile(const std::string& name) {
    if (name != current) std::cout << "  " << name << "\n";
    current = name;
  }

  void End(uint32_t status) {
    if (!ended) end.set_value(status);
    ended = true;
  }

  std::string current;
  bool ended = false;
  std::promise<uint32_t> end;
  QuorlWindow window;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4 || SetReceiveRoot(argv[1]) == 0) {
    std::cerr << "usage: receive DIRECTORY INTERFACE PORT\n";
    return 2;
  }
  Host host;
  SetProfile(1);
  if (InitClient(host.Window(), 0, static_cast<uint32_t>(std::stoul(argv[3])), inet_addr(argv[2])) == 0) return 1;
  StartReceive();
  std::cout << "listening" << std::endl;

  const uint32_t status = host.WaitForEnd();
  DeInitClient();

  // The message says that it is over; whether everything is here, the state says.
  QuorlReceiveState state{};
  state.size = sizeof state;
  GetReceiveState(&state);
  std::cout << state.blocksStored << " of " << state.blocksExpected << " blocks stored, status " << status << "\n";
  return state.complete != 0 ? 0 : 1;
}
