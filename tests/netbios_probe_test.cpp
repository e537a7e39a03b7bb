// The NetBIOS probe: request fields, the order of requests, diagnostics.
#include "fake_platform.h"
#include "netbios_probe.h"

#include <string.h>

namespace {

std::string NameField(const UCHAR (&field)[NCBNAMSZ]) {
    return std::string(reinterpret_cast<const char*>(field), NCBNAMSZ);
}

NCB ZeroRequest(UCHAR command, UCHAR lana) {
    NCB request;
    memset(&request, 0, sizeof request);
    request.ncb_command = command;
    request.ncb_lana_num = lana;
    return request;
}

void SetName(UCHAR (&field)[NCBNAMSZ], const char (&padded)[NCBNAMSZ + 1]) {
    memcpy(field, padded, NCBNAMSZ);
}

class NetbiosProbeTest : public FakePlatformTest {
protected:
    void SetUp() override {
        FakePlatformTest::SetUp();
        PlatformNetbiosOpen();
    }
    void TearDown() override {
        PlatformNetbiosClose();
        FakePlatformTest::TearDown();
    }
};

// Every request starts from an all-zero NCB: nothing but the listed fields
// may differ, so the whole record is compared.
TEST_F(NetbiosProbeTest, RequestsCarryOnlyTheirOwnFields) {
    UCHAR buffer[kAdapterStatusSize];
    struct RequestCase {
        const char* name;
        bool (*submit)(UCHAR* buffer);
        NCB expected;
    } cases[] = {
        {"reset", [](UCHAR*) { return NetbiosReset(0, 20, 30); }, ZeroRequest(NCBRESET, 0)},
        {"add name", [](UCHAR*) { return NetbiosAddName(3, "SCANINFO1A2B"); },
         ZeroRequest(NCBADDNAME, 3)},
        {"delete a long name", [](UCHAR*) { return NetbiosDeleteName(0, "ABCDEFGHIJKLMNOPQRS"); },
         ZeroRequest(NCBDELNAME, 0)},
        {"adapter status",
         [](UCHAR* b) { return NetbiosAdapterStatus(1, b, kAdapterStatusSize, "SCANINFO0000"); },
         ZeroRequest(NCBASTAT, 1)},
    };
    cases[0].expected.ncb_callname[0] = 20;
    cases[0].expected.ncb_callname[2] = 30;
    SetName(cases[1].expected.ncb_name, "SCANINFO1A2B    ");
    SetName(cases[2].expected.ncb_name, "ABCDEFGHIJKLMNOP");
    SetName(cases[3].expected.ncb_callname, "SCANINFO0000    ");
    cases[3].expected.ncb_buffer = buffer;
    cases[3].expected.ncb_length = kAdapterStatusSize;

    for (const RequestCase& c : cases) {
        Fake().requests.clear();
        EXPECT_TRUE(c.submit(buffer)) << c.name;
        ASSERT_EQ(1u, Fake().requests.size()) << c.name;
        const NCB& actual = Fake().requests[0];
        EXPECT_EQ(0, memcmp(&c.expected, &actual, sizeof actual))
            << c.name << ": command 0x" << std::hex << int(actual.ncb_command) << ", lana "
            << int(actual.ncb_lana_num) << ", name [" << NameField(actual.ncb_name)
            << "], callname [" << NameField(actual.ncb_callname) << "], length "
            << std::dec << actual.ncb_length;
    }
    EXPECT_EQ("", Fake().output);
}

TEST_F(NetbiosProbeTest, ProbeNameIsScaninfoAndFourUpperCaseDigits) {
    const struct {
        int rand;
        const char* name;
    } cases[] = {
        {0x0000, "SCANINFO0000"},
        {0x0abc, "SCANINFO0ABC"},
        {0x7fff, "SCANINFO7FFF"},
    };
    for (const auto& c : cases) {
        Fake().randValue = c.rand;
        EXPECT_STREQ(c.name, MakeProbeName().text) << "rand() = " << c.rand;
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

using NetbiosSequenceTest = FakePlatformTest;

TEST_F(NetbiosSequenceTest, ProbeDeletesItsNameWheneverItWasAdded) {
    const UCHAR R = NCBRESET, A = NCBADDNAME, S = NCBASTAT, D = NCBDELNAME;
    const ProbeCase cases[] = {
        {"all answer", {}, false, {R, A, S, D}, "", true},
        {"no adapter 0", {NRC_BRIDGE}, false, {R}, "Line 245: Got 0x23 from NetBios()\n", false},
        {"name taken", {0, NRC_DUPNAME}, false, {R, A}, "Line 267: Got 0xd from NetBios()\n", false},
        {"status fails", {0, 0, NRC_CMDTMO}, false, {R, A, S, D},
         "Line 368: Got 0x5 from NetBios()\n", false},
        {"status and delete fail", {0, 0, NRC_CMDTMO, NRC_ILLCMD}, false, {R, A, S, D},
         "Line 368: Got 0x5 from NetBios()\nLine 289: Got 0x3 from NetBios()\n", false},
        {"delete fails", {0, 0, 0, NRC_ILLCMD}, false, {R, A, S, D},
         "Line 289: Got 0x3 from NetBios()\n", true},
        {"no heap for the status", {}, true, {R, A, D}, "", false},
        {"status claims success, fills nothing", {0, 0, 0, 0, false}, false, {R, A, S, D}, "",
         false},
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
        for (const NCB& request : fake.requests) {
            EXPECT_EQ(0, request.ncb_lana_num) << c.name;
            if (request.ncb_command != NCBRESET) {
                const auto& field = request.ncb_command == NCBASTAT ? request.ncb_callname
                                                                     : request.ncb_name;
                EXPECT_EQ("SCANINFO1A2B    ", NameField(field)) << c.name;
            }
        }
        EXPECT_EQ(1, fake.netbiosSessions) << c.name;
        ExpectNothingHeld(c.name);
    }
}

}  // namespace
