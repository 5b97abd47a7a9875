#pragma once
// 8 Gbit adapters: FC firmware version form ("2.02a4").
#include <string>

#include "CFC_EMULEX_Firmware.h"

class CFC_EMULEX_8G_Firmware : public CFC_EMULEX_Firmware {
public:
    CFC_EMULEX_8G_Firmware(std::string deviceId, std::string wwpn);
    ~CFC_EMULEX_8G_Firmware() override;

    int CheckVendorVersion(std::string version1, std::string version2) override;
    std::string FormatVersionString(std::string version) override;
    std::string CheckBootBiosVersionFormat(std::string version) override;
};
