// The NetBIOS source of the hardware address. NetBIOS answers an adapter
// status request only for a name, so the probe registers a temporary name
// of its own on a LAN adapter, asks for that name's status and removes the
// name again. Each request returns true when NetBIOS answered NRC_GOODRET;
// otherwise it prints "Line N: Got 0xCODE from NetBios()" and returns false.
#pragma once

#include "machine_id.h"

#include <windows.h>

constexpr size_t kProbeNameSize = 1000;
constexpr WORD kAdapterStatusSize = 4650;  // ADAPTER_STATUS + 255 NAME_BUFFERs

// "SCANINFO" and four upper-case hex digits from the runtime's rand().
struct ProbeName {
    char text[kProbeNameSize];
};
ProbeName MakeProbeName();

// Resets the adapter's NetBIOS resources for this process, asking for the
// given numbers of sessions and names.
bool NetbiosReset(UCHAR lana, UCHAR sessions, UCHAR names);
bool NetbiosAddName(UCHAR lana, const char* name);
bool NetbiosDeleteName(UCHAR lana, const char* name);
// Asks for the status of `name` into `buffer` of `length` bytes.
bool NetbiosAdapterStatus(UCHAR lana, void* buffer, WORD length, const char* name);

// Reads the adapter address from the status of `name` (which must be
// registered on `lana`) into `out`. An answer that lists no names gives no
// address. `out` is written only on success.
bool GetAddressFromNetbios(UCHAR lana, const char* name, MachineAddress& out);

// The whole probe on LAN adapter 0: probe name, reset, add name, status,
// delete name. The name is deleted whenever it was added.
bool GetAddressFromNetbiosProbe(MachineAddress& out);
