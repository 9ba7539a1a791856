// The record as text: the catalogue of the files that are there, its length before it, and a line for each run of
// blocks.
#include "cli/staging/kept.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <sstream>
#include <utility>

#include "cli/show/views.h"

namespace quorl::cli {
namespace {

constexpr size_t RECORD_LIMIT = 2 * MANIFEST_LIMIT;
constexpr std::string_view HEADER = "quorl-record 1";

uint64_t BlocksOf(uint64_t size) {
  return size / BLOCK_SIZE + 1;
}

}  // namespace

bool Kept::File::IsWhole() const {
  return blocks.size() == 1 && blocks.front().first == 0 && blocks.front().second == BlocksOf(size);
}

uint64_t Kept::Bytes() const {
  uint64_t bytes = 0;
  for (const auto& [name, file] : files) {
    uint64_t count = 0;
    for (const auto& run : file.blocks) count += run.second;
    bytes += std::min(file.size, count * BLOCK_SIZE);
  }
  return bytes;
}

void RecordText::AddFile(const std::string& name, uint64_t size, FileTime written) {
  catalogue.Add(name, size, written);
  ++files;
}

void RecordText::AddBlocks(uint32_t first, uint32_t count) {
  fmt::format_to(std::back_inserter(blocks), "{} {} {}\n", files - 1, first, count);
}

std::string RecordText::Finish() {
  std::string text = catalogue.Finish();
  text.insert(0, fmt::format("{} {}\n", HEADER, text.size()));
  return text += blocks;
}

SystemError WriteRecord(const Directory& staging, const Kept& kept) {
  RecordText text;
  for (const auto& [name, file] : kept.files) {
    text.AddFile(name, file.size, file.written);
    for (const auto& [first, count] : file.blocks) text.AddBlocks(first, count);
  }
  return WriteRecord(staging, std::move(text));
}

SystemError WriteRecord(const Directory& staging, RecordText text) {
  // In one step: whoever looks for it finds the old one or the new one whole.
  const std::string next = std::string(RECORD_NAME) + "-new";
  staging.Remove(next);
  if (const SystemError error = staging.Write(next, text.Finish())) return error;
  return staging.Move(next, staging, std::string(RECORD_NAME), OntoName::Any);
}

Kept ReadRecord(const Directory& staging) {
  Kept kept;
  OpenedFile file = staging.Read(RECORD_NAME);
  const auto stamp = file ? file.Stamp() : std::nullopt;
  if (!stamp || stamp->size > RECORD_LIMIT) return kept;
  std::string text(static_cast<size_t>(stamp->size), '\0');
  if (file.Read(text) != text.size()) return kept;
  std::istringstream lines(text);
  std::string word, version;
  size_t length = 0;
  if (!(lines >> word >> version >> length) || word + " " + version != HEADER || lines.get() != '\n') return kept;
  const auto begin = static_cast<size_t>(lines.tellg());
  if (length > text.size() - begin) return kept;
  const auto parsed = ParseCatalogue(std::string_view(text).substr(begin, length), nullptr);
  const auto* read = std::get_if<ReadManifest>(&parsed);
  if (read == nullptr) return kept;
  const std::vector<ManifestEntry>& entries = read->manifest.files;
  lines.seekg(static_cast<std::streamoff>(begin + length));
  size_t index = 0;
  uint64_t first = 0, count = 0;
  while (lines >> index >> first >> count) {
    if (index >= entries.size() || count == 0 || first > BlocksOf(entries[index].size) ||
        count > BlocksOf(entries[index].size) - first)
      return {};
    Kept::File& one = kept.files[entries[index].name];
    one.size = entries[index].size;
    one.written = entries[index].written;
    if (!one.blocks.empty() && first < uint64_t{one.blocks.back().first} + one.blocks.back().second) return {};
    one.blocks.emplace_back(static_cast<uint32_t>(first), static_cast<uint32_t>(count));
  }
  return kept;
}

}  // namespace quorl::cli
