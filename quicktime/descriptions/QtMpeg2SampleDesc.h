// QtMpeg2SampleDesc: the entry of an MPEG-2 video track (handler subtype "m2v "): the common header
// followed by 12 reserved bytes, kept as read.
#pragma once

#include "quicktime/atoms/QtFields.h"
#include "quicktime/descriptions/QtSampleDesc.h"

class QtMpeg2SampleDesc : public QtSampleDesc {
public:
    static constexpr unsigned int kFixedSize = 28;

    QtMpeg2SampleDesc(QtAtomSampleDesc const& owner, unsigned short dataRefIndex);

    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    void show(unsigned int indent) const override;
    unsigned int getFixedSize() const override { return kFixedSize; }

private:
    QtReserved<12> m_reserved;
};
