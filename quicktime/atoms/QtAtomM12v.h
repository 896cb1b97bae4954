// QtAtomM12v: the 'm12v' atom: three 32-bit values and child atoms (see QtAtomValueTriple).
#pragma once

#include "quicktime/atoms/QtAtomValueTriple.h"

class QtAtomM12v : public QtAtomValueTriple {
  public:
    explicit QtAtomM12v(BaseQtAtom const* parent) : QtAtomValueTriple(parent) {}
    QtAtomM12v* write() const { return static_cast<QtAtomM12v*>(BaseQtAtom::write()); }
};
