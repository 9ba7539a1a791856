#pragma once

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <thread>

namespace quorl {

/// Runs `body` in a thread of its own, in which the call of the system of that number fails with this errno. False
/// where calls cannot be made to fail; nothing has run then.
template <typename Body>
bool WhileCallFails(long call, int error, Body body) {
  bool isFailing = false;
  std::thread([&] {
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<uint32_t>(call), 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<uint32_t>(error)),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program{std::size(filter), filter};
    isFailing =
        prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
    if (isFailing) body();
  }).join();
  return isFailing;
}

}  // namespace quorl
