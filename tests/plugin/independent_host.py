#!/usr/bin/env python3
"""A second host for the orm module, written apart from the C++ one: the effect record is read by
raw byte offsets of the published x86-64 layout (not through plugin/vst2/aeffect.h), so a layout
fault in our own header shows up here.  Usage: independent_host.py MODULE"""

import ctypes
import math
import struct
import sys

HOST = ctypes.CFUNCTYPE(ctypes.c_ssize_t, ctypes.c_void_p, ctypes.c_int32, ctypes.c_int32, ctypes.c_ssize_t,
                        ctypes.c_void_p, ctypes.c_float)
BUFFERS = ctypes.POINTER(ctypes.POINTER(ctypes.c_float))
PROCESS = ctypes.CFUNCTYPE(None, ctypes.c_void_p, BUFFERS, BUFFERS, ctypes.c_int32)
SETPARAM = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_int32, ctypes.c_float)
GETPARAM = ctypes.CFUNCTYPE(ctypes.c_float, ctypes.c_void_p, ctypes.c_int32)


@HOST
def host(effect, opcode, index, value, ptr, opt):
    return 2400 if opcode == 1 else 0  # the version query


def main(path):
    effect = ctypes.CFUNCTYPE(ctypes.c_void_p, HOST)(("VSTPluginMain", ctypes.CDLL(path)))(host)
    assert effect, "no effect"
    raw = ctypes.string_at(effect, 192)
    magic, = struct.unpack_from("<i", raw, 0)
    dispatcher, _, set_parameter, get_parameter = struct.unpack_from("<4Q", raw, 8)
    counts_and_flags = struct.unpack_from("<5i", raw, 40)
    unique_id, version, process_replacing = struct.unpack_from("<2iQ", raw, 112)
    assert magic == 0x56737450, hex(magic)
    assert counts_and_flags[:4] == (1, 8, 2, 2), counts_and_flags  # programs, parameters, inputs, outputs
    # Editor and replacing; no doubles, no chunks, not a synth.
    assert counts_and_flags[4] & 0x1131 == 0x11, hex(counts_and_flags[4])
    assert unique_id == 0x71377674 and version == 1, (hex(unique_id), version)

    dispatch = HOST(dispatcher)
    name = ctypes.create_string_buffer(64)
    assert dispatch(effect, 8, 3, 0, ctypes.cast(name, ctypes.c_void_p), 0.0) == 0 and name.value == b"Oversamp"
    for opcode, value, opt in ((0, 0, 0.0), (10, 0, 44100.0), (11, 64, 0.0), (12, 1, 0.0)):
        dispatch(effect, opcode, 0, value, None, opt)  # open, rate, block size, resume
    SETPARAM(set_parameter)(effect, 2, 1.0)  # Output at full
    assert GETPARAM(get_parameter)(effect, 2) == 1.0

    frames, blocks, energy = 64, 40, 0.0  # 40 blocks: past the cabinet's own delay of 22 ms
    left, right, out0, out1 = [(ctypes.c_float * frames)() for _ in range(4)]
    inputs = (ctypes.POINTER(ctypes.c_float) * 2)(left, right)
    outputs = (ctypes.POINTER(ctypes.c_float) * 2)(out0, out1)
    for b in range(blocks):
        for i in range(frames):
            left[i], right[i] = 0.5 * math.sin((b * frames + i) * 0.1), 0.25
        PROCESS(process_replacing)(effect, inputs, outputs, frames)
        for i in range(frames):
            # A hot input at full Output reaches about 0 dBFS once the tubes stand at their operating point.
            assert math.isfinite(out0[i]) and abs(out0[i]) < 2.0, (b, i, out0[i])
            assert out1[i] == out0[i]  # Stereo off: output 0 on both sides
            energy += out0[i] * out0[i]
    assert energy > 1e-4, energy
    dispatch(effect, 12, 0, 0, None, 0.0)  # suspend
    assert dispatch(effect, 1, 0, 0, None, 0.0) == 1  # close deletes
    print("independent host: %s loaded, identified, processed %d frames" % (path, blocks * frames))


if __name__ == "__main__":
    main(sys.argv[1])
