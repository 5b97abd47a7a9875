#pragma once
// Process-wide host services: pauses, console messages and the test clock.
#include <functional>
#include <string>

// Pause for the given milliseconds. Real by default; tests swap in a virtual clock.
void Sleep(unsigned long milliseconds);

// Host console/log message. Wide text is four bytes a character on this platform.
void ShowMessage(const wchar_t* text, const char* argument);
void ShowMessage(const wchar_t* text, const wchar_t* argument = nullptr);

namespace qdmhost {

// Replaces the real pause; pass an empty function to restore it.
void SetSleepHook(std::function<void(unsigned long)> hook);

// Scales every time-out that ExecForeignModule applies (1.0 = real time).
void SetTimeoutScale(double scale);
double GetTimeoutScale();

// Where ShowMessage lines go (standard error by default).
void SetShowMessageSink(std::function<void(const std::string&)> sink);

// Whether the documents the host writes are synced to disk before they
// replace the old ones (on by default). Off only for scratch documents that
// are read back and removed at once: a sync there is a disk wait for nothing.
void SetDurableWrites(bool durable);
bool DurableWrites();

}  // namespace qdmhost
