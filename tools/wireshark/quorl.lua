-- Wireshark shows what Quorl says: copy this file into the folder of personal Lua plugins (Help, About, Folders), or
-- give it to the programs: tshark -X lua_script:quorl.lua -r FILE. Every datagram that begins as one of these does is
-- taken for one, whatever its port. Fields are called as in docs/protocol.md, with underlines: quorl.total_blocks.

-- Made from the declarations in src/protocol. layouts begin
local DATAGRAMS = {
  [1] = {name = "CMD_COLLECT", says = "who listens?",
    length = 3, rest = "nothing",
  },
  [2] = {name = "CMD_CLIENT", says = "I do",
    length = 4, rest = "nothing",
    {3, "u8", "platform"},
  },
  [3] = {name = "CMD_MASTER", says = "you are master; or: all is sent",
    length = 7, rest = "nothing",
    {3, "u32", "state"},
  },
  [4] = {name = "CMD_RELEASE", says = "you are not master any more",
    length = 5, rest = "nothing",
    {3, "u8", "all sent"},
    {4, "u8", "second pass"},
  },
  [5] = {name = "CMD_ACK", says = "the block that I, the master, want next",
    length = 11, rest = "nothing",
    {3, "u32", "file"},
    {7, "u32", "block"},
  },
  [6] = {name = "CMD_TASK", says = "what is coming, and where to",
    length = 539, rest = "nothing",
    {3, "u32", "total blocks"},
    {7, "u32", "file count"},
    {11, "u32", "target folder"},
    {15, "name", "target path"},
  },
  [7] = {name = "CMD_RESEND", says = "a block again",
    length = 542, rest = "block",
    {3, "u32", "file"},
    {7, "u32", "block"},
    {11, "u32", "last block"},
    {15, "u8", "first sending"},
    {16, "u16", "tail size"},
    {18, "name", "name"},
  },
  [8] = {name = "CMD_FINISH", says = "the stream is over; I am done, or why not",
    length = 5, rest = "nothing",
    {3, "u16", "status"},
  },
  [9] = {name = "CMD_STOP", says = "stopped early",
    length = 3, rest = "nothing",
  },
  [10] = {name = "CMD_EMPTYDIR", says = "directories that no file creates",
    length = 7, rest = "names",
    {3, "u32", "count"},
  },
  [11] = {name = "CMD_DATA", says = "a block of the stream",
    length = 542, rest = "block",
    {3, "u32", "file"},
    {7, "u32", "block"},
    {11, "u32", "last block"},
    {15, "u8", "first sending"},
    {16, "u16", "tail size"},
    {18, "name", "name"},
  },
  [12] = {name = "CMD_ANSWER", says = "how many blocks are missing",
    length = 7, rest = "nothing",
    {3, "u32", "missing blocks"},
  },
  [13] = {name = "CMD_SERVEROS", says = "my platform",
    length = 4, rest = "nothing",
    {3, "u8", "platform"},
  },
  [14] = {name = "CMD_REPORT", says = "still alive",
    length = 7, rest = "nothing",
    {3, "u32", "reserved"},
  },
  [15] = {name = "CMD_AOFNAME", says = "the file to open at the end",
    length = 527, rest = "nothing",
    {3, "name", "name"},
  },
  [16] = {name = "CMD_OFFER", says = "what I am able to beyond all that",
    length = 14, rest = "extension",
    {3, "u8", "version"},
    {4, "u16", "extension"},
    {6, "u32", "session"},
    {10, "u32", "capabilities"},
  },
  [17] = {name = "CMD_ACCEPT", says = "what I am able to",
    length = 20, rest = "extension",
    {3, "u8", "version"},
    {4, "u16", "extension"},
    {6, "u32", "session"},
    {10, "u32", "capabilities"},
    {14, "u32", "instance"},
    {18, "u16", "longest"},
  },
  [18] = {name = "CMD_UNDERWAY", says = "a transfer that you came too late for",
    length = 18, rest = "extension",
    {3, "u8", "version"},
    {4, "u16", "extension"},
    {6, "u32", "session"},
    {10, "u32", "total blocks"},
    {14, "u32", "sent blocks"},
  },
  [19] = {name = "CMD_WORD", says = "what my host says to yours",
    length = 14, rest = "text",
    {3, "u8", "version"},
    {4, "u16", "extension"},
    {6, "u32", "session"},
    {10, "u32", "number"},
  },
  [20] = {name = "CMD_LETTER", says = "what my host says to yours",
    length = 18, rest = "text",
    {3, "u8", "version"},
    {4, "u16", "extension"},
    {6, "u32", "session"},
    {10, "u32", "instance"},
    {14, "u32", "number"},
  },
  [21] = {name = "CMD_HEARD", says = "your letter has come",
    length = 18, rest = "extension",
    {3, "u8", "version"},
    {4, "u16", "extension"},
    {6, "u32", "session"},
    {10, "u32", "instance"},
    {14, "u32", "number"},
  },
  [22] = {name = "CMD_POLL", says = "a transfer in symbols, how far it is, and who lacks what?",
    length = 567, rest = "extension",
    {3, "u8", "version"},
    {4, "u16", "extension"},
    {6, "u32", "transfer"},
    {10, "u32", "round"},
    {14, "u32", "first group"},
    {18, "u32", "end group"},
    {22, "u32", "catalogue length"},
    {26, "u16", "symbol size"},
    {28, "u16", "spread"},
    {30, "u8", "platform"},
    {31, "u32", "total blocks"},
    {35, "u32", "file count"},
    {39, "u32", "target folder"},
    {43, "name", "target path"},
  },
  [23] = {name = "CMD_SYMBOL", says = "a symbol",
    length = 12, rest = "symbol",
    {3, "u32", "transfer"},
    {7, "u32", "group"},
    {11, "u8", "index"},
  },
  [24] = {name = "CMD_LACKS", says = "what I lack",
    length = 22, rest = "lacks",
    {3, "u8", "version"},
    {4, "u16", "extension"},
    {6, "u32", "transfer"},
    {10, "u32", "round"},
    {14, "u32", "end group"},
    {18, "u32", "arrived"},
  },
}
local GROUP_LACK = {
    length = 5,
    {0, "u32", "group"},
    {4, "u8", "symbols"},
}
-- layouts end

local quorl = Proto("quorl", "Quorl")

local MAGIC = 0x0291
local HEADER = 3
local NAME_TEXT = 520

local MAKERS = {u8 = ProtoField.uint8, u16 = ProtoField.uint16, u32 = ProtoField.uint32, name = ProtoField.string}
local SIZES = {u8 = 1, u16 = 2, u32 = 4, name = NAME_TEXT + 4}

local names = {}
for code, datagram in pairs(DATAGRAMS) do names[code] = datagram.name end

-- Where a name stands in several datagrams it is one field, by which all of them are found.
local fields = {
  code = ProtoField.uint8("quorl.code", "code", base.DEC, names),
  bytes = ProtoField.bytes("quorl.bytes", "bytes"),
  extension_bytes = ProtoField.bytes("quorl.extension_bytes", "extension"),
  text = ProtoField.bytes("quorl.text", "text"),
  directory = ProtoField.string("quorl.directory", "directory"),
}
local function key(name) return (name:gsub(" ", "_")) end
local function declare(layout)
  for _, field in ipairs(layout) do
    local _, kind, name = table.unpack(field)
    fields[key(name)] = fields[key(name)] or MAKERS[kind]("quorl." .. key(name), name)
  end
end
for _, datagram in pairs(DATAGRAMS) do declare(datagram) end
declare(GROUP_LACK)
for _, field in pairs(fields) do table.insert(quorl.fields, field) end

local cut = ProtoExpert.new("quorl.cut", "Shorter than its fields", expert.group.MALFORMED, expert.severity.ERROR)
quorl.experts = {cut}

-- The text of a name: up to its first NUL, never more than its length says.
local function name_text(range)
  local length = math.min(range(NAME_TEXT, 4):le_uint(), NAME_TEXT)
  return length == 0 and "" or range:raw(0, length):match("^[^\0]*")
end

local function add_fields(layout, range, tree)
  local values = {}
  for _, field in ipairs(layout) do
    local offset, kind, name = table.unpack(field)
    local part = range(offset, SIZES[kind])
    if kind == "name" then
      values[key(name)] = name_text(part)
      tree:add(fields[key(name)], part, values[key(name)])
    else
      values[key(name)] = part:le_uint()
      tree:add_le(fields[key(name)], part)
    end
  end
  return values
end

local function add_bytes(field, range, from, tree, length)
  length = math.min(length or math.huge, range:len() - from)
  if length > 0 then tree:add(field, range(from, length)) end
  return from + math.max(length, 0)
end

-- What follows the fields.
local REST = {
  nothing = function() end,
  block = function(range, from, tree) add_bytes(fields.bytes, range, from, tree) end,
  symbol = function(range, from, tree) add_bytes(fields.bytes, range, from, tree) end,
  names = function(range, from, tree, values)
    for _ = 1, values.count do
      if range:len() - from < SIZES.name then return end
      tree:add(fields.directory, range(from, SIZES.name), name_text(range(from, SIZES.name)))
      from = from + SIZES.name
    end
  end,
  extension = function(range, from, tree, values)
    add_bytes(fields.extension_bytes, range, from, tree, values.extension)
  end,
  text = function(range, from, tree, values)
    add_bytes(fields.text, range, add_bytes(fields.extension_bytes, range, from, tree, values.extension), tree)
  end,
  lacks = function(range, from, tree, values)
    from = add_bytes(fields.extension_bytes, range, from, tree, values.extension)
    while range:len() - from >= GROUP_LACK.length do
      local group = range(from, GROUP_LACK.length)
      local branch = tree:add(quorl, group, "lacks")
      local lack = add_fields(GROUP_LACK, group, branch)
      branch:append_text(" " .. lack.symbols .. " of group " .. lack.group)
      from = from + GROUP_LACK.length
    end
  end,
}

function quorl.dissector(buffer, packet, root)
  local range = buffer()
  local datagram = DATAGRAMS[buffer(2, 1):uint()]
  local tree = root:add(quorl, range, "Quorl, " .. datagram.name .. ": " .. datagram.says)
  tree:add(fields.code, buffer(2, 1))
  packet.cols.protocol = "Quorl"
  packet.cols.info = datagram.name
  if range:len() < datagram.length then return tree:add_proto_expert_info(cut) end
  local values = add_fields(datagram, range, tree)
  for _, field in ipairs(datagram) do
    packet.cols.info:append(" " .. field[3] .. "=" .. tostring(values[key(field[3])]))
  end
  REST[datagram.rest](range, datagram.length, tree, values)
end

quorl:register_heuristic("udp", function(buffer, packet, root)
  if buffer:len() < HEADER or buffer(0, 2):le_uint() ~= MAGIC or not DATAGRAMS[buffer(2, 1):uint()] then
    return false
  end
  quorl.dissector(buffer, packet, root)
  return true
end)
