// QtUnknownSampleDesc: the entry of a track whose media type has no description class of its own
// (or that has no media handler): the common header, and the rest of the entry kept as opaque bytes
// and written back unchanged.
#pragma once

#include "quicktime/descriptions/QtSampleDesc.h"

class QtUnknownSampleDesc : public QtSampleDesc {
public:
    QtUnknownSampleDesc(QtAtomSampleDesc const& owner, unsigned short dataRefIndex);

    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    void show(unsigned int indent) const override;
};
