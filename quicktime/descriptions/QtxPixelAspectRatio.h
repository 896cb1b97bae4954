// Qtx::PixelAspectRatio: the 'pasp' extension atom, the shape of one pixel as horizontal and vertical
// spacing (4:3 for a 1440-pixel-wide picture shown 1920 wide).
#pragma once

#include "quicktime/descriptions/QtxAtom.h"

class Qtx::PixelAspectRatio : public Qtx::Atom {
public:
    static constexpr unsigned int kBuiltSize = 16;

    explicit PixelAspectRatio(unsigned int size = kBuiltSize);
    void set(unsigned int hSpacing, unsigned int vSpacing);
    unsigned int getHSpacing() const { return m_hSpacing; }
    unsigned int getVSpacing() const { return m_vSpacing; }

    bool encode(QtAtomBuffer& buffer) override;
    using Atom::decode;
    bool decode(QtAtomBuffer& buffer) override;
    AutoPtr<char> toString() const override;

private:
    static constexpr unsigned int kFieldBytes = 8;

    unsigned int m_hSpacing = 0;
    unsigned int m_vSpacing = 0;
};
