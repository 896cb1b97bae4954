#include "framework/FormatStr.h"

#include <cstdio>
#include <cstring>

AutoPtr<char> vFormatStr(char const* format, va_list args) {
    va_list copy;
    va_copy(copy, args);
    int n = vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    if (n < 0) n = 0;
    char* text = new char[static_cast<size_t>(n) + 1];
    vsnprintf(text, static_cast<size_t>(n) + 1, format, args);
    return AutoPtr<char>(text);
}

AutoPtr<char> FormatStr(char const* format, ...) {
    va_list args;
    va_start(args, format);
    AutoPtr<char> text = vFormatStr(format, args);
    va_end(args);
    return text;
}

AutoPtr<char> copyText(char const* text) {
    if (!text) return AutoPtr<char>();
    size_t n = strlen(text);
    char* copy = new char[n + 1];
    memcpy(copy, text, n + 1);
    return AutoPtr<char>(copy);
}
