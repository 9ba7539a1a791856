#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace quorl::cli {

struct NetworkOptions {
  uint32_t group = 0;     ///< Network byte order; 0: the library's default.
  uint32_t port = 0;      ///< 0: the library's default.
  std::string interface;  ///< An address or a name; empty: choose.
};

struct SendOptions {
  NetworkOptions network;
  std::vector<std::string> paths;
  uint32_t rate = 100000;        ///< kbit/s; 0: the fixed pacing.
  uint32_t waitFor = 1;          ///< Receivers to wait for.
  std::chrono::seconds wait{0};  ///< How long; 0: ask once.
  bool subdirectories = true;
  std::string target;    ///< The drive path that receivers are asked to use; empty: their own choice.
  std::string openName;  ///< As the library wants it; empty: none.
};

struct ReceiveOptions {
  NetworkOptions network;
  std::string directory = ".";
  std::chrono::seconds timeout{0};  ///< 0: wait for ever.
};

enum class Command { None, Send, Receive, Demo };

/// What a command line asks for. Command::None: nothing to run, `text` says why and `exitCode` is 0 or 2.
struct Invocation {
  Command command = Command::None;
  SendOptions send;
  ReceiveOptions receive;
  std::string text;
  int exitCode = 0;
};

Invocation ParseCommandLine(int argumentCount, const char* const* arguments);

/// "/srv/in" as the drive path "C:\srv\in"; a drive path as it is; nothing of both: empty.
std::string TargetFromText(const std::string& text);

/// "docs/start.html" as "\docs\start.html"; empty when it cannot travel.
std::string OpenNameFromText(const std::string& text);

}  // namespace quorl::cli
