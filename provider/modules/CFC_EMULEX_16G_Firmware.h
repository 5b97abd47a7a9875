#pragma once
// 16 Gbit adapters: four-segment firmware versions.
#include <string>

#include "CFC_EMULEX_Firmware.h"

class CFC_EMULEX_16G_Firmware : public CFC_EMULEX_Firmware {
public:
    CFC_EMULEX_16G_Firmware(std::string deviceId, std::string wwpn);
    ~CFC_EMULEX_16G_Firmware() override;

    int CheckVendorVersion(std::string version1, std::string version2) override;
};
