#include "CDriverWithUpDrv.h"

#include <utility>

CDriverWithUpDrv::CDriverWithUpDrv(std::string a) : CDriver(std::move(a)) {}

CDriverWithUpDrv::CDriverWithUpDrv(std::string a, std::string b) : CDriver(std::move(a), std::move(b)) {}

CDriverWithUpDrv::~CDriverWithUpDrv() = default;
