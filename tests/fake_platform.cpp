#include "fake_platform.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

namespace {

FakePlatform fake;
const HMODULE kIphlpapi = reinterpret_cast<HMODULE>(0x10000);

// The two-call protocol: too small a buffer (or none) gets the size needed.
DWORD WINAPI FakeGetAdaptersInfo(PIP_ADAPTER_INFO info, PULONG size) {
    ++fake.adapterListCalls;
    const ULONG needed = ULONG(fake.adapters.size() * sizeof(IP_ADAPTER_INFO));
    if (info == nullptr || *size < needed) {
        if (fake.sizeQueryAnswer == ERROR_BUFFER_OVERFLOW) *size = needed;
        return fake.sizeQueryAnswer;
    }
    if (fake.listAnswer != ERROR_SUCCESS) return fake.listAnswer;
    memset(info, 0, needed);
    for (size_t i = 0; i < fake.adapters.size(); ++i) {
        IP_ADAPTER_INFO& entry = info[i];
        entry.Next = i + 1 < fake.adapters.size() ? &info[i + 1] : nullptr;
        entry.Type = fake.adapters[i].type;
        memcpy(entry.Address, fake.adapters[i].address, sizeof entry.Address);
        strcpy_s(entry.IpAddressList.IpAddress.String, sizeof entry.IpAddressList.IpAddress.String,
                 fake.adapters[i].ipAddress);
    }
    return ERROR_SUCCESS;
}

}  // namespace

std::vector<UCHAR> FakePlatform::Commands() const {
    std::vector<UCHAR> commands;
    for (const NCB& request : requests) commands.push_back(request.ncb_command);
    return commands;
}

FakePlatform& Fake() { return fake; }

FakePlatform& ResetFake() { return fake = FakePlatform(); }

void ExpectNothingHeld(const std::string& context) {
    EXPECT_EQ(0, fake.librariesHeld) << "libraries still loaded: " << context;
    EXPECT_EQ(0, fake.mallocBlocksHeld) << "adapter list buffers not freed: " << context;
    EXPECT_EQ(0, fake.heapBlocksHeld) << "status buffers not freed: " << context;
    EXPECT_EQ(0, fake.netbiosOpenDepth) << "NetBIOS left open: " << context;
}

bool PlatformGetVersion(OSVERSIONINFOW& info) {
    info.dwPlatformId = fake.platformId;
    info.dwMajorVersion = fake.majorVersion;
    return fake.versionAnswers;
}

HMODULE PlatformLoadSystemLibrary(const wchar_t* fileName) {
    if (!fake.hasIphlpapi || wcscmp(fileName, L"iphlpapi.dll") != 0) return nullptr;
    ++fake.librariesHeld;
    return kIphlpapi;
}

FARPROC PlatformGetProcAddress(HMODULE library, const char* procName) {
    EXPECT_EQ(kIphlpapi, library);
    if (!fake.hasGetAdaptersInfo || strcmp(procName, "GetAdaptersInfo") != 0) return nullptr;
    return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)(void)>(FakeGetAdaptersInfo));
}

void PlatformFreeLibrary(HMODULE library) {
    EXPECT_EQ(kIphlpapi, library);
    --fake.librariesHeld;
}

void* PlatformMalloc(size_t size) {
    ++fake.mallocCalls;
    if (fake.mallocFails) return nullptr;
    ++fake.mallocBlocksHeld;
    return malloc(size == 0 ? 1 : size);
}

void PlatformFree(void* block) {
    if (block != nullptr) --fake.mallocBlocksHeld;
    free(block);
}

void* PlatformHeapAlloc(SIZE_T size) {
    if (fake.heapFails) return nullptr;
    ++fake.heapBlocksHeld;
    return calloc(1, size);
}

void PlatformHeapFree(void* block) {
    EXPECT_NE(nullptr, block);
    --fake.heapBlocksHeld;
    free(block);
}

void PlatformNetbiosOpen() {
    fake.heldWhenNetbiosOpened = fake.librariesHeld + fake.mallocBlocksHeld;
    ++fake.netbiosOpenDepth;
}

void PlatformNetbiosClose() { --fake.netbiosOpenDepth; }

UCHAR PlatformNetbios(NCB& request) {
    fake.requests.push_back(request);
    if (fake.netbiosOpenDepth == 0) return NRC_OPENERR;
    const FakeNetbiosAnswers& answers = fake.netbios;
    switch (request.ncb_command) {
    case NCBRESET: return answers.reset;
    case NCBADDNAME: return answers.addName;
    case NCBDELNAME: return answers.deleteName;
    case NCBASTAT:
        if (answers.adapterStatus == NRC_GOODRET) {
            ADAPTER_STATUS* status = reinterpret_cast<ADAPTER_STATUS*>(request.ncb_buffer);
            memcpy(status->adapter_address, fake.netbiosAddress, sizeof fake.netbiosAddress);
            status->name_count = 1;
        }
        return answers.adapterStatus;
    }
    ADD_FAILURE() << "unexpected NetBIOS command 0x" << std::hex << int(request.ncb_command);
    return NRC_ILLCMD;
}

int PlatformRand() { return fake.randValue; }

void PlatformPrintf(const char* format, ...) {
    char line[256];
    va_list args;
    va_start(args, format);
    vsnprintf(line, sizeof line, format, args);
    va_end(args);
    fake.output += line;
}
