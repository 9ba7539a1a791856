// One queue for the library's messages, which the window's thread hands over, and for signals.
#include "cli/transfer/inbox.h"

namespace quorl::cli {

Inbox::Inbox(bool everyFile) : everyFile(everyFile), window(CreateHostWindow(&Inbox::Receive, this)) {}

Inbox::~Inbox() {
  DestroyHostWindow(window);
}

void Inbox::Renew() {
  DestroyHostWindow(window);
  waiter.ForgetCalls();
  messages.clear();
  currentFile.clear();
  filesBefore = 0;
  window = CreateHostWindow(&Inbox::Receive, this);
}

void Inbox::Receive(void* context, uint32_t message, uintptr_t wParam, intptr_t lParam) {
  auto* inbox = static_cast<Inbox*>(context);
  std::lock_guard guard(inbox->lock);
  InboxEvent event{
      .kind = InboxEvent::Kind::Message, .message = message, .wParam = wParam, .lParam = lParam, .text = {}};
  if (message == WM_FILE_NAME) {
    // One for every block: only a change is of interest.
    std::string name = reinterpret_cast<const char*>(lParam);
    if (name == inbox->currentFile) return;
    if (!inbox->currentFile.empty()) ++inbox->filesBefore;
    inbox->currentFile = name;
    if (!inbox->everyFile) return;
    event.kind = InboxEvent::Kind::File;
    event.text = std::move(name);
  }
  if (message == WM_TRANS_STATUS && lParam != 0 && lParam != 1) event.text = reinterpret_cast<const char*>(lParam);
  inbox->messages.push_back(std::move(event));
  inbox->waiter.Call();
}

InboxEvent Inbox::Next(std::chrono::milliseconds limit) {
  return Wait(limit, false);
}

InboxEvent Inbox::NextOrKey(std::chrono::milliseconds limit) {
  return Wait(limit, true);
}

int Inbox::SignalWithin(std::chrono::milliseconds limit) {
  return Next(limit).signal;
}

InboxEvent Inbox::Wait(std::chrono::milliseconds limit, bool keys) {
  const Woken woken = waiter.Wait(limit, keys);
  InboxEvent event{.signal = woken.signal, .key = woken.key};
  if (woken.by == Woken::By::Signal) event.kind = InboxEvent::Kind::Signal;
  if (woken.by == Woken::By::Key) event.kind = InboxEvent::Kind::Key;
  if (woken.by != Woken::By::Call) return event;
  std::lock_guard guard(lock);
  event = std::move(messages.front());
  messages.pop_front();
  return event;
}

std::string Inbox::CurrentFile() {
  std::lock_guard guard(lock);
  return currentFile;
}

uint64_t Inbox::FilesBefore() {
  std::lock_guard guard(lock);
  return filesBefore;
}

}  // namespace quorl::cli
