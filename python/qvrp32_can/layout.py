"""Between can.Message and the RP1210 message layouts of CAN, J2284 and J1939."""

PROTOCOL_IDS = {"CAN": 1, "J1939": 2, "J2284": 4}
J1939 = 2

TIME_STAMP_BYTES = 4
ECHO_MARKER = 1
CAN_FD_MAX = 64


def j1939_fields(can_id):
    """Priority, PGN, source and destination of a 29-bit identifier."""
    priority = (can_id >> 26) & 7
    pdu_format = (can_id >> 16) & 0xFF
    pgn = (can_id >> 8) & 0x3FFFF
    destination = 0xFF
    if pdu_format < 240:
        # PDU1: the PS byte is the destination, not part of the PGN.
        destination = pgn & 0xFF
        pgn &= 0x3FF00
    return priority, pgn, can_id & 0xFF, destination


def j1939_id(priority, pgn, source, destination):
    if (pgn >> 8) & 0xFF < 240:
        pgn = (pgn & 0x3FF00) | destination
    return ((priority & 7) << 26) | ((pgn & 0x3FFFF) << 8) | source


def encode(protocol_id, arbitration_id, is_extended_id, data):
    """The RP1210_SendMessage bytes of one frame."""
    data = bytes(data)
    if protocol_id == J1939:
        if not is_extended_id:
            raise ValueError("J1939 messages need a 29-bit identifier")
        priority, pgn, source, destination = j1939_fields(arbitration_id)
        return pgn.to_bytes(3, "little") + bytes([priority, source, destination]) + data
    if is_extended_id:
        return b"\x01" + arbitration_id.to_bytes(4, "big") + data
    return b"\x00" + arbitration_id.to_bytes(2, "big") + data


def decode(protocol_id, body):
    """Identifier, extended flag and data of an RP1210_ReadMessage body
    (the bytes after the time stamp), or None when it is too short."""
    if protocol_id == J1939:
        if len(body) < 6:
            return None
        pgn = int.from_bytes(body[0:3], "little")
        return j1939_id(body[3], pgn, body[4], body[5]), True, bytes(body[6:])
    if len(body) < 1:
        return None
    id_bytes = 4 if body[0] & 1 else 2
    if len(body) < 1 + id_bytes:
        return None
    can_id = int.from_bytes(body[1 : 1 + id_bytes], "big")
    return can_id, id_bytes == 4, bytes(body[1 + id_bytes :])


def j1939_filter_entry(can_filter):
    """The 7 parameter bytes of Set_Message_Filtering_For_J1939 that pass
    exactly what a python-can filter passes, or None when no entry can."""
    can_id = can_filter["can_id"] & 0x1FFFFFFF
    mask = can_filter["can_mask"] & 0x1FFFFFFF
    if can_filter.get("extended") is False or mask & 0x1C000000:
        return None  # 11-bit frames, or a priority test the table lacks
    flags = pgn = source = destination = 0
    pf_mask, ps_mask, sa_mask = mask & 0x3FF0000, mask & 0xFF00, mask & 0xFF
    if sa_mask == 0xFF:
        flags |= 4
        source = can_id & 0xFF
    elif sa_mask:
        return None
    if pf_mask == 0x3FF0000:
        flags |= 1
        pgn = (can_id >> 8) & 0x3FFFF
        if (can_id >> 16) & 0xFF >= 240:
            if ps_mask != 0xFF00:
                return None  # a group of PDU2 PGNs
        else:
            pgn &= 0x3FF00
            if ps_mask == 0xFF00:
                flags |= 8
                destination = (can_id >> 8) & 0xFF
            elif ps_mask:
                return None
    elif pf_mask or ps_mask:
        return None
    if flags == 0:
        return None
    return bytes([flags]) + pgn.to_bytes(3, "little") + bytes([0, source, destination])
