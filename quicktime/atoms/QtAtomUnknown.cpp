#include "quicktime/atoms/QtAtomUnknown.h"

bool QtAtomUnknown::decode(QtAtomBuffer& buffer) {
    bool ok = BaseQtAtom::decode(buffer);
    if (getSize() > getFixedSize()) buffer.removeInput(getSize() - getFixedSize());
    return ok;
}

bool QtAtomUnknown::encode(QtAtomBuffer& buffer) const {
    BaseQtAtom::encode(buffer);
    return getSize() <= getFixedSize();
}
