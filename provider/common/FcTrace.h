#pragma once
// Entry and exit lines of the adapter trace, written at the function level.
#include "TraceUtility.h"

inline void TraceFunc(const char* text) { CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_FUNC, "%s", text); }
