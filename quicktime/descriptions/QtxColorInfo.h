// Qtx::ColorInfo: the 'colr' extension atom, which names the colour primaries, transfer function and
// matrix of the pictures (parameter type 'nclc'). Bytes after the four fields (such as the range
// byte of an 'nclx' atom) are kept as read.
#pragma once

#include "quicktime/descriptions/QtxAtom.h"

class Qtx::ColorInfo : public Qtx::Atom {
public:
    static constexpr unsigned int kBuiltSize = 18;

    explicit ColorInfo(unsigned int size = kBuiltSize);
    void set(QtAtomIdType paramType, unsigned short primaries, unsigned short transfer,
             unsigned short matrix);

    QtAtomIdType getColorParamType() const override { return m_paramType; }
    unsigned short getPrimaries() const override { return m_primaries; }
    unsigned short getTransferFunction() const override { return m_transfer; }
    unsigned short getMatrix() const override { return m_matrix; }
    bool encode(QtAtomBuffer& buffer) override;
    using Atom::decode;
    bool decode(QtAtomBuffer& buffer) override;
    AutoPtr<char> toString() const override;

private:
    static constexpr unsigned int kFieldBytes = 10;

    QtAtomIdType m_paramType;
    unsigned short m_primaries = 1;
    unsigned short m_transfer = 1;
    unsigned short m_matrix = 1;
};
