#!/usr/bin/env python3
"""Seeds for lte_reports_fuzz from real DIAG captures.

Each capture's LTE log records (the codes the lteopinfo report reads) are
taken out of its HDLC frames and written in the target's input format: a
1331-byte type-4 measurement response with a few GERAN cells, then per
record a code selector byte, a 16-bit little-endian length and the record.

    scripts/lte_fuzz_seeds.py OUT_DIR CAPTURE...
"""
import os
import struct
import sys

# The target's selector order.
CODES = [0xB0C2, 0xB0EE, 0xB179, 0xB17F, 0xB185, 0xB19B, 0xB081, 0xB091, 0xB087, 0xB097]
RESPONSE_SIZE = 1331
MAX_RECORDS = 64


def frames(data):
    """HDLC frames of a capture, unescaped, CRC left on (the target ignores it)."""
    for raw in data.split(b"\x7e"):
        out = bytearray()
        escaped = False
        for byte in raw:
            if escaped:
                out.append(byte ^ 0x20)
                escaped = False
            elif byte == 0x7D:
                escaped = True
            else:
                out.append(byte)
        if len(out) > 2:
            yield bytes(out[:-2])


def log_records(data, wanted=None, order=None):
    """(selector, record) of each log record of a code in `wanted`; the
    selector is the code's index in `order` (both default to CODES)."""
    wanted = CODES if wanted is None else wanted
    order = CODES if order is None else order
    for frame in frames(data):
        if frame[:2] == b"\x98\x01" and len(frame) > 8:
            frame = frame[8:]  # multi-SIM wrapper
        if len(frame) < 16 or frame[0] != 0x10:
            continue
        record = frame[4:]
        length, code = struct.unpack_from("<HH", record)
        if code in wanted:
            yield order.index(code), record[:length]


def geran_response():
    response = bytearray(RESPONSE_SIZE)
    response[10:13] = bytes([1, 4, 1])
    response[276] = 2  # two groups of three cells
    for g in range(2):
        group = 277 + 77 * g
        response[group] = 3
        for e in range(3):
            cell = group + 4 + 9 * e
            response[cell] = 1
            response[cell + 1] = 20 + e
            struct.pack_into("<h", response, cell + 2, -700 - 55 * e)
    return bytes(response)


def main():
    out_dir, captures = sys.argv[1], sys.argv[2:]
    os.makedirs(out_dir, exist_ok=True)
    for capture in captures:
        with open(capture, "rb") as f:
            records = list(log_records(f.read()))[:MAX_RECORDS]
        if not records:
            continue
        seed = bytearray(geran_response())
        for selector, record in records:
            seed += struct.pack("<BH", selector, len(record)) + record
        name = os.path.splitext(os.path.basename(capture))[0]
        with open(os.path.join(out_dir, name), "wb") as f:
            f.write(seed)


if __name__ == "__main__":
    main()
