#include "api/roles.h"

#include "platform/real_machine.h"

namespace quorl {

namespace {

// Loading makes the sender first; unloading destroys them in reverse. Neither opens a socket nor starts a thread here,
// and threads that still run when the library goes hold what they use themselves.
CTransServer server(RealMachine());
CTransClient client(RealMachine());

}  // namespace

CTransServer& Server() {
  return server;
}
CTransClient& Client() {
  return client;
}

}  // namespace quorl
