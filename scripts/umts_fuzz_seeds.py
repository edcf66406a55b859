#!/usr/bin/env python3
"""Seeds for umts_reports_fuzz from real DIAG captures.

Each capture's MM, GMM and PDP QoS records (0x7131, 0x7130, 0x7136, the
codes of umtsopinfo and bearer that the public captures carry) are taken
out of its HDLC frames and written in the target's input format: a
1331-byte type-3 measurement response with intra-frequency, inter-frequency
and GSM cells, then per record a code selector byte, a 16-bit
little-endian length and the record. The codes the captures lack (0x4004,
0x4000, 0x413A) follow as one small record each, laid out as the daemon
reads them.

    scripts/umts_fuzz_seeds.py OUT_DIR CAPTURE...
"""
import os
import struct
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from lte_fuzz_seeds import log_records as capture_log_records  # noqa: E402

# The target's selector order.
CODES = [0x7131, 0x7130, 0x4004, 0x7136, 0x4000, 0x413A]
FROM_CAPTURES = {0x7131, 0x7130, 0x7136}
RESPONSE_SIZE = 1331
MAX_RECORDS = 64


def log_records(data):
    return capture_log_records(data, FROM_CAPTURES, CODES)


def umts_response():
    response = bytearray(RESPONSE_SIZE)
    response[10:13] = bytes([1, 3, 1])
    response[24] = 2  # two intra-frequency cells: PSC, Ec/Io, RSCP
    for i, (psc, ecio, rscp) in enumerate([(12, 8, 950), (40, 14, 1010)]):
        struct.pack_into("<Hhh", response, 26 + 10 * i, psc, ecio, rscp)
    struct.pack_into("<H", response, 166, 1)  # one inter-frequency block of two cells
    struct.pack_into("<H", response, 168 + 4, 2)
    for c, (psc, ecio, rscp) in enumerate([(17, -10, -95), (18, 0, 7)]):
        struct.pack_into("<Hhh", response, 168 + 6 + 12 * c, psc, ecio, rscp)
    struct.pack_into("<H", response, 372, 2)  # two GSM cells: ARFCN, BSIC, RSSI
    for g, (arfcn, bsic, rssi) in enumerate([(128, 33, -88), (130, 12, -93)]):
        struct.pack_into("<HHh", response, 374 + 10 * g, arfcn, bsic, rssi)
    return bytes(response)


def record(code, payload):
    return struct.pack("<HH", 12 + len(payload), code) + bytes(8) + payload


def missing_records():
    rabs = bytearray(193)
    rabs[0] = 1
    struct.pack_into("<HH", rabs, 1, 5, 0)
    struct.pack_into("<H", rabs, 7, 6)
    return [
        (CODES.index(0x4004), record(0x4004, struct.pack("<H", 7) + bytes(5))),
        (CODES.index(0x4000), record(0x4000, b"\x01")),
        (CODES.index(0x413A), record(0x413A, bytes(rabs))),
    ]


def main():
    out_dir, captures = sys.argv[1], sys.argv[2:]
    os.makedirs(out_dir, exist_ok=True)
    for capture in captures:
        with open(capture, "rb") as f:
            records = list(log_records(f.read()))[:MAX_RECORDS]
        if not records:
            continue
        seed = bytearray(umts_response())
        for selector, rec in records + missing_records():
            seed += struct.pack("<BH", selector, len(rec)) + rec
        name = os.path.splitext(os.path.basename(capture))[0]
        with open(os.path.join(out_dir, name), "wb") as f:
            f.write(seed)


if __name__ == "__main__":
    main()
