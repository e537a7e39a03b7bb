// The hardware address from the IP Helper adapter list, with the NetBIOS
// probe as the fallback whenever the list gives none.
#include "machine_id.h"

#include "netbios_probe.h"
#include "platform.h"

#include <string.h>

namespace {

// Win32s and the Windows 9x family list Ethernet adapters that have no
// address; there only adapters with an assigned IPv4 address count. A
// failed version query counts as the NT family.
bool IsLegacyWindows() {
    OSVERSIONINFOW info;
    memset(&info, 0, sizeof info);
    info.dwOSVersionInfoSize = sizeof info;
    static_assert(sizeof info == 276, "OSVERSIONINFOW as the platform expects it");
    if (!PlatformGetVersion(info)) {
        return false;
    }
    return info.dwPlatformId == VER_PLATFORM_WIN32s ||
           (info.dwPlatformId == VER_PLATFORM_WIN32_WINDOWS && info.dwMajorVersion == 4);
}

class SystemLibrary {
public:
    explicit SystemLibrary(const wchar_t* fileName)
        : module_(PlatformLoadSystemLibrary(fileName)) {}
    ~SystemLibrary() {
        if (module_ != nullptr) {
            PlatformFreeLibrary(module_);
        }
    }
    SystemLibrary(const SystemLibrary&) = delete;
    SystemLibrary& operator=(const SystemLibrary&) = delete;
    explicit operator bool() const { return module_ != nullptr; }
    FARPROC Find(const char* procName) const { return PlatformGetProcAddress(module_, procName); }

private:
    HMODULE module_;
};

class MallocBlock {
public:
    explicit MallocBlock(size_t size) : block_(PlatformMalloc(size)) {}
    ~MallocBlock() { PlatformFree(block_); }
    MallocBlock(const MallocBlock&) = delete;
    MallocBlock& operator=(const MallocBlock&) = delete;
    void* get() const { return block_; }

private:
    void* block_;
};

bool Qualifies(const IP_ADAPTER_INFO& entry, bool legacyWindows) {
    if (entry.Type != MIB_IF_TYPE_ETHERNET) {
        return false;
    }
    const char unassigned[] = "0.0.0.0";
    return !legacyWindows ||
           memcmp(entry.IpAddressList.IpAddress.String, unassigned, sizeof unassigned) != 0;
}

bool GetAddressFromAdapterList(bool legacyWindows, MachineAddress& out) {
    const SystemLibrary iphlpapi(L"iphlpapi.dll");
    if (!iphlpapi) {
        return false;
    }
    // GCC allows a cast between function types through void (*)(void).
    const auto getAdaptersInfo = reinterpret_cast<GetAdaptersInfoFn>(
        reinterpret_cast<void (*)(void)>(iphlpapi.Find("GetAdaptersInfo")));
    if (getAdaptersInfo == nullptr) {
        return false;
    }
    ULONG size = 0;
    if (getAdaptersInfo(nullptr, &size) != ERROR_BUFFER_OVERFLOW) {
        return false;
    }
    const MallocBlock list(size);
    const auto head = static_cast<IP_ADAPTER_INFO*>(list.get());
    if (getAdaptersInfo(head, &size) != ERROR_SUCCESS || head == nullptr ||
        size < sizeof *head) {
        return false;
    }
    for (const IP_ADAPTER_INFO* entry = head; entry != nullptr; entry = entry->Next) {
        if (Qualifies(*entry, legacyWindows)) {
            memcpy(out.bytes, entry->Address, sizeof out.bytes);
            return true;
        }
    }
    return false;
}

}  // namespace

bool GetMachineAddress(MachineAddress& out) {
    const bool legacyWindows = IsLegacyWindows();
    return GetAddressFromAdapterList(legacyWindows, out) || GetAddressFromNetbiosProbe(out);
}
