// Qtx::ACLR and Qtx::APRG: two private extension atoms of the same shape, written after some
// intermediate video codecs' descriptions: the type repeated, a first value, the colour ('ACLR') or
// program ('APRG') value, and a zero word. They share QtxTaggedPairAtom, which reads and writes that
// shape; bytes after the two values are kept as read.
#pragma once

#include "quicktime/descriptions/QtxAtom.h"

class QtxTaggedPairAtom : public Qtx::Atom {
public:
    static constexpr unsigned int kBuiltSize = 24;

    void set(unsigned int first, unsigned int second);
    unsigned int getFirstValue() const { return m_first; }
    unsigned int getSecondValue() const { return m_second; }

    bool encode(QtAtomBuffer& buffer) override;
    using Atom::decode;
    bool decode(QtAtomBuffer& buffer) override;

protected:
    QtxTaggedPairAtom(QtAtomIdType type, unsigned int size);

private:
    static constexpr unsigned int kFieldBytes = 12;

    QtAtomIdType m_tag;  // the type repeated as the first body word
    unsigned int m_first = 0;
    unsigned int m_second = 0;
};

class Qtx::ACLR : public QtxTaggedPairAtom {
public:
    explicit ACLR(unsigned int size = kBuiltSize);
    unsigned int getColor() const { return getSecondValue(); }
    AutoPtr<char> toString() const override;
};

class Qtx::APRG : public QtxTaggedPairAtom {
public:
    explicit APRG(unsigned int size = kBuiltSize);
    unsigned int getProgram() const { return getSecondValue(); }
    AutoPtr<char> toString() const override;
};
