#!/usr/bin/python3
# A NetBIOS node for the end-to-end table, on UDP port 137 of the private
# namespace it is started in. It answers every name query (type NB) with
# ADDRESS, and every node-status query (type NBSTAT) with one name and the
# hardware address MAC; with "ignore" it never answers a node-status query,
# with "negative" it refuses it. It also answers every DNS query on UDP
# port 53 that no such name exists, as a network's resolver would for the
# probe name. It returns once it listens, and goes on serving in the
# background until its namespace ends.
#
#   nbns_node.py ADDRESS MAC [answer|ignore|negative]
#
# Built on scapy's NetBIOS name-service layers (Debian's python3-scapy).
import os
import select
import socket
import sys

from scapy.layers.dns import DNS
from scapy.layers.netbios import (NBNS_ADD_ENTRY, NBNSHeader, NBNSNodeStatusResponse,
                                  NBNSNodeStatusResponseService, NBNSQueryRequest,
                                  NBNSQueryResponse)

NB, NBSTAT = 0x20, 0x21
NO_SUCH_NAME = 3  # the negative answer of either service


def answer(query, address, mac, status):
    header = NBNSHeader(query)
    if header.RESPONSE or header.OPCODE != 0:
        return None  # only queries get an answer (no registration, release, ...)
    question = NBNSQueryRequest(bytes(header.payload))  # same layout for both types
    name = question.QUESTION_NAME.rstrip(b" ")
    reply = NBNSHeader(NAME_TRN_ID=header.NAME_TRN_ID, RESPONSE=1, NM_FLAGS=0x40,
                       QDCOUNT=0, ANCOUNT=1)
    if question.QUESTION_TYPE == NB:
        return reply / NBNSQueryResponse(RR_NAME=name, SUFFIX=question.SUFFIX,
                                         ADDR_ENTRY=[NBNS_ADD_ENTRY(NB_ADDRESS=address)])
    if question.QUESTION_TYPE != NBSTAT or status == "ignore":
        return None
    if status == "negative":
        reply.RCODE, reply.ANCOUNT = NO_SUCH_NAME, 0
        return reply
    names = [NBNSNodeStatusResponseService(NETBIOS_NAME=b"KELVO-NODE", SUFFIX=0x20)]
    # scapy's default length is wrong: count, the names, unit id, statistics.
    return reply / NBNSNodeStatusResponse(
        RR_NAME=name, SUFFIX=question.SUFFIX, NUM_NAMES=len(names), NODE_NAME=names,
        MAC_ADDRESS=mac, RDLENGTH=1 + 18 * len(names) + 6 + 46)


def main(address, mac, status="answer"):
    node = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    node.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
    node.bind(("0.0.0.0", 137))
    resolver = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    resolver.bind(("0.0.0.0", 53))
    if os.fork() != 0:
        return
    while True:
        for ready in select.select([node, resolver], [], [])[0]:
            query, sender = ready.recvfrom(1024)
            if ready is resolver:
                asked = DNS(query)
                reply = DNS(id=asked.id, qr=1, rd=asked.rd, ra=1, rcode=NO_SUCH_NAME, qd=asked.qd)
            else:
                reply = answer(query, address, mac, status)
            if reply is not None:
                ready.sendto(bytes(reply), sender)


if __name__ == "__main__":
    main(*sys.argv[1:])
