#!/usr/bin/env python3
"""Sends Tactora's port messages from a shell on a jailbroken device (python3 from the package
manager; CoreFoundation through ctypes).

  port-message.py settings ID VALUE   settings port: ID 4, 5 or 6; VALUE 0 (off) or 1 (on)
  port-message.py tap X Y [FINGER]    injection port: finger down, sync, up, sync at (X, Y) points
  port-message.py swipe X1 Y1 X2 Y2   injection port: down, ten moves, up, a sync after each
  port-message.py home                injection port: home button down, then up
  port-message.py raw ID [HEX]        any message id with optional payload bytes

Prints CFMessagePort's status of every request (0 is success, -3 means no such port). With
--dry-run first, prints "PORT ID HEX" for every message instead of sending it (works anywhere).
"""
import struct
import sys
import time

SETTINGS = "tactora.tactoratweak.springboard"
INJECTION = "tactora.tactoratweak.backboardd"


def touch_record(phase, finger, x, y):
    """24 bytes: phase and finger (32-bit), x and y (doubles), little-endian as on the device."""
    return struct.pack("<iidd", phase, finger, float(x), float(y))


def key_record(usage, usage_page, down):
    """12 bytes: usage and usage page (32-bit), down (one byte), three bytes of padding."""
    return struct.pack("<iiB3x", usage, usage_page, 1 if down else 0)


def settings_record(value):
    return struct.pack("<I", value)


class CoreFoundationSender:
    def __init__(self):
        import ctypes
        self.ctypes = ctypes
        cf = ctypes.CDLL("/System/Library/Frameworks/CoreFoundation.framework/CoreFoundation")
        cf.CFStringCreateWithCString.restype = ctypes.c_void_p
        cf.CFStringCreateWithCString.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_uint32]
        cf.CFMessagePortCreateRemote.restype = ctypes.c_void_p
        cf.CFMessagePortCreateRemote.argtypes = [ctypes.c_void_p, ctypes.c_void_p]
        cf.CFDataCreate.restype = ctypes.c_void_p
        cf.CFDataCreate.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_long]
        cf.CFMessagePortSendRequest.restype = ctypes.c_int32
        cf.CFMessagePortSendRequest.argtypes = [ctypes.c_void_p, ctypes.c_int32, ctypes.c_void_p, ctypes.c_double,
                                                ctypes.c_double, ctypes.c_void_p, ctypes.c_void_p]
        self.cf = cf
        self.default_mode = ctypes.c_void_p.in_dll(cf, "kCFRunLoopDefaultMode")

    def __call__(self, port_name, message_id, payload=b""):
        cf, ctypes = self.cf, self.ctypes
        name = cf.CFStringCreateWithCString(None, port_name.encode(), 0x08000100)  # UTF-8
        port = cf.CFMessagePortCreateRemote(None, name)
        if not port:
            print(f"{port_name}: no such port")
            sys.exit(1)
        data = cf.CFDataCreate(None, payload, len(payload)) if payload else None
        reply = ctypes.c_void_p()
        # Waiting for a reply makes the call return once the peer has handled the message.
        status = cf.CFMessagePortSendRequest(port, message_id, data, 1.0, 1.0, self.default_mode, ctypes.byref(reply))
        print(f"{port_name} id {message_id} ({len(payload)} bytes): status {status}")


def dry_run(port_name, message_id, payload=b""):
    print(port_name, message_id, payload.hex())


def run(send, pause, command, args):
    if command == "settings":
        send(SETTINGS, int(args[0]), settings_record(int(args[1])))
    elif command == "tap":
        finger = int(args[2]) if len(args) > 2 else 1
        send(INJECTION, 2, touch_record(1, finger, args[0], args[1]))
        send(INJECTION, 1)
        pause(0.05)
        send(INJECTION, 2, touch_record(2, finger, args[0], args[1]))
        send(INJECTION, 1)
    elif command == "swipe":
        x1, y1, x2, y2 = map(float, args[:4])
        send(INJECTION, 2, touch_record(1, 1, x1, y1))
        send(INJECTION, 1)
        for step in range(1, 11):
            send(INJECTION, 2, touch_record(0, 1, x1 + (x2 - x1) * step / 10, y1 + (y2 - y1) * step / 10))
            send(INJECTION, 1)
            pause(0.016)
        send(INJECTION, 2, touch_record(2, 1, x2, y2))
        send(INJECTION, 1)
    elif command == "home":
        for down in (True, False):
            send(INJECTION, 3, key_record(64, 12, down))  # consumer page, Menu: the home button
            pause(0.1)
    elif command == "raw":
        message_id = int(args[0])
        send(INJECTION if message_id <= 3 else SETTINGS, message_id, bytes.fromhex(args[1]) if len(args) > 1 else b"")
    else:
        return False
    return True


def main(argv):
    args = argv[1:]
    send, pause = None, time.sleep
    if args[:1] == ["--dry-run"]:
        args, send, pause = args[1:], dry_run, (lambda seconds: None)
    if not args:
        print(__doc__)
        return 2
    if send is None:
        send = CoreFoundationSender()
    if not run(send, pause, args[0], args[1:]):
        print(__doc__)
        return 2
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
