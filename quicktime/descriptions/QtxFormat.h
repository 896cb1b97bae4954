// Qtx::Format: the 'frma' atom inside a sound description's 'wave' group, repeating the data format
// of the sound ("mp4a", "in24").
#pragma once

#include "quicktime/descriptions/QtxAtom.h"

class Qtx::Format : public Qtx::Atom {
public:
    static constexpr unsigned int kBuiltSize = 12;

    explicit Format(unsigned int size = kBuiltSize);
    void set(QtAtomIdType format) { m_format = format; }
    QtAtomIdType getFormat() const { return m_format; }

    bool encode(QtAtomBuffer& buffer) override;
    using Atom::decode;
    bool decode(QtAtomBuffer& buffer) override;
    AutoPtr<char> toString() const override;

private:
    static constexpr unsigned int kFieldBytes = 4;

    QtAtomIdType m_format = 0;
};
