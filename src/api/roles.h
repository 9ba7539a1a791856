// The two objects that the exported functions drive, made when the library is loaded.
#pragma once

#include "receiver/ctrans_client.h"
#include "sender/ctrans_server.h"

namespace quorl {

CTransServer& Server();
CTransClient& Client();

}  // namespace quorl
