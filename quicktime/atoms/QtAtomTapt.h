// QtAtomTapt: the track aperture container ('tapt'), holding the clean, production and encoded
// aperture dimension atoms.
#pragma once

#include "quicktime/atoms/BaseQtAtom.h"

class QtAtomTapt : public BaseQtAtom {
public:
    explicit QtAtomTapt(BaseQtAtom const* parent) : BaseQtAtom(qtId("tapt"), parent, 8) {}
    bool hasEncodedChildren() const override { return sizeAllowsForChildren(); }
    bool needsAllData() const override { return false; }
    void show() const override;
};
