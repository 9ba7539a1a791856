#include "cli/system/program.h"

#include <algorithm>
#include <array>

#include "cli/system/win32/error.h"
#include "cli/system/win32/paths.h"
#include "platform/win32/handle.h"
#include "platform/win32/text.h"

namespace quorl::cli {
namespace {

// As a program ends elsewhere that a signal has ended.
constexpr UINT ENDED = 128 + 15;

/// A word as programs take their command line apart: a quote is preceded by a backslash, and so is each backslash that
/// stands right before a quote.
std::wstring Quoted(const std::wstring& word) {
  std::wstring quoted = L"\"";
  size_t backslashes = 0;
  for (const wchar_t character : word) {
    if (character == L'"') quoted.append(backslashes + 1, L'\\');
    backslashes = character == L'\\' ? backslashes + 1 : 0;
    quoted += character;
  }
  return quoted.append(backslashes, L'\\') + L'"';
}

/// Where the program is: what has no directory is looked for where PATH leads and nowhere else. The system itself would
/// look into the current directory first, where a received file may have that name.
std::wstring Find(const std::wstring& program) {
  if (program.find_first_of(L"\\/:") != std::wstring::npos) return program;
  std::wstring places(32767, L'\0');
  places.resize(GetEnvironmentVariableW(L"PATH", places.data(), static_cast<DWORD>(places.size())));
  std::wstring found(32767, L'\0');
  for (const wchar_t* extension : {L".exe", L".com", L".bat", L".cmd"}) {
    const DWORD length = SearchPathW(places.c_str(), program.c_str(), extension, static_cast<DWORD>(found.size()),
                                     found.data(), nullptr);
    if (length > 0 && length < found.size()) return found.substr(0, length);
  }
  return {};
}

/// A copy of a handle that a program can be given; none stays none.
Handle Inheritable(HANDLE handle) {
  HANDLE copy = nullptr;
  const HANDLE self = GetCurrentProcess();
  DuplicateHandle(self, handle, self, &copy, 0, TRUE, DUPLICATE_SAME_ACCESS);
  return Handle(copy);
}

Handle OpenForProgram(const wchar_t* path, DWORD access, DWORD disposition) {
  SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
  return Handle(CreateFileW(path, access, FILE_SHARE_READ | FILE_SHARE_WRITE, &inheritable, disposition,
                            FILE_ATTRIBUTE_NORMAL, nullptr));
}

struct Streams {
  Handle input;
  Handle output;
  Handle error;
};

Streams Open(const ProgramStreams& wanted) {
  using Output = ProgramStreams::Output;
  Streams streams;
  streams.input = wanted.hasInput ? Inheritable(GetStdHandle(STD_INPUT_HANDLE))
                                  : OpenForProgram(L"NUL", GENERIC_READ, OPEN_EXISTING);
  if (wanted.output == Output::ToFile) {
    const auto path = LongForm(wanted.file);
    if (path) streams.output = OpenForProgram(path->c_str(), GENERIC_WRITE, CREATE_ALWAYS);
    streams.error = Inheritable(streams.output.Get());
  } else {
    const DWORD output = wanted.output == Output::ToError ? STD_ERROR_HANDLE : STD_OUTPUT_HANDLE;
    streams.output = Inheritable(GetStdHandle(output));
    streams.error = Inheritable(GetStdHandle(STD_ERROR_HANDLE));
  }
  return streams;
}

/// What a program inherits, and nothing beside it: no socket of the library.
class Inheritance {
 public:
  explicit Inheritance(const Streams& streams) {
    for (const Handle* handle : {&streams.input, &streams.output, &streams.error})
      if (*handle) handles[count++] = handle->Get();
    SIZE_T size = 0;
    InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
    memory.resize(size);
    list = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(memory.data());
    InitializeProcThreadAttributeList(list, 1, 0, &size);
    UpdateProcThreadAttribute(list, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, handles.data(), count * sizeof(HANDLE),
                              nullptr, nullptr);
  }
  ~Inheritance() { DeleteProcThreadAttributeList(list); }
  Inheritance(const Inheritance&) = delete;
  Inheritance& operator=(const Inheritance&) = delete;

  LPPROC_THREAD_ATTRIBUTE_LIST Get() const { return list; }

 private:
  std::array<HANDLE, 3> handles{};
  size_t count = 0;
  std::vector<char> memory;
  LPPROC_THREAD_ATTRIBUTE_LIST list = nullptr;
};

/// The process, or an error number.
DWORD Spawn(const std::string& program, const std::vector<std::string>& arguments, const Streams& streams,
            Handle& process) {
  const auto wide = ToWide(program);
  const std::wstring path = wide ? Find(*wide) : std::wstring();
  if (path.empty()) return ERROR_FILE_NOT_FOUND;
  std::wstring line = Quoted(path);
  for (const std::string& argument : arguments) line += L' ' + Quoted(ToWide(argument).value_or(L""));
  const Inheritance inheritance(streams);
  STARTUPINFOEXW startup{};
  startup.StartupInfo.cb = sizeof startup;
  startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
  startup.StartupInfo.hStdInput = streams.input.Get();
  startup.StartupInfo.hStdOutput = streams.output.Get();
  startup.StartupInfo.hStdError = streams.error.Get();
  startup.lpAttributeList = inheritance.Get();
  PROCESS_INFORMATION started{};
  if (!CreateProcessW(path.c_str(), line.data(), nullptr, nullptr, TRUE, EXTENDED_STARTUPINFO_PRESENT, nullptr, nullptr,
                      &startup.StartupInfo, &started)) {
    return GetLastError();
  }
  const Handle thread(started.hThread);
  process = Handle(started.hProcess);
  return ERROR_SUCCESS;
}

}  // namespace

struct Program::State {
  Handle process;  ///< None: it has ended.

  std::optional<ProgramEnd> EndWithin(DWORD limitMs) {
    if (WaitForSingleObject(process.Get(), limitMs) != WAIT_OBJECT_0) return std::nullopt;
    DWORD code = 0;
    GetExitCodeProcess(process.Get(), &code);
    process.Close();
    return ProgramEnd{.exitCode = static_cast<int>(code), .notStarted = {}};
  }
};

Program Program::Start(const std::string& program, const std::vector<std::string>& arguments,
                       const ProgramStreams& streams) {
  Program started;
  Handle process;
  if (const DWORD error = Spawn(program, arguments, Open(streams), process); error != ERROR_SUCCESS) {
    started.notStarted = ErrorOf(error);
  } else {
    started.state = std::make_shared<State>(State{std::move(process)});
  }
  return started;
}

std::optional<ProgramEnd> Program::Poll() {
  if (notStarted) return ProgramEnd{.notStarted = std::exchange(notStarted, {})};
  return state && state->process ? state->EndWithin(0) : std::nullopt;
}

ProgramEnd Program::Wait() {
  if (!state || !state->process) return {.notStarted = notStarted};
  return state->EndWithin(INFINITE).value_or(ProgramEnd{});
}

// Nothing stands here between asking a window of a program, which ours do not have, and ending it.
void Program::Interrupt() const {
  Terminate();
}

void Program::Terminate() const {
  if (state && state->process) TerminateProcess(state->process.Get(), ENDED);
}

SystemError WhyNotRunnable(const std::string& program) {
  if (program.find_first_of("/\\:") == std::string::npos) {
    const auto name = ToWide(program);
    if (!name) return ErrorOf(ERROR_INVALID_NAME);
    return SearchPathW(nullptr, name->c_str(), L".exe", 0, nullptr, nullptr) != 0 ? SystemError() : LastError();
  }
  const auto place = LongForm(program);
  const DWORD attributes = place ? GetFileAttributesW(place->c_str()) : INVALID_FILE_ATTRIBUTES;
  if (attributes == INVALID_FILE_ATTRIBUTES) return place ? LastError() : ErrorOf(ERROR_INVALID_NAME);
  return attributes & FILE_ATTRIBUTE_DIRECTORY ? ErrorOf(ERROR_BAD_EXE_FORMAT) : SystemError();
}

std::string OwnProgram() {
  std::wstring path(32767, L'\0');
  path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
  return ToNarrow(path);
}

std::string FileOpener() {
  return "explorer";
}

}  // namespace quorl::cli
