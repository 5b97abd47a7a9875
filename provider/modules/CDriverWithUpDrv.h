#pragma once
// Thin provider layer over the host's driver module; stays abstract.
#include <string>

#include "ModuleManager.h"

class CDriverWithUpDrv : public CDriver {
public:
    explicit CDriverWithUpDrv(std::string a);
    CDriverWithUpDrv(std::string a, std::string b);
    ~CDriverWithUpDrv() override;
};
