#pragma once
// Vendor object of one port of an Emulex 8 Gbit dual-port Fibre Channel adapter.
#include <string>

#include "CFC_EMULEX_Vendor.h"

class CFC_EMULEX_8G_2P_Vendor : public CFC_EMULEX_Vendor {
public:
    static const std::string className;

    explicit CFC_EMULEX_8G_2P_Vendor(std::string deviceId);
    ~CFC_EMULEX_8G_2P_Vendor() override;

    void LinkDevice() override;
};
