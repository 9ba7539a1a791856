// Reading and writing of open files, on the threads that send and store blocks.
#include "platform/win32/open_files.h"

#include <algorithm>
#include <limits>

namespace quorl {

namespace {

constexpr size_t LONGEST_PIECE = 1 << 30;

// Over a quota; not in every version of the headers.
constexpr DWORD QUOTA_EXCEEDED = 1295;

/// Where a call on a file begins; the handle's own position is not used.
OVERLAPPED At(uint64_t offset) {
  OVERLAPPED where{};
  where.Offset = static_cast<DWORD>(offset);
  where.OffsetHigh = static_cast<DWORD>(offset >> 32);
  return where;
}

DWORD Piece(size_t bytes) {
  return static_cast<DWORD>(std::min(bytes, LONGEST_PIECE));
}

/// Whether `count` bytes from `offset` on can be addressed at all.
bool IsAddressable(uint64_t offset, size_t count) {
  constexpr auto MAX_OFFSET = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
  return offset <= MAX_OFFSET && count <= MAX_OFFSET - offset;
}

}  // namespace

WriteOutcome OutcomeOf(DWORD error) {
  switch (error) {
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
    case QUOTA_EXCEEDED:
    case ERROR_FILE_TOO_LARGE: return WriteOutcome::DiskFull;
    default: return WriteOutcome::Failed;
  }
}

std::optional<uint64_t> Win32InputFile::Length() {
  LARGE_INTEGER length{};
  if (!GetFileSizeEx(handle.Get(), &length)) return std::nullopt;
  return static_cast<uint64_t>(length.QuadPart);
}

std::optional<size_t> Win32InputFile::ReadAt(uint64_t offset, std::span<uint8_t> into) {
  if (!IsAddressable(offset, into.size())) return 0;
  size_t done = 0;
  while (done < into.size()) {
    OVERLAPPED where = At(offset + done);
    DWORD count = 0;
    const bool read = ReadFile(handle.Get(), into.data() + done, Piece(into.size() - done), &count, &where);
    if (!read && GetLastError() != ERROR_HANDLE_EOF) return std::nullopt;
    if (!read || count == 0) break;
    done += count;
  }
  return done;
}

WriteOutcome Win32OutputFile::WriteAt(uint64_t offset, std::span<const uint8_t> bytes) {
  if (!IsAddressable(offset, bytes.size())) return WriteOutcome::DiskFull;
  size_t done = 0;
  while (done < bytes.size()) {
    OVERLAPPED where = At(offset + done);
    DWORD count = 0;
    if (!WriteFile(handle.Get(), bytes.data() + done, Piece(bytes.size() - done), &count, &where))
      return OutcomeOf(GetLastError());
    if (count == 0) return WriteOutcome::Failed;
    done += count;
  }
  return WriteOutcome::Done;
}

WriteOutcome Win32OutputFile::Close() {
  FILE_STANDARD_INFO about{};
  const bool removed = GetFileInformationByHandleEx(handle.Get(), FileStandardInfo, &about, sizeof about) &&
                       (about.DeletePending || about.NumberOfLinks == 0);
  if (!handle.Close()) return OutcomeOf(GetLastError());
  return removed ? WriteOutcome::Removed : WriteOutcome::Done;
}

}  // namespace quorl
