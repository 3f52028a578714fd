-- Wireshark's reading of captures of the board's DMA messages, written by libzce-record.so: files of
-- link type USER0 (147). The layouts are those of ZceCapture.h and ZceBoardMsg.h.
--
--     tshark -X lua_script:zce.lua -r day.pcap
--     wireshark -X lua_script:zce.lua day.pcap
--
-- What does not fit its layout is shown with an expert note, filter "zce.malformed or zce.odd".

local zce = Proto("zce", "ZCE board")

zce.prefs.software_board = Pref.bool("Messages of the software board", true,
    "Read the messages' heads and the bodies of types 17 to 20 as the software board's")

-- ---- Names ---------------------------------------------------------------------------------------

local VERSION, KIND_MESSAGE, KIND_LOST = 1, 1, 2
local PREFIX_SIZE, HEAD_SIZE = 16, 12
local BUS_UNKNOWN = 65535
local TYPE_MAP = 2
local MAP_LENGTH_AT, MAP_RECORDS_AT, MAP_MIN_SIZE = 12, 14, 15
local FIRST_RECORD_EXTRA, RECORD_HEAD = 4, 5
local NAME_LIMIT, TABLE_SIZE = 64, 4096
local QUOTE_SIZE, LEVEL_SIZE, PRICE_SCALE = 112, 24, 10000

local kinds = {[1] = "message", [2] = "lost"}
local tables = {[0] = "single-leg", [1] = "combination"}
local phases = {[0] = "closed", [1] = "auction", [2] = "trading", [3] = "break"}
local types = {
    [2] = "instrument map",
    [17] = "L1 single-leg", [18] = "L1 combination",
    [19] = "L5 single-leg", [20] = "L5 combination",
}
-- What the bodies of types 17 to 20 hold.
local bodies = {
    [17] = {levels = 1, inTable = 0}, [18] = {levels = 1, inTable = 1},
    [19] = {levels = 5, inTable = 0}, [20] = {levels = 5, inTable = 1},
}

-- ---- Fields --------------------------------------------------------------------------------------

local f = {
    version = ProtoField.uint8("zce.version", "Version"),
    kind = ProtoField.uint8("zce.kind", "Kind", base.DEC, kinds),
    bus = ProtoField.uint16("zce.bus", "Bus"),
    channel = ProtoField.uint16("zce.channel", "Channel"),
    opening = ProtoField.uint16("zce.opening", "Opening of the stream"),
    number = ProtoField.uint64("zce.number", "Message number"),
    lost = ProtoField.uint64("zce.lost", "Messages lost"),

    type = ProtoField.uint32("zce.type", "Type", base.DEC, types),
    headChannel = ProtoField.uint16("zce.head.channel", "Channel"),
    headLength = ProtoField.uint16("zce.head.length", "Body length"),
    headRest = ProtoField.bytes("zce.head.rest", "Not read"),
    data = ProtoField.bytes("zce.data", "Data"),

    mapLength = ProtoField.uint16("zce.map.length", "Length of the records"),
    recordLength = ProtoField.uint16("zce.map.record.length", "Length"),
    recordUnread = ProtoField.bytes("zce.map.record.unread", "Not read"),
    attribute = ProtoField.uint8("zce.map.attribute", "Attribute"),
    mapIndex = ProtoField.uint16("zce.map.index", "Index"),
    mapName = ProtoField.string("zce.map.name", "Name"),

    seq = ProtoField.uint64("zce.seq", "Sequence number"),
    date = ProtoField.string("zce.date", "Exchange date"),
    time = ProtoField.string("zce.time", "Exchange time"),
    timeNs = ProtoField.string("zce.time_ns", "Exchange time in ns"),
    name = ProtoField.string("zce.name", "Instrument"),
    index = ProtoField.uint16("zce.index", "Index"),
    table = ProtoField.uint8("zce.table", "Table", base.DEC, tables),
    levels = ProtoField.uint8("zce.levels", "Price levels"),
    phase = ProtoField.uint8("zce.phase", "Phase", base.DEC, phases),
    last = ProtoField.double("zce.last", "Last price"),
    open = ProtoField.double("zce.open", "Open price"),
    high = ProtoField.double("zce.high", "High price"),
    low = ProtoField.double("zce.low", "Low price"),
    preSettle = ProtoField.double("zce.presettle", "Previous settlement price"),
    volume = ProtoField.uint64("zce.volume", "Volume"),
    openInterest = ProtoField.uint64("zce.openinterest", "Open interest"),
    lastVolume = ProtoField.uint32("zce.lastvolume", "Last volume"),

    bid = ProtoField.double("zce.bid", "Bid price"),
    ask = ProtoField.double("zce.ask", "Ask price"),
    bidVolume = ProtoField.uint32("zce.bidvolume", "Bid volume"),
    askVolume = ProtoField.uint32("zce.askvolume", "Ask volume"),
}
zce.fields = f

local malformed = ProtoExpert.new("zce.malformed", "Malformed", expert.group.MALFORMED,
    expert.severity.ERROR)
local odd = ProtoExpert.new("zce.odd", "Not as expected", expert.group.PROTOCOL,
    expert.severity.WARN)
local lostNote = ProtoExpert.new("zce.lost.note", "Messages lost", expert.group.SEQUENCE,
    expert.severity.WARN)
zce.experts = {malformed, odd, lostNote}

-- ---- Values --------------------------------------------------------------------------------------

-- The text up to its first zero byte.
local function text(range)
    return (range:string():gsub("%z.*", ""))
end

local function timeOfDay(hhmmss)
    return string.format("%02d:%02d:%02d", math.floor(hhmmss / 10000),
        math.floor(hhmmss / 100) % 100, hhmmss % 100)
end

local function date(yyyymmdd)
    return string.format("%04d-%02d-%02d", math.floor(yyyymmdd / 10000),
        math.floor(yyyymmdd / 100) % 100, yyyymmdd % 100)
end

local function timeInNs(range)
    local ns = range:le_uint64():tonumber()
    local seconds = math.floor(ns / 1e9)
    return string.format("%02d:%02d:%02d.%09d", math.floor(seconds / 3600),
        math.floor(seconds / 60) % 60, seconds % 60, ns % 1e9)
end

local function price(range)
    return range:le_int64():tonumber() / PRICE_SCALE
end

-- A price in units, without zeroes at its end.
local function units(value)
    return (string.format("%.4f", value):gsub("%.?0+$", ""))
end

-- An expert note that the packet list shows too.
local function complain(tree, pinfo, note, what)
    tree:add_proto_expert_info(note, what)
    pinfo.cols.info:append(" [" .. what .. "]")
end

-- ---- Instrument map ------------------------------------------------------------------------------

-- One record; its length, or nil when there is no going on behind it.
local function mapRecord(tvb, pinfo, tree, at, left, number, names)
    if left < 2 then
        complain(tree, pinfo, malformed, "record " .. number .. " is cut in its length")
        return nil
    end
    local extra = number == 0 and FIRST_RECORD_EXTRA or 0
    local length = tvb(at, 2):uint()
    local record = tree:add(tvb(at, math.min(math.max(length, 2), left)), "Record " .. number)
    record:add(f.recordLength, tvb(at, 2))
    if length < RECORD_HEAD + extra then
        complain(record, pinfo, malformed, string.format(
            "record %d has a length of %d, shorter than its head", number, length))
        return nil
    end
    if length > left then
        complain(record, pinfo, malformed, string.format(
            "record %d of %d bytes ends behind the records, which have %d more", number, length,
            left))
        return nil
    end
    if extra ~= 0 then
        record:add(f.recordUnread, tvb(at + 2, extra))
    end
    local fields = at + extra
    record:add(f.attribute, tvb(fields + 2, 1))
    record:add(f.mapIndex, tvb(fields + 3, 2))
    local index = tvb(fields + 3, 2):uint()
    local nameLength = length - RECORD_HEAD - extra
    local name = nameLength > 0 and text(tvb(fields + RECORD_HEAD, nameLength)) or ""
    if nameLength > 0 then
        record:add(f.mapName, tvb(fields + RECORD_HEAD, nameLength), name)
    end
    record:set_text(string.format("Record %d: %s, index %d", number, name, index))
    if nameLength >= NAME_LIMIT then
        complain(record, pinfo, malformed, string.format("record %d has a name of %d bytes", number,
            nameLength))
    end
    if index >= TABLE_SIZE then
        complain(record, pinfo, odd, string.format("record %d has the index %d, beyond the table",
            number, index))
    end
    names[#names + 1] = name
    return length
end

local function instrumentMap(tvb, pinfo, tree)
    if tvb:len() < MAP_MIN_SIZE then
        complain(tree, pinfo, malformed, string.format("instrument map of %d bytes", tvb:len()))
        return
    end
    local map = tree:add(tvb(MAP_LENGTH_AT), "Instrument map")
    local announced = tvb(MAP_LENGTH_AT, 2):uint()
    map:add(f.mapLength, tvb(MAP_LENGTH_AT, 2))
    local announcedEnd = MAP_RECORDS_AT + announced
    local recordsEnd = math.min(announcedEnd, tvb:len())
    local names, at = {}, MAP_RECORDS_AT
    -- A single byte at the end begins no record.
    while at + 1 < announcedEnd do
        local length = mapRecord(tvb, pinfo, map, at, recordsEnd - at, #names, names)
        if length == nil then
            break
        end
        at = at + length
    end
    local summary = string.format("%d instruments", #names)
    if #names > 0 then
        summary = summary .. ": " .. names[1] .. (#names > 1 and " to " .. names[#names] or "")
    end
    map:append_text(", " .. summary)
    pinfo.cols.info:append(", " .. summary)
    if announcedEnd > tvb:len() then
        complain(map, pinfo, malformed, string.format("%d bytes of records announced, %d there",
            announced, tvb:len() - MAP_RECORDS_AT))
    elseif announcedEnd < tvb:len() then
        complain(map, pinfo, odd, string.format("%d bytes behind the records",
            tvb:len() - announcedEnd))
    end
end

-- ---- Market data ---------------------------------------------------------------------------------

local function level(tvb, tree, number)
    local bid, ask = price(tvb(0, 8)), price(tvb(8, 8))
    local bidVolume, askVolume = tvb(16, 4):le_uint(), tvb(20, 4):le_uint()
    local summary = string.format("bid %s x %d ask %s x %d", units(bid), bidVolume, units(ask),
        askVolume)
    local item = tree:add(tvb(), string.format("Level %d: %s", number, summary))
    item:add(f.bid, tvb(0, 8), bid)
    item:add(f.ask, tvb(8, 8), ask)
    item:add_le(f.bidVolume, tvb(16, 4))
    item:add_le(f.askVolume, tvb(20, 4))
    return summary
end

local function quote(tvb, tree)
    tree:add_le(f.seq, tvb(0, 8))
    tree:add(f.date, tvb(8, 4), date(tvb(8, 4):le_uint()))
    tree:add(f.time, tvb(12, 4), timeOfDay(tvb(12, 4):le_uint()))
    tree:add(f.timeNs, tvb(16, 8), timeInNs(tvb(16, 8)))
    tree:add(f.name, tvb(24, 16), text(tvb(24, 16)))
    tree:add_le(f.index, tvb(40, 2))
    tree:add(f.table, tvb(42, 1))
    tree:add(f.levels, tvb(43, 1))
    tree:add(f.phase, tvb(44, 1))
    tree:add(f.last, tvb(48, 8), price(tvb(48, 8)))
    tree:add(f.open, tvb(56, 8), price(tvb(56, 8)))
    tree:add(f.high, tvb(64, 8), price(tvb(64, 8)))
    tree:add(f.low, tvb(72, 8), price(tvb(72, 8)))
    tree:add(f.preSettle, tvb(80, 8), price(tvb(80, 8)))
    tree:add_le(f.volume, tvb(88, 8))
    tree:add_le(f.openInterest, tvb(96, 8))
    tree:add_le(f.lastVolume, tvb(104, 4))
end

local function marketData(tvb, pinfo, tree, layout)
    local size = QUOTE_SIZE + layout.levels * LEVEL_SIZE
    local there = tvb:len() - HEAD_SIZE
    if there < size then
        if there > 0 then
            tree:add(f.data, tvb(HEAD_SIZE))
        end
        complain(tree, pinfo, malformed, string.format("body of %d bytes, expected %d", there, size))
        return
    end
    local body = tvb(HEAD_SIZE, size):tvb()
    local item = tree:add(body(), "Body: " .. text(body(24, 16)))
    quote(body, item)
    local best
    for k = 1, layout.levels do
        local one = level(body(QUOTE_SIZE + (k - 1) * LEVEL_SIZE, LEVEL_SIZE):tvb(), item, k)
        best = best or one
    end
    pinfo.cols.info:append(string.format(" %s last %s %s volume %s", text(body(24, 16)),
        units(price(body(48, 8))), best, tostring(body(88, 8):le_uint64())))
    if body(42, 1):uint() ~= layout.inTable then
        complain(item, pinfo, odd, string.format("table %d in a message of the other",
            body(42, 1):uint()))
    end
    if body(43, 1):uint() ~= layout.levels then
        complain(item, pinfo, odd, string.format("%d price levels announced, %d there",
            body(43, 1):uint(), layout.levels))
    end
    if phases[body(44, 1):uint()] == nil then
        complain(item, pinfo, odd, string.format("phase %d", body(44, 1):uint()))
    end
    if there > size then
        complain(item, pinfo, odd, string.format("%d bytes behind the body", there - size))
    end
end

-- ---- Message -------------------------------------------------------------------------------------

-- The software board's head; of any board's head the type alone is known.
local function boardHead(tvb, pinfo, head, channel)
    head:add_le(f.headChannel, tvb(4, 2))
    head:add_le(f.headLength, tvb(6, 2))
    head:add(f.headRest, tvb(8, 4))
    local length = tvb(6, 2):le_uint()
    if tvb(4, 2):le_uint() ~= channel then
        complain(head, pinfo, odd, string.format("sent to channel %d, polled on %d",
            tvb(4, 2):le_uint(), channel))
    end
    if length ~= tvb:len() - HEAD_SIZE then
        complain(head, pinfo, odd, string.format("body of %d bytes announced, %d there", length,
            tvb:len() - HEAD_SIZE))
    end
end

local function message(tvb, pinfo, tree, channel)
    if tvb:len() < HEAD_SIZE then
        tree:add(f.data, tvb())
        pinfo.cols.info:append(" message")
        complain(tree, pinfo, malformed, string.format("message of %d bytes, too short for its head",
            tvb:len()))
        return
    end
    local kind = tvb(0, 4):le_uint()
    local head = tree:add(tvb(0, HEAD_SIZE), "Head: type " .. kind)
    head:add_le(f.type, tvb(0, 4))
    pinfo.cols.info:append(" " .. (types[kind] or "type " .. kind))
    if zce.prefs.software_board then
        boardHead(tvb, pinfo, head, channel)
    else
        head:add(f.headRest, tvb(4, 8))
    end
    if kind == TYPE_MAP then
        instrumentMap(tvb, pinfo, tree)
    elseif bodies[kind] ~= nil and zce.prefs.software_board then
        marketData(tvb, pinfo, tree, bodies[kind])
    else
        if tvb:len() > HEAD_SIZE then
            tree:add(f.data, tvb(HEAD_SIZE))
        end
        pinfo.cols.info:append(string.format(", body of %d bytes", tvb:len() - HEAD_SIZE))
        if bodies[kind] == nil then
            complain(head, pinfo, odd, "no such type")
        end
    end
end

-- ---- Packet --------------------------------------------------------------------------------------

-- The prefix; kind and channel, or nil when there is no going on.
local function prefix(tvb, pinfo, tree)
    local item = tree:add(tvb(0, math.min(PREFIX_SIZE, tvb:len())), "Prefix")
    if tvb:len() < PREFIX_SIZE then
        complain(item, pinfo, malformed, string.format("prefix cut after %d bytes", tvb:len()))
        return nil
    end
    item:add(f.version, tvb(0, 1))
    if tvb(0, 1):uint() ~= VERSION then
        complain(item, pinfo, malformed, string.format("version %d", tvb(0, 1):uint()))
        return nil
    end
    local kind, bus, channel = tvb(1, 1):uint(), tvb(2, 2):le_uint(), tvb(4, 2):le_uint()
    item:add(f.kind, tvb(1, 1))
    local busItem = item:add_le(f.bus, tvb(2, 2))
    if bus == BUS_UNKNOWN then
        busItem:append_text(" (not known)")
    end
    item:add_le(f.channel, tvb(4, 2))
    item:add_le(f.opening, tvb(6, 2))
    pinfo.cols.src = bus == BUS_UNKNOWN and "board ?" or "board " .. bus
    pinfo.cols.dst = "channel " .. channel
    if kind ~= KIND_MESSAGE and kind ~= KIND_LOST then
        complain(item, pinfo, malformed, string.format("kind %d", kind))
        return nil
    end
    if channel > 15 then
        complain(item, pinfo, malformed, string.format("channel %d", channel))
    end
    item:add_le(kind == KIND_LOST and f.lost or f.number, tvb(8, 8))
    return kind, channel
end

function zce.dissector(tvb, pinfo, root)
    pinfo.cols.protocol = "ZCE"
    pinfo.cols.info = ""
    local tree = root:add(zce, tvb())
    if tvb:len() == 0 then
        complain(tree, pinfo, malformed, "empty packet")
        return
    end
    local kind, channel = prefix(tvb, pinfo, tree)
    if kind == nil then
        return
    end
    local number = tostring(tvb(8, 8):le_uint64())
    if kind == KIND_LOST then
        pinfo.cols.info:append(number .. " messages lost")
        tree:add_proto_expert_info(lostNote, number .. " messages lost")
        if tvb:len() > PREFIX_SIZE then
            complain(tree, pinfo, malformed, string.format("%d bytes behind the note",
                tvb:len() - PREFIX_SIZE))
        end
        return
    end
    pinfo.cols.info:append("#" .. number)
    if tvb:len() == PREFIX_SIZE then
        complain(tree, pinfo, malformed, "message of 0 bytes")
        return
    end
    message(tvb(PREFIX_SIZE):tvb(), pinfo, tree, channel)
end

DissectorTable.get("wtap_encap"):add(wtap.USER0, zce)
