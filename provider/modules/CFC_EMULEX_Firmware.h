#pragma once
// Fibre Channel firmware module: adds the boot BIOS version.
#include <string>

#include "CEMULEX_Firmware.h"

class CFC_EMULEX_Firmware : public CEMULEX_Firmware {
public:
    CFC_EMULEX_Firmware(std::string deviceId, std::string wwpn);
    ~CFC_EMULEX_Firmware() override;

    virtual std::string GetBootBiosVersion();
    virtual std::string CheckBootBiosVersionFormat(std::string version);
};
