// One 8G and one 16G port taken through inventory, download and apply check
// as the host drives them.
#include <gtest/gtest.h>

#include "CFC_EMULEX_16G_Firmware.h"
#include "CFC_EMULEX_8G_Firmware.h"
#include "FirmwareFakes.h"

namespace {

const char k8GWwpn[] = "10:00:00:00:c9:aa:00:01";
const char k16GWwpn[] = "10:00:00:90:fa:bb:00:02";

class FirmwareEndToEndTest : public firmwaretest::FirmwareTest {
protected:
    // Inventory, then the host's update sequence; returns the apply check's verdict.
    bool InventoryAndUpdate(CFC_EMULEX_Firmware& module, const std::string& wwpn, const std::string& uniqueName,
                            const std::string& repositoryVersion, const std::string& archive) {
        const std::string operating = module.GetOperatingVersion();
        EXPECT_GT(module.CheckVendorVersion(operating, repositoryVersion), 0) << operating;
        module.InitializeOperatingModuleInfo(operating);
        Register(module, uniqueName, repositoryVersion, archive);
        EXPECT_EQ(0, module.ExecuteUpdateBackup("", false));
        EXPECT_EQ(0, module.ExecutePreUpdate(false));
        EXPECT_EQ(0, module.ExecuteUpdate(false));
        // The listing read before the flash is renewed only once it is an hour old.
        qdmtest::SetFileAge(AttribCache(wwpn), 3600);
        return module.ExecuteUpdateApplyCheck();
    }
};

TEST_F(FirmwareEndToEndTest, BothGenerationsAreFlashedAndPassTheApplyCheck) {
    SetAdapterVersions(k8GWwpn, "2.02a4 (U3D2.02A4)", "5.12a2");
    SetAdapterVersions(k16GWwpn, "11.2.156.27", "11.2.10.0");
    const std::string module8G = MakeModule("fw8g.zip", {{"bios.prg", "boot=5.30a1\n"},
                                                         {"fw.all", "fw=2.10a7\n"},
                                                         {"message.txt", firmwaretest::kMessageFile}});
    const std::string module16G = MakeModule("fw16g.zip", {{"fw.grp", "fw=11.4.204.20\n"}});

    CFC_EMULEX_8G_Firmware eight("0000:03:00.0-PCI\\VEN_10DF&DEV_F100", k8GWwpn);
    CFC_EMULEX_16G_Firmware sixteen("0000:04:00.0-PCI\\VEN_10DF&DEV_E200", k16GWwpn);
    EXPECT_EQ("5.12a2", eight.GetBootBiosVersion());
    EXPECT_FALSE(InventoryAndUpdate(eight, k8GWwpn, firmwaretest::k8G2PName, "2.10a7", module8G));
    EXPECT_FALSE(InventoryAndUpdate(sixteen, k16GWwpn, firmwaretest::k16GName, "11.4.204.20", module16G));

    EXPECT_EQ("2.10a7", eight.GetOperatingVersion());
    EXPECT_EQ("5.30a1", eight.GetBootBiosVersion());
    EXPECT_EQ("11.4.204.20", sixteen.GetOperatingVersion());
    EXPECT_EQ(3u, Calls("Download").size());  // boot BIOS and firmware on 8G, firmware on 16G
    EXPECT_EQ(0u, MessageCount("MSGID_EMULEX_FC_0004_F") + MessageCount("MSGID_EMULEX_FC_0009_F"));
    EXPECT_EQ(CModuleManager::STATUS_SUCCESS, sixteen.GetUpdateStatus());
}

}  // namespace
