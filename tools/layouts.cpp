// Writes the layouts of all datagrams, as the code declares them, into the files that tell people and Wireshark of
// them, between two marked lines of each; or checks that they stand there.
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "protocol/datagram_list.h"

namespace quorl {
namespace {

constexpr std::string_view BEGIN = "layouts begin", END = "layouts end";

template <typename Value>
constexpr std::string_view TypeName() {
  if constexpr (std::is_same_v<Value, NameField>) return "name";
  if constexpr (std::is_same_v<Value, uint8_t>) return "u8";
  if constexpr (std::is_same_v<Value, uint16_t>) return "u16";
  if constexpr (std::is_same_v<Value, uint32_t>) return "u32";
}

/// What a table needs of a field.
struct Row {
  size_t offset = 0;
  std::string_view type;
  std::string_view name;
};

template <typename Fields>
std::vector<Row> RowsOf() {
  std::vector<Row> rows;
  ForEachField<Fields>([&]<typename Value>(const Field<Fields, Value>& field) {
    rows.push_back({field.offset, TypeName<Value>(), field.name});
  });
  return rows;
}

// ---- for people ----

std::string Cells(const std::vector<std::string>& cells) {
  std::string line = "|";
  for (const std::string& cell : cells) line += (cell.empty() ? "" : " ") + cell + " |";
  return line + "\n";
}

/// What follows the fields, as further rows: type and name.
std::vector<Row> RowsBehind(Rest rest, size_t offset) {
  switch (rest) {
    case Rest::Nothing: return {};
    case Rest::Block: return {{offset, "bytes", "of the block"}};
    case Rest::Names: return {{offset, "names", "as many as the count says"}};
    case Rest::Extension: return {{offset, "bytes", "extension"}};
    case Rest::Text: return {{offset, "bytes", "extension; text"}};
    case Rest::Symbol: return {{offset, "bytes", "of the symbol"}};
    case Rest::Lacks: return {{offset, "bytes", "extension; for each group u32 number, u8 symbols that it lacks"}};
  }
  return {};
}

std::string Tables() {
  std::string list = Cells({"code", "name", "from, to", "says"}) + "|---|---|---|---|\n";
  std::string fields = Cells({"code", "name", "offset", "type", "field"}) + "|---|---|---:|---|---|\n";
  ForEachDatagram([&]<typename Fields>(const ListedDatagram<Fields>& listed) {
    std::string code = std::to_string(listed.code), name(listed.name);
    list += Cells({code, name, std::string(listed.way), std::string(listed.says)});
    std::vector<Row> rows = RowsOf<Fields>();
    for (const Row& row : RowsBehind(listed.rest, LENGTH<Fields>)) rows.push_back(row);
    for (const Row& row : rows) {
      fields += Cells({code, name, std::to_string(row.offset), std::string(row.type), std::string(row.name)});
      code.clear();
      name.clear();
    }
  });
  return "\n" + list + "\n" + fields + "\n";
}

// ---- for Wireshark ----

std::string_view NameOf(Rest rest) {
  switch (rest) {
    case Rest::Nothing: return "nothing";
    case Rest::Block: return "block";
    case Rest::Names: return "names";
    case Rest::Extension: return "extension";
    case Rest::Text: return "text";
    case Rest::Symbol: return "symbol";
    case Rest::Lacks: return "lacks";
  }
  return "";
}

std::string Quoted(std::string_view text) {
  return "\"" + std::string(text) + "\"";
}

std::string LuaFields(const std::vector<Row>& rows) {
  std::string text;
  for (const Row& row : rows)
    text += "    {" + std::to_string(row.offset) + ", " + Quoted(row.type) + ", " + Quoted(row.name) + "},\n";
  return text;
}

std::string Lua() {
  std::string text = "local DATAGRAMS = {\n";
  ForEachDatagram([&]<typename Fields>(const ListedDatagram<Fields>& listed) {
    text += "  [" + std::to_string(listed.code) + "] = {name = " + Quoted(listed.name) +
            ", says = " + Quoted(listed.says) + ",\n    length = " + std::to_string(LENGTH<Fields>) +
            ", rest = " + Quoted(NameOf(listed.rest)) + ",\n" + LuaFields(RowsOf<Fields>()) + "  },\n";
  });
  return text + "}\nlocal GROUP_LACK = {\n    length = " + std::to_string(GROUP_LACK_SIZE) + ",\n" +
         LuaFields(RowsOf<GroupLack>()) + "}\n";
}

// ---- files ----

std::string Read(const char* path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// What stands between the two marked lines; an empty view at the begin when they are not there.
std::string_view MarkedIn(std::string_view text) {
  const size_t begin = text.find('\n', text.find(BEGIN));
  const size_t end = text.rfind('\n', text.find(END));
  if (begin == text.npos || text.find(BEGIN) == text.npos || text.find(END) == text.npos || end < begin) return {};
  return text.substr(begin + 1, end - begin);
}

/// Whether the file holds what it is to hold, in the end.
bool Tend(const char* path, bool writes) {
  const std::string text = Read(path);
  const std::string_view marked = MarkedIn(text);
  if (marked.data() == nullptr) {
    std::printf("%s: nothing is marked\n", path);
    return false;
  }
  const std::string wanted = std::string_view(path).ends_with(".lua") ? Lua() : Tables();
  if (marked == wanted) return true;
  if (!writes) {
    std::printf("%s: differs from src/protocol/datagrams.h; write it with: ./dev layouts\n", path);
    return false;
  }
  const auto begin = static_cast<size_t>(marked.data() - text.data());
  std::ofstream file(path, std::ios::binary);
  file << text.substr(0, begin) << wanted << text.substr(begin + marked.size());
  return static_cast<bool>(file.flush());
}

}  // namespace
}  // namespace quorl

int main(int argc, char** argv) {
  const std::string_view verb = argc > 1 ? argv[1] : "";
  if (argc < 3 || (verb != "check" && verb != "write")) {
    std::fputs("usage: layouts check|write FILE...\n", stderr);
    return 2;
  }
  bool sound = true;
  for (int i = 2; i < argc; ++i) sound = quorl::Tend(argv[i], verb == "write") && sound;
  return sound ? 0 : 1;
}
