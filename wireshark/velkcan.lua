-- SPDX-License-Identifier: MIT
-- Wireshark dissector for the frames that docs/frame-format.md describes.
--
-- Copy it into the folder of personal Lua plugins (Help > About > Folders), or start
--   tshark -X lua_script:velkcan.lua -d can.subdissector,velkcan -r candump.log
-- In Wireshark: Analyze > Decode As, "CAN next level dissector", VELKCAN.

local velkcan = Proto("velkcan", "Velk CAN Transport")

local kinds = { [0] = "single frame", "first frame", "consecutive frame", "flow control" }
local short = { [0] = "SF", "FF", "CF", "FC" }
local codes = { [0] = "not ready to receive", "ready to receive", "not acknowledge", "acknowledge" }

local f = velkcan.fields
f.kind = ProtoField.uint8("velkcan.kind", "Kind", base.DEC, kinds, 0xF0)
f.low = ProtoField.uint8("velkcan.low", "Low nibble", base.DEC, nil, 0x0F)
f.length = ProtoField.uint16("velkcan.length", "Message length", base.DEC)
f.sequence = ProtoField.uint8("velkcan.sequence", "Sequence number", base.DEC, nil, 0x0F)
f.code = ProtoField.uint8("velkcan.code", "Flow-control code", base.DEC, codes, 0x0F)
f.data = ProtoField.bytes("velkcan.data", "Bytes of the message")
f.padding = ProtoField.bytes("velkcan.padding", "Padding")
f.attempt = ProtoField.uint32("velkcan.attempt", "Attempt", base.DEC)
f.message = ProtoField.bytes("velkcan.message", "Message")
f.answer_to = ProtoField.framenum("velkcan.answer_to", "Answer to the message in")
f.answered_in = ProtoField.framenum("velkcan.answered_in", "Answered in")

local e = velkcan.experts
e.refused = ProtoExpert.new("velkcan.refused", "The receiver refuses the message",
    expert.group.RESPONSE_CODE, expert.severity.WARN)
e.retry = ProtoExpert.new("velkcan.retry", "The message is sent again", expert.group.SEQUENCE,
    expert.severity.NOTE)
e.order = ProtoExpert.new("velkcan.order", "Wrong sequence number", expert.group.SEQUENCE,
    expert.severity.WARN)
e.stray = ProtoExpert.new("velkcan.stray", "No message is under way", expert.group.SEQUENCE,
    expert.severity.WARN)
e.invalid = ProtoExpert.new("velkcan.invalid", "The frame has no meaning", expert.group.MALFORMED,
    expert.severity.ERROR)

local can_id = Field.new("can.id")
local can_extended = Field.new("can.flags.xtd")
local interface = Field.new("frame.interface_id")

-- The first pass sees the frames in order; what it finds is kept by frame number, as Wireshark later
-- dissects single frames in any order.
local senders, latest, found

function velkcan.init()
    senders, latest, found = {}, {}, {}
end

-- A single or first frame. It is a retry if it is the same as the last one, which nobody acknowledged. The
-- sender gives up after five attempts in a row; a ready answer starts the row again.
local function start(sender, bytes, length, data, number)
    local again = sender.head == bytes and not sender.acknowledged and sender.row < 5
    sender.attempt = again and sender.attempt + 1 or 1
    sender.row = again and sender.row + 1 or 1
    sender.head, sender.acknowledged, sender.underway = bytes, false, true
    sender.length, sender.data, sender.next = length, data, 0
    sender.first, sender.ready_expected = number, bytes:sub(1, 1) == "1"
    return { attempt = sender.attempt }
end

local function append(sender, sequence, data)
    sender.ready_expected = false
    if not sender.underway or sender.length <= #sender.data / 2 then
        return { stray = true }
    end
    if sender.gap or sequence ~= sender.next then
        local expected = not sender.gap and sender.next or nil
        sender.gap = true
        return { expected = expected }
    end
    sender.next = (sender.next + 1) % 16
    sender.data = (sender.data .. data):sub(1, 2 * sender.length)
    return {}
end

-- An answer belongs to the id of the same interface that has sent last, is not the answerer, and whose frame
-- fits: code 1 answers a first frame, code 3 a last one.
local function answer(bus, own, code, number)
    local result = {}
    for _, name in ipairs(latest[bus] or {}) do
        local sender = senders[name]
        local fits = code % 2 == 0 or sender.ready_expected == (code == 1)
        if name ~= own and sender.underway and fits then
            result.answer_to = sender.first
            if code ~= 1 then
                found[sender.first].answered_in = number
                sender.underway = false
                sender.acknowledged = code == 3
            else
                sender.row = 1
            end
            break
        end
    end
    return result
end

-- Keeps the names of the last senders of an interface, the latest first.
local function remember(bus, name)
    local list = latest[bus] or {}
    latest[bus] = list
    for i, other in ipairs(list) do
        if other == name then
            table.remove(list, i)
            break
        end
    end
    table.insert(list, 1, name)
    list[17] = nil
end

local function follow(bus, name, kind, low, tvb, number)
    if kind == 3 then
        return answer(bus, name, low, number)
    end
    local sender = senders[name] or {}
    senders[name] = sender
    remember(bus, name)
    local result
    local bytes = tvb:bytes():tohex()
    bytes = bytes .. string.rep("0", 16 - #bytes) -- a receiver takes missing bytes as 0
    if kind == 2 then
        result = append(sender, low, bytes:sub(3))
    else
        local length = kind == 0 and low or math.max(low * 256 + tvb(1, 1):uint(), 6)
        sender.gap = false
        local data = bytes:sub(kind == 0 and 3 or 5)
        result = start(sender, bytes, length, data:sub(1, 2 * length), number)
    end
    if sender.underway and not sender.gap and #sender.data == 2 * sender.length and not result.stray then
        result.message = sender.data
    end
    return result
end

local function add_bytes(tree, tvb, from, count)
    count = math.max(math.min(count, tvb:len() - from), 0)
    if count > 0 then
        tree:add(f.data, tvb(from, count))
    end
    if from + count < tvb:len() then
        tree:add(f.padding, tvb(from + count))
    end
end

-- @return the frame in words
local function add_fields(tree, tvb, kind, low)
    tree:add(f.kind, tvb(0, 1))
    if kind == 0 then
        tree:add(f.length, tvb(0, 1), low)
        add_bytes(tree, tvb, 1, low)
        return "SF len " .. low
    elseif kind == 1 then
        local length = low * 256 + tvb(1, 1):uint()
        tree:add(f.length, tvb(0, 2), length)
        add_bytes(tree, tvb, 2, 6)
        return "FF len " .. length
    elseif kind == 2 then
        tree:add(f.sequence, tvb(0, 1))
        add_bytes(tree, tvb, 1, 7)
        return "CF " .. low
    elseif kind == 3 then
        tree:add(f.code, tvb(0, 1))
        add_bytes(tree, tvb, 1, 0)
        return "FC " .. (codes[low] or "code " .. low)
    end
    tree:add(f.low, tvb(0, 1))
    return string.format("unknown 0x%02x", kind * 16 + low)
end

local function add_findings(tree, tvb, result)
    local notes = {}
    local function note(expert_info, text)
        tree:add_proto_expert_info(expert_info, text)
        table.insert(notes, text)
    end
    if result.invalid then
        note(e.invalid, "no meaning")
    end
    if result.refused then
        note(e.refused, "refused")
    end
    if result.stray then
        note(e.stray, "no message")
    end
    if result.expected then
        note(e.order, "expected CF " .. result.expected)
    end
    if result.attempt then
        tree:add(f.attempt, result.attempt):set_generated()
        if result.attempt > 1 then
            note(e.retry, "attempt " .. result.attempt)
        end
    end
    if result.message then
        local whole = ByteArray.new(result.message):tvb("Message")
        tree:add(f.message, whole()):set_generated()
        table.insert(notes, "message of " .. whole:len() .. (whole:len() == 1 and " byte" or " bytes"))
    end
    for _, name in ipairs({ "answer_to", "answered_in" }) do
        if result[name] then
            tree:add(f[name], result[name]):set_generated()
        end
    end
    return #notes > 0 and "  (" .. table.concat(notes, ", ") .. ")" or ""
end

local function is_invalid(tvb, kind, low)
    return kind > 3 or (kind == 3 and low > 3) or (kind == 0 and (low == 0 or low > 7))
end

function velkcan.dissector(tvb, pinfo, root)
    if tvb:len() == 0 or tvb:len() > 8 then
        return 0
    end
    local low = tvb(0, 1):uint() % 16
    local kind = (tvb(0, 1):uint() - low) / 16
    if kind == 1 and tvb:len() < 2 then
        return 0
    end
    local number = pinfo.number
    local extended = can_extended()
    local name = string.format(extended and extended.value and "%08X" or "%03X", can_id().value)
    if not pinfo.visited or not found[number] then
        local bus = interface() and interface().value or 0
        local invalid = is_invalid(tvb, kind, low)
        local result = invalid and {} or follow(bus, bus .. ":" .. name, kind, low, tvb, number)
        result.invalid = invalid
        result.refused = kind == 3 and (low == 0 or low == 2)
        found[number] = result
    end
    local tree = root:add(velkcan, tvb())
    local words = add_fields(tree, tvb, kind, low)
    words = name .. "  " .. words .. add_findings(tree, tvb, found[number])
    tree:append_text(", " .. words)
    pinfo.cols.protocol = "VELKCAN"
    pinfo.cols.info = words
    return tvb:len()
end

DissectorTable.get("can.subdissector"):add_for_decode_as(velkcan)
