#!/usr/bin/python3
# Records every frame sent in an end-to-end case's private network
# namespace, and names what was sent.
#
#   capture.py start PCAP [tun:NAME | tap:NAME]...
#       Holds each named tun or tap interface open, as the far end of its
#       wire would (without a reader its carrier is down and the kernel
#       drops what is sent through it before any capture sees it), and
#       starts tcpdump on every interface of the namespace, writing to PCAP.
#       Returns once tcpdump listens, or says what it gave up waiting for.
#       Both go on until the namespace ends.
#   capture.py kinds PCAP
#       One line per kind of frame sent, sorted, without repeats; nothing
#       when nothing was sent. A NetBIOS name-service request is named by
#       its operation, question type and name, and whether it was broadcast
#       ("NB query SCANINFO0029 broadcast"). Frames sent from UDP port 137
#       are the test's NetBIOS node answering, and are left out.
#
# Standard library only: the case's time is spent in Wine, not here.
import fcntl
import os
import select
import struct
import subprocess
import sys
import time

TUNSETIFF, IFF_TUN, IFF_TAP, IFF_NO_PI = 0x400454CA, 0x0001, 0x0002, 0x1000
SLL2_HEADER, OUTGOING, LOOPBACK = 20, 4, 1  # "lo" is interface 1 of a new namespace
ETH_P_IP, ETH_P_IPV6, ETH_P_ARP = 0x0800, 0x86DD, 0x0806
NBNS_PORT = 137
OPERATIONS = {0: "query", 5: "registration", 6: "release", 7: "WACK", 8: "refresh", 9: "refresh"}
QUESTION_TYPES = {0x20: "NB", 0x21: "NBSTAT"}


def start(pcap, devices):
    held = []
    for device in devices:
        kind, name = device.split(":", 1)
        wire = os.open("/dev/net/tun", os.O_RDWR)
        flags = (IFF_TUN if kind == "tun" else IFF_TAP) | IFF_NO_PI
        fcntl.ioctl(wire, TUNSETIFF, struct.pack("16sH", name.encode(), flags))
        held.append(wire)
    log = pcap + ".log"
    with open(log, "w") as errors:
        # Packet-buffered and immediate: the namespace's end kills tcpdump.
        subprocess.Popen(["tcpdump", "-i", "any", "-y", "LINUX_SLL2", "--immediate-mode", "-U",
                          "-n", "-Z", "root", "-w", pcap], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                         stderr=errors)
    limit = 10 * int(os.environ.get("KELVO_TIME_SCALE", "1"))
    deadline = time.monotonic() + limit
    while "listening on" not in open(log).read():
        if time.monotonic() > deadline:
            sys.exit("capture: tcpdump did not start listening within %d s: %s" % (limit, open(log).read()))
        time.sleep(0.05)
    if held and os.fork() == 0:
        os.setsid()
        while True:  # the far end of each wire: what arrives is dropped
            for wire in select.select(held, [], [])[0]:
                os.read(wire, 65536)


def nbns_kind(payload, destination):
    if len(payload) < 12:
        return "NetBIOS name service, %d bytes" % len(payload)
    flags, questions = struct.unpack_from("!H H", payload, 2)
    if flags & 0x8000:
        return "NetBIOS name-service response"
    operation = OPERATIONS.get((flags >> 11) & 0xF, "operation %d" % ((flags >> 11) & 0xF))
    kind = operation
    if questions and len(payload) >= 12 + 34 + 2 and payload[12] == 32:
        encoded = payload[13:45]
        name = bytes(((encoded[i] - 65) << 4) | (encoded[i + 1] - 65) for i in range(0, 32, 2))
        question_type = struct.unpack_from("!H", payload, 46)[0]
        kind = "%s %s %s" % (QUESTION_TYPES.get(question_type, "type 0x%x" % question_type),
                             operation, name.decode("latin-1").rstrip())
    return "%s, %s to %s" % (kind, "broadcast" if flags & 0x0010 else "unicast", destination)


def frame_kind(frame):
    protocol, _, interface, _, packet_type = struct.unpack_from("!H H I H B", frame)
    # Sent, or on the loopback interface (which shows each frame once, as
    # received); what arrives from a wire was not sent here.
    if packet_type != OUTGOING and interface != LOOPBACK:
        return None
    packet = frame[SLL2_HEADER:]
    if protocol == ETH_P_ARP:
        return "ARP"
    if protocol == ETH_P_IPV6:
        return "IPv6 next header %d" % packet[6]
    if protocol != ETH_P_IP:
        return "ethertype 0x%04x" % protocol
    header = (packet[0] & 0xF) * 4
    ip_protocol, destination = packet[9], packet[16:20]
    if ip_protocol == 1:
        return "ICMP type %d" % packet[header]
    if ip_protocol not in (6, 17):
        return "IP protocol %d" % ip_protocol
    source_port, destination_port = struct.unpack_from("!H H", packet, header)
    name = "UDP" if ip_protocol == 17 else "TCP"
    if ip_protocol == 17 and source_port == NBNS_PORT:
        return None  # the test's node answering
    if ip_protocol == 17 and destination_port == NBNS_PORT:
        return nbns_kind(packet[header + 8:], ".".join(map(str, destination)))
    return "%s to port %d" % (name, destination_port)


def kinds(pcap):
    with open(pcap, "rb") as capture:
        data = capture.read()
    seen, offset = set(), 24
    while offset + 16 <= len(data):
        captured = struct.unpack_from("<I", data, offset + 8)[0]
        kind = frame_kind(data[offset + 16:offset + 16 + captured])
        if kind:
            seen.add(kind)
        offset += 16 + captured
    for kind in sorted(seen):
        print(kind)


if __name__ == "__main__":
    if sys.argv[1:2] == ["start"]:
        start(sys.argv[2], sys.argv[3:])
    elif sys.argv[1:2] == ["kinds"] and len(sys.argv) == 3:
        kinds(sys.argv[2])
    else:
        sys.exit("usage: capture.py start PCAP [tun:NAME|tap:NAME]... | capture.py kinds PCAP")
