#pragma once
// INI-file readers. Section and key names are case-insensitive.

// Copies the value (or the default) into buffer, truncated to size - 1 and
// NUL-terminated; returns the number of characters copied.
unsigned long GetPrivateProfileStringA(const char* section, const char* key, const char* defaultValue,
                                       char* buffer, unsigned long size, const char* file);
// The value as a decimal integer, or the default when missing or not a number.
unsigned int GetPrivateProfileIntA(const char* section, const char* key, int defaultValue,
                                   const char* file);
