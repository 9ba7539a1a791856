#include "cli/system/win32/directory_lock.h"

#include <string>

namespace quorl::cli {
namespace {

struct Claim {
  Handle handle;
  bool isFirst = false;
};

/// An object that everybody may open: it says no more than that it is there.
Claim MakeClaim(const std::wstring& name) {
  SECURITY_DESCRIPTOR anybody{};
  InitializeSecurityDescriptor(&anybody, SECURITY_DESCRIPTOR_REVISION);
  SetSecurityDescriptorDacl(&anybody, TRUE, nullptr, FALSE);
  SECURITY_ATTRIBUTES attributes{sizeof attributes, &anybody, FALSE};
  Handle handle(CreateEventW(&attributes, TRUE, FALSE, name.c_str()));
  const bool isFirst = handle && GetLastError() != ERROR_ALREADY_EXISTS;
  return {std::move(handle), isFirst};
}

bool Exists(const std::wstring& name) {
  return static_cast<bool>(Handle(OpenEventW(SYNCHRONIZE, FALSE, name.c_str())));
}

}  // namespace

Locked DirectoryLock::Take(HANDLE directory, Locking locking) {
  BY_HANDLE_FILE_INFORMATION about{};
  if (!GetFileInformationByHandle(directory, &about)) return Locked::Impossible;
  const std::wstring name = L"Global\\quorl-" + std::to_wstring(about.dwVolumeSerialNumber) + L"-" +
                            std::to_wstring(about.nFileIndexHigh) + L"-" + std::to_wstring(about.nFileIndexLow);
  const std::wstring aloneName = name + L"-alone";
  alone.Close();
  // Whoever wants it alone says so before looking for others, and others look after having said that they are there: of
  // two at once at least one sees the other.
  if (locking == Locking::Alone) {
    inUse.Close();
    Claim claim = MakeClaim(aloneName);
    if (!claim.handle) return Locked::Impossible;
    if (!claim.isFirst) return Locked::Busy;
    Claim use = MakeClaim(name);
    if (!use.handle) return Locked::Impossible;
    if (!use.isFirst) return Locked::Busy;
    alone = std::move(claim.handle);
    inUse = std::move(use.handle);
    return Locked::Yes;
  }
  if (!inUse) inUse = MakeClaim(name).handle;
  if (!inUse) return Locked::Impossible;
  if (!Exists(aloneName)) return Locked::Yes;
  inUse.Close();
  return Locked::Busy;
}

}  // namespace quorl::cli
