// FormatStr: printf into a newly allocated, zero-terminated string owned by the caller.
#pragma once

#include <cstdarg>

#include "framework/AutoPtr.h"

AutoPtr<char> FormatStr(char const* format, ...) __attribute__((format(printf, 1, 2)));
AutoPtr<char> vFormatStr(char const* format, va_list args);
// A new copy of a C string (null stays null).
AutoPtr<char> copyText(char const* text);
