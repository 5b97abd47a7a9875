// The simulated tools, driven as the provider drives them: through the
// installed paths, PATH and shell pipelines.
#include <gtest/gtest.h>

#include <sstream>

#include "Sim.h"
#include "TestEnv.h"

namespace {

using qdmtest::RunShell;

class SimToolsTest : public ::testing::Test {
protected:
    void SetUp() override {
        QDM_REQUIRE_SANDBOX();
        folder_ = qdmtest::MakeTempDir("sim");
        ASSERT_FALSE(qdmtest::InstallSimulator(folder_, qdmtest::DemoState()).empty());
    }
    void TearDown() override { qdmtest::RemoveTree(folder_); }

    // Output of a command that must succeed.
    std::string Ok(const std::string& command) {
        std::string output;
        EXPECT_EQ(RunShell(command, &output), 0) << command << "\n" << output;
        return output;
    }

    // The value of the first line holding `key`, as the provider's
    // substring lookup finds it: text after the first ":", trimmed.
    static std::string FirstValue(const std::string& text, const std::string& key) {
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);) {
            if (line.find(key) == std::string::npos) continue;
            auto colon = line.find(':');
            if (colon == std::string::npos) return "";
            std::string value = line.substr(colon + 1);
            value.erase(0, value.find_first_not_of(' '));
            return value;
        }
        return "<absent>";
    }

    std::string folder_;
};

TEST_F(SimToolsTest, ListingValuesStartAtColumn17) {
    std::string listing = Ok("/usr/sbin/ocmanager/hbacmd listhbas");
    std::istringstream in(listing);
    int fields = 0;
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line == "Manageable HBA List") continue;
        ASSERT_GT(line.size(), 17u) << line;
        EXPECT_EQ(line.substr(15, 2), ": ") << line;
        EXPECT_NE(line[17], ' ') << line;
        ++fields;
    }
    EXPECT_EQ(fields, 5 * 13);  // five ports of thirteen lines
}

TEST_F(SimToolsTest, ListedFunctionFollowsTheAdapterNumbering) {
    struct Row {
        const char* numbering;
        int device, function;
        const char* listed;
    };
    const Row rows[] = {
        {"compact", 0, 1, "PCI Function   : 1"},
        {"compact", 1, 0, "PCI Function   : 2"},   // device*2+function
        {"full", 1, 0, "PCI Function   : 8"},      // device*8+function
        {"full", 1, 3, "PCI Function   : 11"},
    };
    for (const Row& row : rows) {
        ASSERT_TRUE(qdmtest::SimSet("/adapters/2/numbering", std::string("\"") + row.numbering + "\""));
        ASSERT_TRUE(qdmtest::SimSet("/adapters/2/ports/1/pciDevice", std::to_string(row.device)));
        ASSERT_TRUE(qdmtest::SimSet("/adapters/2/ports/1/pciFunction", std::to_string(row.function)));
        std::string listing = Ok("hbacmd=/usr/sbin/ocmanager/hbacmd; $hbacmd listhbas");
        EXPECT_NE(listing.find(row.listed), std::string::npos) << row.numbering << " " << row.device;
    }
}

TEST_F(SimToolsTest, AttributesAnswerTheProviderKeys) {
    std::string eightG = Ok("/usr/sbin/ocmanager/hbacmd HbaAttributes 10:00:00:00:c9:b2:00:02");
    EXPECT_EQ(FirstValue(eightG, "FW Version"), "2.02a5 (U3D2.02A5)");
    EXPECT_EQ(FirstValue(eightG, "Boot Version"), "5.12a3");
    EXPECT_EQ(FirstValue(eightG, "Driver Version"), "11.2.156.27; HBAAPI(I) v2.3.d, 07-12-10");

    std::string sixteenG = Ok("/usr/sbin/ocmanager/hbacmd HbaAttributes 10:00:00:90:FA:C3:00:01");
    EXPECT_EQ(FirstValue(sixteenG, "FW Version"), "10.2.370.15");
    EXPECT_EQ(FirstValue(sixteenG, "Model"), "LPe16002");
}

TEST_F(SimToolsTest, UnknownPortIsAnErrorLine) {
    std::string output;
    EXPECT_EQ(RunShell("/usr/sbin/ocmanager/hbacmd HbaAttributes 10:00:00:00:00:00:00:99", &output), 1);
    EXPECT_EQ(output.rfind("ERROR", 0), 0u) << output;
}

TEST_F(SimToolsTest, VersionLineGivesTheUtilityVersion) {
    std::string output = Ok("/usr/sbin/ocmanager/hbacmd version");
    EXPECT_EQ(FirstValue(output, "Command Line Interface"), "10.2.370.16 (build 12)");
}

TEST_F(SimToolsTest, LspciFeedsTheModelKeyPipeline) {
    EXPECT_EQ(Ok("lspci -nms 04:00.1 | cut -d \" \" -f3,4,6,7 | sed -e s/'\" \"'/_/g -e s/'\"'//g"),
              "10df_f100_10df_f100\n");
    EXPECT_EQ(Ok("lspci -nms 0000:03:00.0"), "03:00.0 \"0c04\" \"10df\" \"f100\" -r03 \"10df\" \"f111\"\n");
    EXPECT_EQ(Ok("lspci -nms 09:00.0"), "");
}

TEST_F(SimToolsTest, LspciDiscoveryListsEveryFunctionWithDomain) {
    std::string all = Ok("lspci -Dnm");
    EXPECT_EQ(Ok("lspci -nmD"), all);
    EXPECT_EQ(Ok("lspci -Dnm | grep -c '\"0c04\"'"), "5\n");
    EXPECT_NE(all.find("0000:00:19.0 \"0200\" \"8086\" \"153a\" -r04"), std::string::npos);
    EXPECT_EQ(all.find("0000:05:00.1"), all.rfind("0000:05:00.1"));
}

TEST_F(SimToolsTest, DownloadAppliesTheBuiltImages) {
    const std::string module = folder_ + "/fw.zip", unpacked = folder_ + "/fw";
    ASSERT_TRUE(qdmtest::BuildFirmwareModule(module, "fcelx_8g2p_10df_f100_10df_f100",
                                             {"--firmware", "2.02a6", "--bootbios", "5.13a1", "--message"}));
    ASSERT_TRUE(qdmtest::UnpackModule(module, unpacked));
    for (const char* image : {"/bios_5.13a1.prg", "/fw_2.02a6.all"}) {
        std::string output =
            Ok("/usr/sbin/ocmanager/hbacmd Download 10:00:00:00:c9:b2:00:02 " + unpacked + image);
        EXPECT_NE(output.find("Download Complete"), std::string::npos) << output;
        EXPECT_NE(output.find("Firmware image applied"), std::string::npos) << output;
        EXPECT_NE(output.find("Download session closed"), std::string::npos) << output;
    }
    std::string attributes = Ok("/usr/sbin/ocmanager/hbacmd HbaAttributes 10:00:00:00:c9:b2:00:01");
    EXPECT_EQ(FirstValue(attributes, "FW Version"), "2.02a6");
    EXPECT_EQ(FirstValue(attributes, "Boot Version"), "5.13a1");
}

TEST_F(SimToolsTest, DownloadRejectsForeignAndMismatchedImages) {
    const std::string foreign = folder_ + "/foreign", sixteen = folder_ + "/sixteen";
    ASSERT_TRUE(qdmtest::BuildFirmwareModule(folder_ + "/a.zip", "fcelx_8g1p", {"--foreign"}));
    ASSERT_TRUE(qdmtest::BuildFirmwareModule(folder_ + "/b.zip", "fcelx_16g"));
    ASSERT_TRUE(qdmtest::UnpackModule(folder_ + "/a.zip", foreign));
    ASSERT_TRUE(qdmtest::UnpackModule(folder_ + "/b.zip", sixteen));
    const std::string images[] = {foreign + "/fw_2.02a5.all", sixteen + "/fw_11.4.204.8.grp",
                                  folder_ + "/missing.all"};
    for (const std::string& image : images) {
        std::string output;
        EXPECT_EQ(RunShell("/usr/sbin/ocmanager/hbacmd Download 10:00:00:00:c9:a1:00:01 " + image, &output), 1);
        EXPECT_EQ(output.find("Download Complete"), std::string::npos) << image;
    }
    EXPECT_EQ(qdmtest::SimGet("/adapters/0/firmware"), "\"2.01a12\"");
}

TEST_F(SimToolsTest, RpmInstallsTheBuiltDriverPackage) {
    const std::string module = folder_ + "/drv.zip", unpacked = folder_ + "/drv";
    ASSERT_TRUE(qdmtest::BuildDriverModule(module, "11.4.204.8"));
    ASSERT_TRUE(qdmtest::UnpackModule(module, unpacked));
    std::string output = Ok("rpm -Uhv --oldpackage " + unpacked + "/x64/FC/lpfc-11.4.204.8.rpm");
    EXPECT_NE(output.find("#"), std::string::npos);
    EXPECT_EQ(qdmtest::SimGet("driverVersion"), "\"11.4.204.8\"");
    EXPECT_EQ(Ok("rpm -qa | grep -c '^lpfc-'"), "1\n");
    EXPECT_EQ(Ok("rpm -qa | grep lpfc-"), "lpfc-11.4.204.8-1.x86_64\n");

    EXPECT_NE(RunShell("rpm -Uhv --oldpackage " + module), 0);  // not a package
    EXPECT_EQ(qdmtest::SimGet("driverVersion"), "\"11.4.204.8\"");
}

TEST_F(SimToolsTest, DriverModulePackageCounts) {
    const struct {
        const char* count;
        const char* listing;
    } rows[] = {{"0", ""}, {"2", "lpfc-9.1.0.0-extra.rpm\nlpfc-9.1.0.0.rpm\n"}};
    for (const auto& row : rows) {
        const std::string unpacked = folder_ + "/drv" + row.count;
        ASSERT_TRUE(qdmtest::BuildDriverModule(unpacked + ".zip", "9.1.0.0", {"--packages", row.count}));
        ASSERT_TRUE(qdmtest::UnpackModule(unpacked + ".zip", unpacked));
        EXPECT_EQ(Ok("ls " + unpacked + "/x86/FC"), row.listing);
    }
}

TEST_F(SimToolsTest, JvmPackageMatchesTheProviderQueryOnlyWhenListed) {
    const std::string query = "rpm -qa | grep elxocmjvm-..........rpm; echo $?";
    EXPECT_EQ(Ok(query), "1\n");
    ASSERT_TRUE(qdmtest::SimSet("/packages/-", "\"elxocmjvm-10.2.37-1.rpm\""));
    EXPECT_EQ(Ok(query), "elxocmjvm-10.2.37-1.rpm\n0\n");
}

TEST_F(SimToolsTest, CallLogCountsEveryToolRun) {
    qdmtest::SimResetCalls();
    Ok("/usr/sbin/ocmanager/hbacmd listhbas; /usr/sbin/ocmanager/hbacmd listhbas; lspci -nms 03:00.0; "
       "depmod -a; rpm -qa");
    EXPECT_EQ(qdmtest::SimCallCount("listhbas"), 2u);
    EXPECT_EQ(qdmtest::SimCallCount("-nms"), 1u);
    EXPECT_EQ(qdmtest::SimCallCount("-a"), 1u);
    EXPECT_EQ(qdmtest::SimCallCount(), 5u);
}

}  // namespace
