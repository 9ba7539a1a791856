// The thirteen functions of the library: each stores its arguments in one of the two roles and calls one operation.
// Nothing is thrown across them: what the work behind them cannot do is told by results and messages.
#include <quorl/quorl.h>

#include "api/guard.h"
#include "api/roles.h"

namespace {

using quorl::Client;
using quorl::Guarded;
using quorl::Server;

// Of most functions the result says nothing.
constexpr uint32_t ALWAYS = 1;
using quorl::FAILED;

// What SetSelectFiles answers when its lists do not fit into memory.
constexpr int32_t NO_MEMORY = 6;

std::string TextOf(const char* text) {
  return text == nullptr ? std::string() : std::string(text);
}

std::vector<std::string> PathsOf(const char* const* paths, uint32_t count) {
  std::vector<std::string> list;
  for (uint32_t i = 0; paths != nullptr && i < count; ++i) list.push_back(TextOf(paths[i]));
  return list;
}

}  // namespace

uint32_t InitServer(QuorlWindow window, uint32_t groupAddress, uint32_t groupPort, uint32_t localInterface) {
  return Guarded(FAILED, [&] { return Server().InitServer(window, groupAddress, groupPort, localInterface); });
}

uint32_t InitClient(QuorlWindow window, uint32_t groupAddress, uint32_t groupPort, uint32_t localInterface) {
  return Guarded(FAILED, [&] { return Client().InitClient(window, groupAddress, groupPort, localInterface); });
}

uint32_t DeInitServer(void) {
  return Guarded(ALWAYS, [] { return Server().DeInitServer(); });
}

uint32_t DeInitClient(void) {
  return Guarded(ALWAYS, [] { return Client().DeInitClient(); });
}

int32_t SetSelectFiles(const char* const* paths, uint32_t pathCount, const char* autoOpenName) {
  return Guarded(NO_MEMORY, [&] { return Server().SetSelectFiles(PathsOf(paths, pathCount), TextOf(autoOpenName)); });
}

uint32_t SetSubDirTrans(uint32_t flag) {
  return Guarded(ALWAYS, [&] { return Server().SetSubDirTrans(flag); });
}

uint32_t SetTargetPath(uint32_t targetFolder, const char* targetPath) {
  return Guarded(ALWAYS, [&] { return Server().SetTargetPath(targetFolder, TextOf(targetPath)); });
}

uint32_t GetIsHasInvalidChar(void) {
  return Guarded(FAILED, [] { return Server().GetIsHasInvalidChar(); });
}

uint32_t StartSend(void) {
  return Guarded(ALWAYS, [] { return Server().StartSend(); });
}

uint32_t StopSend(void) {
  return Guarded(ALWAYS, [] { return Server().StopSend(); });
}

uint32_t StartReceive(void) {
  return Guarded(ALWAYS, [] { return Client().StartReceive(); });
}

uint32_t StopReceive(void) {
  return Guarded(ALWAYS, [] { return Client().StopReceive(); });
}

uint32_t GetErrInfo(uint32_t* errInfoBuffer) {
  return errInfoBuffer == nullptr ? 0 : Guarded(FAILED, [&] { return Server().GetErrInfo(errInfoBuffer); });
}
