// The device configuration report: start check, one record pair per exec
// phase, and the XML document written by the end phase.
#include <gtest/gtest.h>
#include <pugixml.hpp>

#include <sstream>
#include <string>

#include "CEMULEX_OCM_Utility.h"
#include "CFC_EMULEX_Driver.h"
#include "CFC_EMULEX_Firmware.h"
#include "VendorFixture.h"

using namespace vendortest;

namespace {

const char kSecondDeviceId[] = "0000:04:00.0-PCI\\VEN_10df&DEV_e200&SUBSYS_E20010DF";

// Modules whose versions are fixed, so that the report is all that is tested.
class FixedFirmware : public CFC_EMULEX_Firmware {
public:
    FixedFirmware(const std::string& version, const std::string& bootBios)
        : CFC_EMULEX_Firmware(kDeviceId, ""), bootBios_(bootBios) {
        operatingVersionCache = version;
    }
    std::string GetBootBiosVersion() override { return bootBios_; }

private:
    std::string bootBios_;
};

class FixedDriver : public CFC_EMULEX_Driver {
public:
    explicit FixedDriver(const std::string& version) : CFC_EMULEX_Driver(kDeviceId, "", "") {
        operatingVersionCache = version;
    }
};

class FixedUtility : public CEMULEX_OCM_Utility {
public:
    explicit FixedUtility(const std::string& version) : CEMULEX_OCM_Utility(kDeviceId) {
        operatingVersionCache = version;
    }
};

std::string Canonical(const pugi::xml_document& doc) {
    std::ostringstream out;
    doc.save(out, "  ", pugi::format_indent | pugi::format_no_declaration);
    return out.str();
}

class ReportTest : public VendorTest {
protected:
    void SetUp() override {
        VendorTest::SetUp();
        CFC_EMULEX_Vendor::stGenFC.clear();
        CFC_EMULEX_Vendor::stVerFC.clear();
        folder_ = root_ + "/report/";
        qdmtest::WriteFile(folder_ + ".keep", "");
    }
    std::string ReportPath() const { return folder_ + "Emulex_FcConfigInfo.xml"; }

    std::string folder_;
};

}  // namespace

TEST_F(ReportTest, StartNeedsTheManagementTool) {
    TestVendor vendor(kDeviceId);
    EXPECT_EQ(vendor.StartOutputDeviceConfigInfo("", nullptr), 1);
    ASSERT_EQ(MessageCount("MSGID_EMULEX_FC_0018_F"), 1u);
    EXPECT_EQ(Messages().back().inserts,
              (std::vector<std::string>{"vendor", "b", "Emulex", "FC", "One Command Manager"}));
    EXPECT_TRUE(HasDebug("CFC_EMULEX_Vendor::StartOutputDeviceConfigInfo() "
                         "CEmulexCommon::GetOCMManagerInstallPath is return false."));

    InstallHbacmd(Listing(kWwpn));
    EXPECT_EQ(vendor.StartOutputDeviceConfigInfo("", nullptr), 0);
}

TEST_F(ReportTest, TwoPortsAppearInExecOrder) {
    TestVendor first(kDeviceId);
    first.SetWwpn(kWwpn);
    first.Attach(new FixedFirmware("2.02a4", "5.12a2"), new FixedDriver("8.3.5.86"));
    first.AttachUtility(new FixedUtility("6.1.43.0"));
    TestVendor second(kSecondDeviceId);  // lower-case ids; no utility linked
    second.SetWwpn("10:00:00:90:fa:aa:bb:cc");
    second.Attach(new FixedFirmware("10.2.370.15", "abnormal"), new FixedDriver("10.2.370.16"));

    EXPECT_EQ(first.ExecOutputDeviceConfigInfo("", nullptr), 0);
    EXPECT_EQ(second.ExecOutputDeviceConfigInfo("", nullptr), 0);
    EXPECT_EQ(second.EndOutputDeviceConfigInfo(folder_, nullptr), 0);

    pugi::xml_document written;
    pugi::xml_document golden;
    ASSERT_TRUE(written.load_file(ReportPath().c_str()));
    ASSERT_TRUE(golden.load_file((std::string(QDM_GOLDEN_DIR) + "/report/two_ports.xml").c_str()));
    EXPECT_EQ(Canonical(written), Canonical(golden));
    EXPECT_TRUE(CFC_EMULEX_Vendor::stGenFC.empty());
    EXPECT_TRUE(CFC_EMULEX_Vendor::stVerFC.empty());
}

TEST_F(ReportTest, EndWithNothingCollectedWritesEmptyData) {
    TestVendor vendor(kDeviceId);
    vendor.SetWwpn(kWwpn);
    vendor.Attach(new FixedFirmware("2.02a4", "5.12a2"), new FixedDriver("8.3.5.86"));
    vendor.ExecOutputDeviceConfigInfo("", nullptr);
    ASSERT_EQ(vendor.EndOutputDeviceConfigInfo(folder_, nullptr), 0);
    ASSERT_EQ(vendor.EndOutputDeviceConfigInfo(folder_, nullptr), 0);  // right after another

    pugi::xml_document written;
    ASSERT_TRUE(written.load_file(ReportPath().c_str()));
    const pugi::xml_node data = written.document_element();
    EXPECT_STREQ(data.name(), "data");
    EXPECT_TRUE(data.first_child().empty());
    EXPECT_TRUE(data.first_attribute().empty());
}

TEST_F(ReportTest, UnequalListsGivePortsWithoutTheMissingPart) {
    CFC_EMULEX_Vendor::stGenFC.push_back({"3/0/1", "0x10DF", "0xF100", "10000000C9123456"});
    TestVendor vendor(kDeviceId);
    ASSERT_EQ(vendor.EndOutputDeviceConfigInfo(folder_, nullptr), 0);
    EXPECT_TRUE(HasDebug("Failed to get Versioninfo"));

    pugi::xml_document written;
    ASSERT_TRUE(written.load_file(ReportPath().c_str()));
    const pugi::xml_node port = written.child("data").child("port");
    EXPECT_FALSE(port.child("general-inf").empty());
    EXPECT_TRUE(port.child("version-inf").empty());
    EXPECT_EQ(std::string(port.child("general-inf").last_child().attribute("value").value()),
              "10000000C9123456");
}

TEST_F(ReportTest, UnwritableFolderLosesTheRecords) {
    qdmtest::WriteFile(root_ + "/plainfile", "");
    TestVendor vendor(kDeviceId);
    vendor.SetWwpn(kWwpn);
    vendor.Attach(new FixedFirmware("2.02a4", "5.12a2"), new FixedDriver("8.3.5.86"));
    vendor.ExecOutputDeviceConfigInfo("", nullptr);

    EXPECT_EQ(vendor.EndOutputDeviceConfigInfo(root_ + "/plainfile/", nullptr), 1);
    EXPECT_EQ(CEmulexCommon::GetLastError(), 25u);
    ASSERT_EQ(MessageCount("MSGID_EMULEX_FC_0012_F"), 1u);
    EXPECT_EQ(Messages().back().inserts, (std::vector<std::string>{"vendor", "19"}));
    EXPECT_EQ(Debug().back().text, "CFC_EMULEX_Vendor::ExecOutputDeviceConfigInfo() [END]");
    EXPECT_TRUE(CFC_EMULEX_Vendor::stGenFC.empty());
    EXPECT_TRUE(CFC_EMULEX_Vendor::stVerFC.empty());
}
