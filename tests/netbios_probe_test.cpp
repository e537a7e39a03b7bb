// The NetBIOS probe: the requests it sends, their order, and diagnostics.
#include "fake_platform.h"
#include "netbios_probe.h"

#include <string.h>

#include <sstream>

namespace {

std::string Describe(const NCB& r) {
    const auto name = [](const UCHAR* field) { return std::string(field, field + NCBNAMSZ); };
    std::ostringstream out;
    out << "{command 0x" << std::hex << int(r.ncb_command) << std::dec << ", lana "
        << int(r.ncb_lana_num) << ", sessions " << int(r.ncb_callname[0]) << ", names "
        << int(r.ncb_callname[2]) << ", name [" << name(r.ncb_name) << "], callname ["
        << name(r.ncb_callname) << "], length " << r.ncb_length << "}";
    return out.str();
}

// The requests of a probe that every request answers, each compared whole:
// every field is zero but the request's own. The probe name is "SCANINFO"
// and rand() (0x1a2b here) in four upper-case hex digits; names fill 16
// bytes, padded with spaces and not zero-terminated.
TEST(NetbiosProbe, SendsResetAddStatusDeleteWithOnlyTheirOwnFields) {
    ResetFake();
    MachineAddress out;
    ASSERT_TRUE(GetAddressFromNetbiosProbe(out));
    ExpectNothingHeld("a probe that every request answers");
    const std::vector<NCB>& sent = Fake().requests;
    ASSERT_EQ(4u, sent.size());
    const auto request = [](UCHAR command, const char* name, const char* callname) {
        NCB r;
        memset(&r, 0, sizeof r);
        r.ncb_command = command;
        memcpy(r.ncb_name, name, NCBNAMSZ);
        memcpy(r.ncb_callname, callname, NCBNAMSZ);
        return r;
    };
    const char* none = "\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0";
    const char* probe = "SCANINFO1A2B    ";
    NCB expected[4] = {request(NCBRESET, none, "\x14\0\x1e\0\0\0\0\0\0\0\0\0\0\0\0"),  // 20 sessions, 30 names
                       request(NCBADDNAME, probe, none), request(NCBASTAT, none, probe),
                       request(NCBDELNAME, probe, none)};
    expected[2].ncb_buffer = sent[2].ncb_buffer;  // the probe's own heap block
    expected[2].ncb_length = 4650;
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(0, memcmp(&expected[i], &sent[i], sizeof sent[i]))
            << "request " << i << "\n  expected " << Describe(expected[i]) << "\n  actual   "
            << Describe(sent[i]) << " (or a field not shown)";
    }
}

struct ProbeCase {
    const char* name;
    FakeNetbiosAnswers answers;
    bool heapFails;
    std::vector<UCHAR> commands;
    const char* output;
    bool found;
};

TEST(NetbiosProbe, ProbeDeletesItsNameWheneverItWasAdded) {
    const UCHAR R = NCBRESET, A = NCBADDNAME, S = NCBASTAT, D = NCBDELNAME;
    const ProbeCase cases[] = {
        {"all answer", {}, false, {R, A, S, D}, "", true},
        {"name taken", {0, NRC_DUPNAME}, false, {R, A}, "Line 267: Got 0xd from NetBios()\n", false},
        {"no heap for the status", {}, true, {R, A, D}, "", false},
    };
    for (const ProbeCase& c : cases) {
        FakePlatform& fake = ResetFake();
        fake.netbios = c.answers;
        fake.heapFails = c.heapFails;
        MachineAddress out;
        memset(&out, 0xCC, sizeof out);

        EXPECT_EQ(c.found, GetAddressFromNetbiosProbe(out)) << c.name;
        EXPECT_EQ(c.commands, fake.Commands()) << c.name;
        EXPECT_EQ(c.output, fake.output) << c.name;
        const uint8_t sentinel[6] = {0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC};
        EXPECT_EQ(0, memcmp(c.found ? fake.netbiosAddress : sentinel, out.bytes, 6)) << c.name;
        ExpectNothingHeld(c.name);
    }
}

}  // namespace
