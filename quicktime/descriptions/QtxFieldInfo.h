// Qtx::FieldInfo: the 'fiel' extension atom, saying whether a picture is one frame or two interlaced
// fields and, for two, which comes first in time or in memory.
#pragma once

#include "quicktime/descriptions/QtxAtom.h"

class Qtx::FieldInfo : public Qtx::Atom {
public:
    static constexpr unsigned int kBuiltSize = 10;

    explicit FieldInfo(unsigned int size = kBuiltSize);
    void set(unsigned char fields, unsigned char detail);

    unsigned int getNumFields() const override { return m_fields; }
    unsigned char getDetail() const override { return m_detail; }
    bool encode(QtAtomBuffer& buffer) override;
    using Atom::decode;
    bool decode(QtAtomBuffer& buffer) override;
    AutoPtr<char> toString() const override;

    // "topFirst", "bottomFirst", "firstLineEarly", "firstLineLate", else "onlyOneField" for one
    // field and "unknown" otherwise.
    static char const* detailName(unsigned char fields, unsigned char detail);

private:
    static constexpr unsigned int kFieldBytes = 2;

    unsigned char m_fields = 1;
    unsigned char m_detail = 0;
};
