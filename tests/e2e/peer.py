#!/usr/bin/python3 -S
# The far end of an end-to-end case's network, inside its private namespace
# (e2e.sh starts it), and what the case sent there.
#
#   peer.py serve [tun:NAME | tap:NAME]... [node ADDRESS MAC [MODE]]
#       Holds each named tun or tap interface open, as the far end of its
#       wire would, and drops what arrives: without a reader an interface's
#       carrier is down, and the kernel drops what is sent through it before
#       any capture sees it. With "node", also answers as a NetBIOS node on
#       UDP port 137 (RFC 1002's name service): every name query (type NB)
#       with ADDRESS, every node-status query (type NBSTAT) with one name and
#       the hardware address MAC, or, with MODE "ignore", never, or, with
#       "negative", with a refusal; and as a name server on UDP port 53,
#       that no name asked for exists. Returns once it listens, and serves
#       until the namespace ends.
#   peer.py kinds PCAP
#       One line per kind of frame sent, sorted, without repeats; nothing
#       when nothing was sent. A NetBIOS name-service request is named by
#       its question type, operation and name, whether it was broadcast, and
#       its destination ("NB query SCANINFO0029<20>, broadcast to
#       10.9.0.255"), and "from port 137" when it came from the name
#       service's own port; a DNS query by its type and name ("DNS A query
#       SCANINFO0029, to 10.9.0.53"). Name-service and DNS answers from
#       ports 137 and 53 are this peer's, and are left out. PCAP is
#       tcpdump's, of interface "any" (-y LINUX_SLL2).
#
# Standard library only, and little of it: in the emulated guest every
# module imported costs the case time.
import fcntl
import os
import select
import socket
import struct
import sys

TUNSETIFF, IFF_TUN, IFF_TAP, IFF_NO_PI = 0x400454CA, 0x0001, 0x0002, 0x1000
SLL2_HEADER, OUTGOING, LOOPBACK = 20, 4, 1  # "lo" is interface 1 of a new namespace
ETH_P_IP = 0x0800
NBNS_PORT, DNS_PORT = 137, 53
DNS_TYPES = {1: "A", 28: "AAAA"}
NB, NBSTAT = 0x20, 0x21
RESPONSE, AUTHORITATIVE, NO_SUCH_NAME = 0x8000, 0x0400, 3
QUESTION_END = 12 + 34  # the header, then the encoded name: length 32, 32 bytes, 0
OPERATIONS = {0: "query", 5: "registration", 6: "release", 7: "WACK", 8: "refresh", 9: "refresh"}
QUESTION_TYPES = {NB: "NB", NBSTAT: "NBSTAT"}


def answer(query, address, mac, mode):
    if len(query) < QUESTION_END + 4:
        return None
    transaction, flags = struct.unpack_from("!HH", query)
    if flags & 0xF800:
        return None  # only queries get an answer (no registration, release, ...)
    name, question_type = query[12:QUESTION_END], struct.unpack_from("!H", query, QUESTION_END)[0]
    if question_type == NBSTAT and mode == "ignore" or question_type not in (NB, NBSTAT):
        return None
    if question_type == NBSTAT and mode == "negative":
        return struct.pack("!6H", transaction, RESPONSE | AUTHORITATIVE | NO_SUCH_NAME, 0, 0, 0, 0)
    header = struct.pack("!6H", transaction, RESPONSE | AUTHORITATIVE, 0, 1, 0, 0) + name
    if question_type == NB:
        return header + struct.pack("!HHIHH", NB, 1, 300000, 6, 0) + socket.inet_aton(address)
    # The name count, one name (15 bytes, its suffix, flags: active), the
    # unit id (the hardware address) and 46 bytes of statistics.
    data = b"\1" + b"KELVO-NODE".ljust(15) + b"\x20\x04\x00" + bytes.fromhex(mac.replace(":", "")) + bytes(46)
    return header + struct.pack("!HHIH", NBSTAT, 1, 0, len(data)) + data


def no_such_name(query):
    if len(query) < 12:
        return None
    end = 12
    while end < len(query) and query[end]:
        end += 1 + query[end]
    transaction, flags = struct.unpack_from("!HH", query)
    return struct.pack("!6H", transaction, RESPONSE | (flags & 0x0100) | 0x0080 | NO_SUCH_NAME, 1, 0, 0, 0) \
        + query[12:end + 5]


def serve(arguments):
    wires, node = [], arguments[arguments.index("node") + 1:] if "node" in arguments else None
    for device in arguments[:arguments.index("node")] if node is not None else arguments:
        kind, name = device.split(":", 1)
        wire = os.open("/dev/net/tun", os.O_RDWR)
        flags = (IFF_TUN if kind == "tun" else IFF_TAP) | IFF_NO_PI
        fcntl.ioctl(wire, TUNSETIFF, struct.pack("16sH", name.encode(), flags))
        wires.append(wire)
    sockets = []
    if node is not None:
        address, mac, mode = (node + ["answer"])[:3]
        for port in (NBNS_PORT, DNS_PORT):
            sockets.append(socket.socket(socket.AF_INET, socket.SOCK_DGRAM))
            sockets[-1].setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
            sockets[-1].bind(("0.0.0.0", port))
    if os.fork() != 0:
        return
    os.setsid()
    null = os.open(os.devnull, os.O_RDWR)
    for stream in range(3):
        os.dup2(null, stream)
    while True:
        for ready in select.select(wires + sockets, [], [])[0]:
            if ready in wires:
                os.read(ready, 65536)
                continue
            query, sender = ready.recvfrom(1024)
            reply = no_such_name(query) if ready is sockets[1] else answer(query, address, mac, mode)
            if reply is not None:
                ready.sendto(reply, sender)


def nbns_kind(payload, destination, from_nbns_port):
    if len(payload) < 12:
        return "NetBIOS name service, %d bytes" % len(payload)
    flags, questions = struct.unpack_from("!H H", payload, 2)
    if flags & 0x8000:
        return None if from_nbns_port else "NetBIOS name-service response"  # this node answering
    operation = OPERATIONS.get((flags >> 11) & 0xF, "operation %d" % ((flags >> 11) & 0xF))
    kind = operation
    if questions and len(payload) >= 12 + 34 + 2 and payload[12] == 32:
        encoded = payload[13:45]
        name = bytes(((encoded[i] - 65) << 4) | (encoded[i + 1] - 65) for i in range(0, 32, 2))
        question_type = struct.unpack_from("!H", payload, 46)[0]
        # NAME<XX>: the first 15 bytes without their padding, the 16th in hex
        kind = "%s %s %s<%02X>" % (QUESTION_TYPES.get(question_type, "type 0x%x" % question_type),
                                   operation, name[:15].decode("latin-1").rstrip(), name[15])
    return "%s, %s to %s%s" % (kind, "broadcast" if flags & 0x0010 else "unicast", destination,
                               " from port 137" if from_nbns_port else "")


def dns_kind(payload, destination):
    labels, offset = [], 12
    while offset < len(payload) and payload[offset] and len(labels) < 64:
        labels.append(payload[offset + 1:offset + 1 + payload[offset]].decode("latin-1"))
        offset += 1 + payload[offset]
    if len(payload) < offset + 3 or struct.unpack_from("!H", payload, 4)[0] == 0:
        return "DNS, %d bytes, to %s" % (len(payload), destination)
    question_type = struct.unpack_from("!H", payload, offset + 1)[0]
    return "DNS %s query %s, to %s" % (DNS_TYPES.get(question_type, "type %d" % question_type),
                                       ".".join(labels), destination)


def frame_kind(frame):
    protocol, _, interface, _, packet_type = struct.unpack_from("!H H I H B", frame)
    # Sent, or on the loopback interface (which shows each frame once, as
    # received); what arrives from a wire was not sent here.
    if packet_type != OUTGOING and interface != LOOPBACK:
        return None
    packet = frame[SLL2_HEADER:]
    if protocol != ETH_P_IP:
        return "ethertype 0x%04x" % protocol  # ARP, IPv6, ...
    header = (packet[0] & 0xF) * 4
    ip_protocol, destination = packet[9], packet[16:20]
    if ip_protocol not in (6, 17):
        return "IP protocol %d" % ip_protocol  # ICMP, ...
    source_port, destination_port = struct.unpack_from("!H H", packet, header)
    name = "UDP" if ip_protocol == 17 else "TCP"
    if ip_protocol == 17 and NBNS_PORT in (source_port, destination_port):
        return nbns_kind(packet[header + 8:], ".".join(map(str, destination)),
                         source_port == NBNS_PORT)
    if ip_protocol == 17 and source_port == DNS_PORT and len(packet) > header + 10 \
            and packet[header + 10] & 0x80:
        return None  # this name server answering
    if ip_protocol == 17 and destination_port == DNS_PORT:
        return dns_kind(packet[header + 8:], ".".join(map(str, destination)))
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
    if sys.argv[1:2] == ["serve"]:
        serve(sys.argv[2:])
    elif sys.argv[1:2] == ["kinds"] and len(sys.argv) == 3:
        kinds(sys.argv[2])
    else:
        sys.exit("usage: peer.py serve [tun:NAME|tap:NAME]... [node ADDRESS MAC [MODE]] | peer.py kinds PCAP")
