// Placeholder until the adapter services land.
#include "CEmulexCommon.h"
unsigned long CEmulexCommon::m_dwLastError = 0;
