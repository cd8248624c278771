// The ovd-cable tool against the register stand-in: the cable of a port in text and
// JSON, the raw pages, an empty cage, a failing module and the built-in model.
#include <gtest/gtest.h>

#include <stdio.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <fstream>
#include <string>

#include "sandbox.h"

namespace {

struct CableRun {
    int status = -1;
    std::string out;
};

// Runs ovd-cable with `args`, its log thrown away, and collects its output.
CableRun run_cable(const std::string &args)
{
    CableRun r;
    const std::string cmd = std::string(OVD_CABLE_BIN) + " " + args + " 2>/dev/null";
    FILE *p = popen(cmd.c_str(), "r");
    if (p == nullptr) {
        return r;
    }
    char buf[4096];
    size_t n = 0;
    while ((n = fread(buf, 1, sizeof(buf), p)) > 0) {
        r.out.append(buf, n);
    }
    const int st = pclose(p);
    r.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
    return r;
}

class OvdCable : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        std::string why;
        sandboxed_ = ovd_test::enter_sandbox(&why);
        why_ = why;
    }
    void SetUp() override
    {
        if (!sandboxed_) {
            GTEST_SKIP() << "no private mount namespace: " << why_;
        }
        // /var/opt is private to this test program.
        mkdir("/var/opt/vqdreg", 0755);
        std::ofstream conf("/var/opt/vqdreg/vqdreg.conf");
        conf << "model " << OVD_SOURCE_DIR << "/src/platform/libvqdreg/models/cable_mix.model\n";
    }

    static inline bool sandboxed_ = false;
    static inline std::string why_;
};

TEST_F(OvdCable, PrintsThePortsCableAsText)
{
    CableRun r = run_cable("1 2");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out,
              "Port:               1/2 (module 1)\n"
              "State:              plugged\n"
              "Identifier:         0x11 (QSFP28)\n"
              "Type:               optical transceiver\n"
              "Vendor:             NORTHWIND OPTICS\n"
              "Vendor OUI:         02:c0:de\n"
              "Part number:        NWO-SR4-100\n"
              "Revision:           B1\n"
              "Serial number:      NW26010002\n"
              "Length:             OM1 20 m, OM2 30 m, OM3 70 m, OM4 100 m\n"
              "Supported speeds:   SDR DDR QDR FDR EDR\n");

    r = run_cable("1 4");
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("Identifier:         0x03 (SFP/SFP+)\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("Type:               passive copper cable\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("Length:             copper 3 m\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("Revision:           1.0\n"), std::string::npos) << r.out;

    r = run_cable("1 7");
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("State:              plugged, power budget exceeded\n"), std::string::npos) << r.out;
}

TEST_F(OvdCable, PrintsJson)
{
    CableRun r = run_cable("--json 1 1");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out,
              "{\n"
              "  \"device\": 1,\n"
              "  \"local_port\": 1,\n"
              "  \"module\": 0,\n"
              "  \"state\": \"plugged\",\n"
              "  \"plugged\": true,\n"
              "  \"power_budget_exceeded\": false,\n"
              "  \"error\": 0,\n"
              "  \"status\": 0,\n"
              "  \"mcia_status\": 0,\n"
              "  \"mcia_status_text\": \"\",\n"
              "  \"identifier\": 17,\n"
              "  \"identifier_name\": \"QSFP28\",\n"
              "  \"memory_map_revision\": 7,\n"
              "  \"known_cable\": true,\n"
              "  \"family\": \"QSFP\",\n"
              "  \"type\": \"passive copper cable\",\n"
              "  \"vendor\": \"VQ CABLES\",\n"
              "  \"oui\": \"02ab01\",\n"
              "  \"part_number\": \"VQC-EDR-2M\",\n"
              "  \"revision\": \"A2\",\n"
              "  \"serial_number\": \"VQ2601A0000001\",\n"
              "  \"length_inaccurate\": false,\n"
              "  \"lengths\": {\"copper\": 2},\n"
              "  \"supported_speeds\": [\"SDR\", \"DDR\", \"QDR\", \"FDR\", \"EDR\"]\n"
              "}\n");

    r = run_cable("--json 1 6");
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("\"state\": \"not connected\""), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find("\"identifier\""), std::string::npos) << r.out;

    r = run_cable("--json 1 8");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("\"mcia_status\": 9,\n  \"mcia_status_text\": \"I2c error while accessing module\""),
              std::string::npos)
        << r.out;
}

TEST_F(OvdCable, RawDumpsThePages)
{
    CableRun r = run_cable("--raw 1 5");
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("EEPROM:             512 bytes\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("  A0h (i2c 0x50, page 0):\n    0000: 03 04 07 10"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("  A2h lower (i2c 0x51, page 0):\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("    0010: 08 03 00 1e 4e 4f 52 54"), std::string::npos) << r.out;  // lengths, "NORT"

    r = run_cable("--json --raw 1 1");
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("{\"name\": \"page 00\", \"i2c\": 80, \"page\": 0, \"first\": 0, \"bytes\": \"1107"),
              std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("{\"name\": \"page 03\", \"i2c\": 80, \"page\": 3"), std::string::npos) << r.out;
}

TEST_F(OvdCable, ModuleOptionAndBadArguments)
{
    CableRun r = run_cable("--module 2 1 1");
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("Port:               1/1 (module 2)\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("Part number:        VQC-FDR-5M\n"), std::string::npos) << r.out;

    EXPECT_EQ(run_cable("1").status, 2);
    EXPECT_EQ(run_cable("--swid 9 1 1").status, 2);
    EXPECT_EQ(run_cable("--bogus 1 1").status, 2);
    // A port the device doesn't have: PMLP can't tell, and PMAOS refuses the module.
    r = run_cable("1 60");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("State:              unknown\n"), std::string::npos) << r.out;
}

TEST_F(OvdCable, WithoutAConfigurationTheBuiltInModelAnswers)
{
    ASSERT_EQ(unlink("/var/opt/vqdreg/vqdreg.conf"), 0);
    CableRun r = run_cable("1 36");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "Port:               1/36 (module 35)\nState:              not connected\n");
    r = run_cable("1 1");
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("Part number:        VQC-EDR-2M\n"), std::string::npos) << r.out;
}

}  // namespace
