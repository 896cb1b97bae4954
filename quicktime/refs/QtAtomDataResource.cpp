#include "quicktime/refs/QtAtomDataResource.h"

bool QtAtomDataResource::decode(QtAtomBuffer& buffer) {
    bool ok = QtAtomRefBase::decode(buffer);
    m_rest.decode(buffer, ok ? bodyBytesLeft(buffer) : 0);
    return ok;
}

bool QtAtomDataResource::encode(QtAtomBuffer& buffer) const {
    QtAtomRefBase::encode(buffer);
    m_rest.encode(buffer);
    return true;
}
