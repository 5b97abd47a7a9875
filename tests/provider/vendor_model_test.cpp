// The three model vendors: identity keys, the dual-port key read through
// lspci, and the linking of the update modules.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <string>

#include "CEMULEX_OCM_Utility.h"
#include "CFC_EMULEX_16G_Firmware.h"
#include "CFC_EMULEX_16G_Vendor.h"
#include "CFC_EMULEX_8G_1P_Vendor.h"
#include "CFC_EMULEX_8G_2P_Vendor.h"
#include "CFC_EMULEX_8G_Firmware.h"
#include "CFC_EMULEX_Driver.h"
#include "VendorFixture.h"

using namespace vendortest;

namespace {

const char kIdsFolder[] = "/opt/velmora/qdm/provider/tmp/EMULEX/temp";
const char kLspciLine[] = "03:00.0 \"0c04\" \"10DF\" \"F100\" -r03 \"10DF\" \"F100\"";

class ModelVendorTest : public VendorTest {
protected:
    void SetUp() override {
        VendorTest::SetUp();
        if (IsSkipped()) return;
        qdmtest::WriteFile(std::string(kIdsFolder) + "/.keep", "");
        bin_ = root_ + "/bin";
        const char* path = std::getenv("PATH");
        savedPath_ = path ? path : "";
        ::setenv("PATH", (bin_ + ":" + savedPath_).c_str(), 1);
        InstallLspci("echo '" + std::string(kLspciLine) + "'\n");
    }
    void TearDown() override {
        if (!bin_.empty()) ::setenv("PATH", savedPath_.c_str(), 1);
        VendorTest::TearDown();
    }

    // The fake lspci records its arguments, then runs `body`.
    void InstallLspci(const std::string& body) {
        qdmtest::WriteScript(bin_ + "/lspci", "echo \"$*\" > '" + root_ + "/lspci_args'\n" + body);
    }
    std::string LspciArgs() const { return qdmtest::ReadFile(root_ + "/lspci_args"); }

    std::string bin_;
    std::string savedPath_;
};

}  // namespace

TEST_F(ModelVendorTest, ModelsCarryTheirIdentityKeys) {
    CFC_EMULEX_8G_1P_Vendor single(kDeviceId);
    CFC_EMULEX_8G_2P_Vendor dual(kDeviceId);
    CFC_EMULEX_16G_Vendor fast(kDeviceId);
    struct Row {
        const CVendor& vendor;
        const char* modelKey;
        const char* className;
    } rows[] = {
        {single, "fcelx_8g1p", "CFC_EMULEX_8G_1P_Vendor"},
        {dual, "fcelx_8g2p_10df_f100_10df_f100", "CFC_EMULEX_8G_2P_Vendor"},
        {fast, "fcelx_16g", "CFC_EMULEX_16G_Vendor"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.className);
        EXPECT_EQ(row.vendor.GetVendorName(), "emulex");
        EXPECT_EQ(row.vendor.GetModelKey(), row.modelKey);
        EXPECT_EQ(row.vendor.GetVendorClassName(), row.className);
        EXPECT_EQ(row.vendor.GetDeviceId(), kDeviceId);
    }
}

TEST_F(ModelVendorTest, DualPortKeyCommandAndSlot) {
    struct Row {
        const char* deviceId;
        const char* slot;
    } rows[] = {
        {kDeviceId, "0000:03:00.1"},
        {"03:00.0-xyz", "03:00.0"},
        {"03:00.0", "03:00.0"},  // no "-": the whole identifier
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.deviceId);
        CTraceUtility::ClearCapture();
        CFC_EMULEX_8G_2P_Vendor vendor(row.deviceId);
        EXPECT_EQ(LspciArgs(), std::string("-nms ") + row.slot + "\n");
        EXPECT_TRUE(HasDebug(std::string("ExecForeignModule cmd:[lspci -nms ") + row.slot +
                             " | cut -d \" \" -f3,4,6,7 | sed -e s/'\" \"'/_/g -e s/'\"'//g > "
                             "/opt/velmora/qdm/provider/tmp/EMULEX/temp/4ids]"));
        EXPECT_EQ(vendor.GetModelKey(), "fcelx_8g2p_10df_f100_10df_f100");
    }
}

TEST_F(ModelVendorTest, DualPortKeyIsCutToFourIdentifiers) {
    struct Row {
        const char* what;
        std::string lspciBody;
        const char* modelKey;
    } rows[] = {
        {"upper case and line end dropped", "echo '03:00.0 \"0c04\" \"10DF\" \"F100\" -r03 \"10DF\" \"F100\"'\n",
         "fcelx_8g2p_10df_f100_10df_f100"},
        {"longer fields cut at 19 characters", "echo '03:00.0 \"0c04\" \"10DFF\" \"F100\" -r03 \"10DF\" \"F100\"'\n",
         "fcelx_8g2p_10dff_f100_10df_f10"},
        {"lspci fails", "exit 1\n", "fcelx_8g2p_"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        InstallLspci(row.lspciBody);
        CFC_EMULEX_8G_2P_Vendor vendor(kDeviceId);
        EXPECT_EQ(vendor.GetModelKey(), row.modelKey);
    }
}

TEST_F(ModelVendorTest, DualPortKeyRefusesASlotThatIsNoPciAddress) {
    CFC_EMULEX_8G_2P_Vendor vendor("03:00.0;touch pwned-xyz");
    EXPECT_FALSE(qdmtest::Exists(root_ + "/lspci_args"));  // lspci never ran
    EXPECT_EQ(vendor.GetModelKey(), "fcelx_8g2p_");
}

namespace {

struct LinkRow {
    const char* model;
    std::function<CVendor*()> make;
    std::function<bool(CFirmware*)> firmwareIsOfModel;
    const char* failurePrefix;
};

std::vector<LinkRow> LinkRows() {
    return {
        {"8G single port", [] { return new CFC_EMULEX_8G_1P_Vendor(kDeviceId); },
         [](CFirmware* f) { return dynamic_cast<CFC_EMULEX_8G_Firmware*>(f) != nullptr; },
         "CFC_EMULEX_8G_Firmware::LinkDevice()"},  // the model's own prefix slip
        {"8G dual port", [] { return new CFC_EMULEX_8G_2P_Vendor(kDeviceId); },
         [](CFirmware* f) { return dynamic_cast<CFC_EMULEX_8G_Firmware*>(f) != nullptr; },
         "CFC_EMULEX_8G_2P_Vendor::LinkDevice()"},
        {"16G", [] { return new CFC_EMULEX_16G_Vendor(kDeviceId); },
         [](CFirmware* f) { return dynamic_cast<CFC_EMULEX_16G_Firmware*>(f) != nullptr; },
         "CFC_EMULEX_16G_Vendor::LinkDevice()"},
    };
}

}  // namespace

TEST_F(ModelVendorTest, LinkingWithTheToolInstalledCreatesAllThreeModules) {
    InstallHbacmd(Listing(kWwpn));
    for (const LinkRow& row : LinkRows()) {
        SCOPED_TRACE(row.model);
        std::unique_ptr<CVendor> vendor(row.make());
        vendor->LinkDevice();
        EXPECT_TRUE(row.firmwareIsOfModel(vendor->GetFirmwareModule()));
        EXPECT_NE(dynamic_cast<CFC_EMULEX_Driver*>(vendor->GetDriverModule()), nullptr);
        ASSERT_EQ(vendor->GetUtilityModules().size(), 1u);
        EXPECT_NE(dynamic_cast<CEMULEX_OCM_Utility*>(vendor->GetUtilityModules().front()), nullptr);
        EXPECT_EQ(vendor->GetUtilityModules().front()->GetModuleName(), "ocm");
        auto* fc = static_cast<CFC_EMULEX_Vendor*>(vendor.get());
        EXPECT_EQ(fc->GetWWPNEditedforDisplay(), "10000000C9123456");
    }
    EXPECT_EQ(HbacmdRuns("listhbas"), 1);  // the list is reused by the later ports
}

TEST_F(ModelVendorTest, LinkingWithoutTheToolStillLinksFirmwareAndDriver) {
    for (const LinkRow& row : LinkRows()) {
        SCOPED_TRACE(row.model);
        CTraceUtility::ClearCapture();
        std::unique_ptr<CVendor> vendor(row.make());
        vendor->LinkDevice();
        EXPECT_TRUE(row.firmwareIsOfModel(vendor->GetFirmwareModule()));
        EXPECT_NE(vendor->GetDriverModule(), nullptr);
        EXPECT_TRUE(vendor->GetUtilityModules().empty());
        EXPECT_EQ(CEmulexCommon::GetLastError(), 11u);
        ASSERT_FALSE(Messages().empty());
        EXPECT_EQ(Messages().back().id, "MSGID_EMULEX_FC_0013_F");
        EXPECT_EQ(Messages().back().inserts,
                  (std::vector<std::string>{"vendor", "b", "Emulex", "FC", "One Command Manager"}));
        EXPECT_TRUE(HasDebug(std::string(row.failurePrefix) +
                             " CEmulexCommon::GetOCMManagerInstallPath is return false."));
    }
}
