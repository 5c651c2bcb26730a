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
DISPATCH = HOST
PROCESS = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.POINTER(ctypes.POINTER(ctypes.c_float)),
                           ctypes.POINTER(ctypes.POINTER(ctypes.c_float)), ctypes.c_int32)
SETPARAM = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_int32, ctypes.c_float)
GETPARAM = ctypes.CFUNCTYPE(ctypes.c_float, ctypes.c_void_p, ctypes.c_int32)


@HOST
def host(effect, opcode, index, value, ptr, opt):
    return 2400 if opcode == 1 else 0


def main(path):
    lib = ctypes.CDLL(path)
    entry = ctypes.CFUNCTYPE(ctypes.c_void_p, HOST)(("VSTPluginMain", lib))
    effect = entry(host)
    assert effect, "no effect"
    raw = ctypes.string_at(effect, 192)
    magic, = struct.unpack_from("<i", raw, 0)
    dispatcher, _, set_parameter, get_parameter = struct.unpack_from("<4Q", raw, 8)
    programs, params, ins, outs, flags = struct.unpack_from("<5i", raw, 40)
    unique_id, version = struct.unpack_from("<2i", raw, 112)
    process_replacing, = struct.unpack_from("<Q", raw, 120)
    assert magic == 0x56737450, hex(magic)
    assert (programs, params, ins, outs) == (1, 8, 2, 2), (programs, params, ins, outs)
    assert unique_id == 0x71377674 and version == 1, (hex(unique_id), version)
    assert flags & 1 and flags & (1 << 4) and not flags & (1 << 12), hex(flags)

    dispatch = DISPATCH(dispatcher)
    text = ctypes.create_string_buffer(64)
    assert dispatch(effect, 47, 0, 0, ctypes.cast(text, ctypes.c_void_p), 0.0) == 1 and text.value == b"Tarnvale"
    assert dispatch(effect, 49, 0, 0, None, 0.0) == 1100
    names = []
    for i in range(params):
        text = ctypes.create_string_buffer(64)
        dispatch(effect, 8, i, 0, ctypes.cast(text, ctypes.c_void_p), 0.0)
        names.append(text.value.decode())
    assert names == ["Volume", "Feedback", "Output", "Oversamp", "Cabinet", "CPU", "Input", "Stereo"], names

    dispatch(effect, 0, 0, 0, None, 0.0)         # open
    dispatch(effect, 10, 0, 0, None, 44100.0)    # sample rate
    dispatch(effect, 11, 0, 64, None, 0.0)       # block size
    dispatch(effect, 12, 0, 1, None, 0.0)        # resume
    SETPARAM(set_parameter)(effect, 2, 1.0)      # Output at full: 0.002
    assert GETPARAM(get_parameter)(effect, 2) == 1.0

    frames = 64
    block = ctypes.c_float * frames
    left, right, out0, out1 = block(), block(), block(), block()
    inputs = (ctypes.POINTER(ctypes.c_float) * 2)(left, right)
    outputs = (ctypes.POINTER(ctypes.c_float) * 2)(out0, out1)
    energy = 0.0
    blocks = 40  # past the cabinet's own delay of 22 ms
    for b in range(blocks):
        for i in range(frames):
            n = b * frames + i
            left[i] = 0.5 * math.sin(n * 0.1)
            right[i] = 0.25
        PROCESS(process_replacing)(effect, inputs, outputs, frames)
        for i in range(frames):
            # A hot input at full Output reaches about 0 dBFS once the tubes stand at their operating point.
            assert math.isfinite(out0[i]) and abs(out0[i]) < 2.0, (b, i, out0[i])
            assert out1[i] == out0[i]  # Stereo off: output 0 on both sides
            energy += out0[i] * out0[i]
    assert energy > 1e-4, energy

    dispatch(effect, 12, 0, 0, None, 0.0)        # suspend
    assert dispatch(effect, 1, 0, 0, None, 0.0) == 1  # close deletes
    print("independent host: %s loaded, identified, processed %d frames" % (path, blocks * frames))


if __name__ == "__main__":
    main(sys.argv[1])
