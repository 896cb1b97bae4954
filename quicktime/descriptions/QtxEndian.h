// Qtx::Endian: the 'enda' atom inside a sound description's 'wave' group, which overrides the byte
// order that the sample format implies (nonzero: little-endian samples).
#pragma once

#include "quicktime/descriptions/QtxAtom.h"

class Qtx::Endian : public Qtx::Atom {
public:
    static constexpr unsigned int kBuiltSize = 10;

    explicit Endian(unsigned int size = kBuiltSize);
    void set(unsigned short value) { m_value = value; }

    bool isLittleEndian() const override { return m_value != 0; }
    bool encode(QtAtomBuffer& buffer) override;
    using Atom::decode;
    bool decode(QtAtomBuffer& buffer) override;
    AutoPtr<char> toString() const override;

private:
    static constexpr unsigned int kFieldBytes = 2;

    unsigned short m_value = 1;
};
