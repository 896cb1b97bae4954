// Text of the entry lists in the printouts (show) of the sample tables: every entry, a number of
// them to a line, when the "all sizes" debug flag is on; otherwise a short form that keeps the first
// three and the last entry of a long table.
#pragma once

#include <string>

#include "framework/FormatStr.h"

// How a table lists its entries: `perLine` to a line in the every-entry form; the short form of a
// table of more than `shortAbove` entries; and whether the short form separates only the entries that
// would not begin a line (the groups of the full form then run together).
struct QtListing {
    unsigned int perLine = 8;
    unsigned int shortAbove = 5;
    bool groupsInShort = false;
};

// `entry(i)` renders entry i. In the every-entry form, `lineStart(i)` is what comes before entry i
// when it begins a line, the comma that ends the line before included; it is asked before entry(i),
// so that it may report on the entries of the line before.
template <class RenderEntry, class LineStart>
std::string qtTableEntries(unsigned int count, bool everyEntry, QtListing form, RenderEntry entry,
                           LineStart lineStart) {
    std::string text;
    for (unsigned int i = 0; i < count; ++i) {
        if (everyEntry) {
            text += i % form.perLine ? std::string(",") : std::string(lineStart(i));
        } else {
            if (count > form.shortAbove && i == 3) {
                text += ",...";
                i = count - 1;
            }
            if (i && (!form.groupsInShort || i % form.perLine)) text += ",";
        }
        text += entry(i);
    }
    return text;
}

// The usual start of a line: a new line at `indent`, labelled with the index of its first entry.
inline auto qtIndexedLines(int indent) {
    return [indent](unsigned int i) { return std::string(FormatStr("%s\n%*s%u:", i ? "," : "", indent, "", i).get()); };
}
