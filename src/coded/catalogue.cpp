#include "coded/catalogue.h"

#include "protocol/layout.h"

namespace quorl {

namespace {

class Writer {
 public:
  template <typename Value>
  void Put(Value value) {
    const size_t at = bytes.size();
    bytes.resize(at + sizeof(Value));
    WriteField(std::span(bytes).subspan(at), value);
  }
  void PutName(const std::string& name) {
    Put(static_cast<uint16_t>(name.size()));
    bytes.insert(bytes.end(), name.begin(), name.end());
  }

  std::vector<uint8_t> bytes;
};

/// Once something was missing, everything that follows is 0 or empty.
class Reader {
 public:
  explicit Reader(std::span<const uint8_t> bytes) : rest(bytes) {}

  template <typename Value>
  Value Take() {
    const auto field = TakeBytes(sizeof(Value));
    return field.empty() ? Value{0} : ReadField<Value>(field);
  }
  std::string TakeName() {
    const auto size = Take<uint16_t>();
    fails = fails || size >= NAME_TEXT_SIZE;
    const auto text = TakeBytes(size);
    return {text.begin(), text.end()};
  }
  bool Fails() const { return fails; }
  bool IsAtEnd() const { return !fails && rest.empty(); }

 private:
  std::span<const uint8_t> TakeBytes(size_t size) {
    fails = fails || rest.size() < size;
    if (fails) return {};
    const auto taken = rest.first(size);
    rest = rest.subspan(size);
    return taken;
  }

  std::span<const uint8_t> rest;
  bool fails = false;
};

}  // namespace

std::vector<uint8_t> BuildCatalogue(const Catalogue& catalogue) {
  Writer writer;
  writer.PutName(catalogue.autoOpenName);
  writer.Put(static_cast<uint32_t>(catalogue.files.size()));
  for (const Catalogue::File& file : catalogue.files) {
    writer.Put(file.shape.Length());
    writer.PutName(file.name);
  }
  writer.Put(static_cast<uint32_t>(catalogue.directories.size()));
  for (const std::string& name : catalogue.directories) writer.PutName(name);
  return std::move(writer.bytes);
}

// Lists grow with what has really come, whatever their counts promise.
std::optional<Catalogue> ParseCatalogue(std::span<const uint8_t> bytes, uint32_t fileCount, uint32_t totalBlocks) {
  Reader reader(bytes);
  Catalogue catalogue;
  catalogue.autoOpenName = reader.TakeName();
  if (reader.Take<uint32_t>() != fileCount) return std::nullopt;
  uint64_t blocks = 0;
  for (uint32_t i = 0; i < fileCount && !reader.Fails(); ++i) {
    const auto shape = FileShape::Of(reader.Take<uint64_t>());
    if (!shape) return std::nullopt;
    blocks += shape->BlockCount();
    catalogue.files.push_back({reader.TakeName(), *shape});
  }
  const auto directories = reader.Take<uint32_t>();
  for (uint32_t i = 0; i < directories && !reader.Fails(); ++i) catalogue.directories.push_back(reader.TakeName());
  if (!reader.IsAtEnd() || blocks != totalBlocks) return std::nullopt;
  return catalogue;
}

}  // namespace quorl
