#pragma once
// Vendor object of one port of an Emulex 16 Gbit Fibre Channel adapter.
#include <string>

#include "CFC_EMULEX_Vendor.h"

class CFC_EMULEX_16G_Vendor : public CFC_EMULEX_Vendor {
public:
    static const std::string className;

    explicit CFC_EMULEX_16G_Vendor(std::string deviceId);
    ~CFC_EMULEX_16G_Vendor() override;

    void LinkDevice() override;
};
