// QtAtomHeader: a pure container atom ('trak', 'mdia', 'minf', 'stbl', ...). It has no body of its
// own; its children are read and written as atoms of their own.
#pragma once

#include "quicktime/atoms/BaseQtAtom.h"

class QtAtomHeader : public BaseQtAtom {
public:
    QtAtomHeader(QtAtomIdType id, BaseQtAtom const* parent) : BaseQtAtom(id, parent, 8) {}
    bool hasEncodedChildren() const override { return sizeAllowsForChildren(); }
    bool needsAllData() const override { return false; }
};
