"""Writes the packets of a call as a capture file (pcap, raw IP) that network tools read."""
import struct

LINK_IP, HOST, UDP = 101, bytes([127, 0, 0, 1]), 17


class Capture:
    """Of packets on the loopback. With path None it keeps nothing."""

    def __init__(self, path):
        self.file, self.fault = path and open(path, "wb"), None
        if self.file:
            self.file.write(struct.pack("<IHHiIII", 0xA1B23C4D, 2, 4, 0, 0, 65535, LINK_IP))

    def add(self, time, source, destination, payload):
        """A datagram from port to port; time in nanoseconds since 1970. Several threads may call:
        a write is one piece. What cannot be written ends the capture, not the call; close() tells."""
        if not self.file or self.fault:
            return
        length = 28 + len(payload)
        ip = struct.pack(">BBHHHBBH4s4s", 0x45, 0, length, 0, 0, 64, UDP, 0, HOST, HOST)
        ip = ip[:10] + checksum(ip) + ip[12:]
        record = struct.pack("<IIII", *divmod(time, 10**9), length, length) + ip
        try:
            self.file.write(record + struct.pack(">HHHH", source, destination, length - 20, 0) + payload)
        except OSError as error:
            self.fault = error

    def close(self):
        if self.file:
            self.file.close()
            self.file = None


def checksum(header):
    total = sum(struct.unpack(">10H", header))
    return struct.pack(">H", ~(total % 0xFFFF) & 0xFFFF)
