// Reading and writing of open files, on the threads that send and store blocks. System calls may do less than they were
// asked for, or be interrupted; here they go on until all is done or something real is in the way. What is zero stays a
// hole in a file where it can, so that the image of a large empty disk takes no more room than on the sender's.
#include "platform/posix/open_files.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <limits>

namespace quorl {

namespace {

static_assert(sizeof(off_t) == 8, "files of more than 2 GiB need 64-bit offsets");

// The unit in which most file systems give room.
constexpr size_t PAGE = 4096;

bool IsZero(std::span<const uint8_t> bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](uint8_t byte) { return byte == 0; });
}

/// Whether `count` bytes from `offset` on can be addressed at all.
bool IsAddressable(uint64_t offset, size_t count) {
  constexpr auto MAX_OFFSET = static_cast<uint64_t>(std::numeric_limits<off_t>::max());
  return offset <= MAX_OFFSET && count <= MAX_OFFSET - offset;
}

}  // namespace

WriteOutcome OutcomeOf(int error) {
  // A file that may grow no further is no room either.
  const bool full = error == ENOSPC || error == EDQUOT || error == EFBIG;
  return full ? WriteOutcome::DiskFull : WriteOutcome::Failed;
}

std::optional<uint64_t> PosixInputFile::Length() {
  struct stat status {};
  if (fstat(descriptor.Get(), &status) != 0) return std::nullopt;
  // The status of a disk does not tell it.
  const off_t size = S_ISBLK(status.st_mode) ? lseek(descriptor.Get(), 0, SEEK_END) : status.st_size;
  return size < 0 ? std::nullopt : std::optional(static_cast<uint64_t>(size));
}

std::optional<size_t> PosixInputFile::ReadAt(uint64_t offset, std::span<uint8_t> into) {
  if (!IsAddressable(offset, into.size())) return 0;
  size_t done = 0;
  while (done < into.size()) {
    const ssize_t count =
        pread(descriptor.Get(), into.data() + done, into.size() - done, static_cast<off_t>(offset + done));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    if (count == 0) break;
    done += static_cast<size_t>(count);
  }
  return done;
}

WriteOutcome PosixOutputFile::WriteAt(uint64_t offset, std::span<const uint8_t> bytes) {
  if (!IsAddressable(offset, bytes.size())) return WriteOutcome::DiskFull;
  struct stat status {};
  if (!length) length = fstat(descriptor.Get(), &status) == 0 ? static_cast<uint64_t>(status.st_size) : UINT64_MAX;
  const bool isBeyondEnd = offset >= *length;
  const WriteOutcome outcome = isBeyondEnd ? WriteSparsely(offset, bytes) : Write(offset, bytes);
  if (outcome == WriteOutcome::Done) length = std::max(*length, offset + bytes.size());
  return outcome;
}

/// Beyond the end of the file nothing has been written: pages of zeros there need no room.
WriteOutcome PosixOutputFile::WriteSparsely(uint64_t offset, std::span<const uint8_t> bytes) {
  const uint64_t end = offset + bytes.size();
  bool endsInHole = false;
  while (!bytes.empty()) {
    const size_t inPage = PAGE - static_cast<size_t>(offset % PAGE);
    size_t count = std::min(inPage, bytes.size());
    endsInHole = IsZero(bytes.first(count));
    // As much as possible at once.
    while (count < bytes.size() && IsZero(bytes.subspan(count, std::min(PAGE, bytes.size() - count))) == endsInHole)
      count += std::min(PAGE, bytes.size() - count);
    if (!endsInHole) {
      if (const WriteOutcome outcome = Write(offset, bytes.first(count)); outcome != WriteOutcome::Done) return outcome;
    }
    offset += count;
    bytes = bytes.subspan(count);
  }
  if (endsInHole && ftruncate(descriptor.Get(), static_cast<off_t>(end)) != 0) return OutcomeOf(errno);
  return WriteOutcome::Done;
}

WriteOutcome PosixOutputFile::Write(uint64_t offset, std::span<const uint8_t> bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t count =
        pwrite(descriptor.Get(), bytes.data() + done, bytes.size() - done, static_cast<off_t>(offset + done));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return count < 0 ? OutcomeOf(errno) : WriteOutcome::Failed;
    done += static_cast<size_t>(count);
  }
  return WriteOutcome::Done;
}

WriteOutcome PosixOutputFile::Close() {
  struct stat status {};
  const bool removed = fstat(descriptor.Get(), &status) == 0 && status.st_nlink == 0;
  // An interrupted close has closed the descriptor all the same.
  if (close(descriptor.Release()) != 0 && errno != EINTR) return OutcomeOf(errno);
  return removed ? WriteOutcome::Removed : WriteOutcome::Done;
}

}  // namespace quorl
