#pragma once

#include <map>
#include <mutex>

#include "platform/win32/posted_texts.h"
#include "platform/windows.h"

namespace quorl {

/// The system's own windows.
class Win32Windows : public Windows {
 public:
  bool IsWindow(QuorlWindow window) override;

  /// A text is alive while the message is in the queue of the window's thread and while it is handled.
  bool Post(QuorlWindow window, HostMessage message) override;
  void Send(QuorlWindow window, HostMessage message) override;

 private:
  const char* Keep(QuorlWindow window, const std::string& text);

  std::mutex mutex;
  std::map<QuorlWindow, PostedTexts> posted;
};

}  // namespace quorl
