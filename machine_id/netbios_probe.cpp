// The hardware address from the status of NetBIOS LAN adapter 0.
#include "netbios_probe.h"

#include "platform.h"

#include <stdio.h>
#include <string.h>

namespace {

// Diagnostic numbers printed when a request fails, one per request kind.
constexpr int kResetLine = 245;
constexpr int kAddNameLine = 267;
constexpr int kDeleteNameLine = 289;
constexpr int kAdapterStatusLine = 368;

// A request with every field zero but the command and the adapter.
NCB MakeRequest(UCHAR command, UCHAR lana) {
    NCB request;
    memset(&request, 0, sizeof request);
    request.ncb_command = command;
    request.ncb_lana_num = lana;
    return request;
}

// NetBIOS names are 16 bytes, space-padded, not zero-terminated; longer
// names are cut to 16.
void SetNetbiosName(UCHAR (&field)[NCBNAMSZ], const char* name) {
    memset(field, ' ', NCBNAMSZ);
    memcpy(field, name, strnlen(name, NCBNAMSZ));
}

bool Submit(NCB& request, int diagnosticLine) {
    const UCHAR code = PlatformNetbios(request);
    if (code == NRC_GOODRET) {
        return true;
    }
    PlatformPrintf("Line %d: Got 0x%x from NetBios()\n", diagnosticLine, code);
    return false;
}

class NetbiosSession {
public:
    NetbiosSession() { PlatformNetbiosOpen(); }
    ~NetbiosSession() { PlatformNetbiosClose(); }
    NetbiosSession(const NetbiosSession&) = delete;
    NetbiosSession& operator=(const NetbiosSession&) = delete;
};

class ProcessHeapBlock {
public:
    explicit ProcessHeapBlock(SIZE_T size) : block_(PlatformHeapAlloc(size)) {}
    ~ProcessHeapBlock() {
        if (block_ != nullptr) {
            PlatformHeapFree(block_);
        }
    }
    ProcessHeapBlock(const ProcessHeapBlock&) = delete;
    ProcessHeapBlock& operator=(const ProcessHeapBlock&) = delete;
    void* get() const { return block_; }

private:
    void* block_;
};

}  // namespace

ProbeName MakeProbeName() {
    char digits[5];
    sprintf_s(digits, sizeof digits, "%04X", PlatformRand() & 0xFFFF);
    ProbeName name;
    strcpy_s(name.text, kProbeNameSize, "SCANINFO");
    strcat_s(name.text, kProbeNameSize, digits);
    return name;
}

bool NetbiosReset(UCHAR lana, UCHAR sessions, UCHAR names) {
    NCB request = MakeRequest(NCBRESET, lana);
    request.ncb_lsn = 0;
    request.ncb_callname[0] = sessions;
    request.ncb_callname[2] = names;
    return Submit(request, kResetLine);
}

bool NetbiosAddName(UCHAR lana, const char* name) {
    NCB request = MakeRequest(NCBADDNAME, lana);
    SetNetbiosName(request.ncb_name, name);
    return Submit(request, kAddNameLine);
}

bool NetbiosDeleteName(UCHAR lana, const char* name) {
    NCB request = MakeRequest(NCBDELNAME, lana);
    SetNetbiosName(request.ncb_name, name);
    return Submit(request, kDeleteNameLine);
}

bool NetbiosAdapterStatus(UCHAR lana, void* buffer, WORD length, const char* name) {
    NCB request = MakeRequest(NCBASTAT, lana);
    request.ncb_buffer = static_cast<PUCHAR>(buffer);
    request.ncb_length = length;
    SetNetbiosName(request.ncb_callname, name);
    return Submit(request, kAdapterStatusLine);
}

bool GetAddressFromNetbios(UCHAR lana, const char* name, MachineAddress& out) {
    static_assert(kAdapterStatusSize == sizeof(ADAPTER_STATUS) + 255 * sizeof(NAME_BUFFER),
                  "room for the status and the largest name table");
    ProcessHeapBlock status(kAdapterStatusSize);
    if (status.get() == nullptr ||
        !NetbiosAdapterStatus(lana, status.get(), kAdapterStatusSize, name)) {
        return false;
    }
    // The status of a name lists at least that name. When a node answers
    // the name query but never the status request, Wine still answers
    // NRC_GOODRET and leaves the status unfilled (what Windows answers
    // there was never tried): an empty name table means no adapter address
    // was written.
    const ADAPTER_STATUS* answer = static_cast<const ADAPTER_STATUS*>(status.get());
    if (answer->name_count == 0) {
        return false;
    }
    memcpy(out.bytes, answer->adapter_address, sizeof out.bytes);
    return true;
}

bool GetAddressFromNetbiosProbe(MachineAddress& out) {
    const UCHAR lana = 0;
    NetbiosSession session;
    const ProbeName name = MakeProbeName();
    if (!NetbiosReset(lana, 20, 30) || !NetbiosAddName(lana, name.text)) {
        return false;
    }
    const bool found = GetAddressFromNetbios(lana, name.text, out);
    NetbiosDeleteName(lana, name.text);  // a failure only prints its line
    return found;
}
