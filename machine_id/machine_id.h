// The machine identifier: the hardware address of the machine's first
// Ethernet adapter, folded into a short text such as "08-0x3c2b444d".
#pragma once

#include <stdint.h>
#include <wchar.h>

// A network adapter's hardware address, first byte first, as the platform
// reports it. It carries no validity flag: GetMachineAddress says whether
// it was filled.
struct MachineAddress {
    uint8_t bytes[6];
};

// Finds the machine's hardware address: the first qualifying Ethernet entry
// of the IP Helper adapter list, or else the status of NetBIOS LAN adapter 0.
// Returns true with `out` filled; false when neither source gave an address,
// and `out` is then not to be read. Releases everything it acquired.
bool GetMachineAddress(MachineAddress& out);

// "08-0x" and 1 to 8 lower-case hex digits: 13 characters at most.
constexpr size_t kMachineIdCapacity = 14;
struct MachineIdText {
    wchar_t chars[kMachineIdCapacity];
};

// The text shown when no address was found.
constexpr const wchar_t* kNoMachineIdText = L"0";

// The identifier text of a found address: the little-endian word of the
// first four bytes XOR the little-endian word of the last two, in hex.
MachineIdText FormatMachineId(const MachineAddress& address);
