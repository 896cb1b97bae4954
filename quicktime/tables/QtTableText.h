// Text of the entry lists in the printouts (show) of the sample tables: every entry, eight to a
// line, when the "all sizes" debug flag is on; otherwise a short form that keeps the first three
// and the last entry of a long table.
#pragma once

#include <string>

#include "framework/FormatStr.h"

// `entry(i)` renders entry i. `indent` is the column of the continuation lines.
template <class RenderEntry>
std::string qtTableEntries(unsigned int count, bool everyEntry, int indent, RenderEntry entry) {
    std::string text;
    if (everyEntry) {
        for (unsigned int i = 0; i < count; ++i) {
            if (i % 8 == 0)
                text += i == 0 ? FormatStr("\n%*s0:", indent, "").get() : FormatStr(",\n%*s%d:", indent, "", i).get();
            text += FormatStr("%s%s", i % 8 ? "," : "", entry(i).c_str()).get();
        }
        return text;
    }
    for (unsigned int i = 0; i < count; ++i) {
        if (count > 5 && i == 3) {
            text += ",...";
            i = count - 1;
        }
        text += FormatStr("%s%s", i ? "," : "", entry(i).c_str()).get();
    }
    return text;
}
