// Qtx::CleanAperture: the 'clap' extension atom, the part of the encoded picture meant to be shown:
// its width and height and the offsets of its centre, each as a fraction (numerator, denominator).
#pragma once

#include "quicktime/descriptions/QtxAtom.h"

class Qtx::CleanAperture : public Qtx::Atom {
public:
    static constexpr unsigned int kBuiltSize = 40;

    explicit CleanAperture(unsigned int size = kBuiltSize);
    // Width and height as given; both offsets 0/1.
    void set(unsigned int widthN, unsigned int widthD, unsigned int heightN, unsigned int heightD);

    // Numerator divided by denominator; 0 for a zero denominator.
    double getAptWidth() const { return ratio(Width); }
    double getAptHeight() const { return ratio(Height); }
    double getHorizOffset() const { return ratio(HorizOffset); }
    double getVertOffset() const { return ratio(VertOffset); }

    bool encode(QtAtomBuffer& buffer) override;
    using Atom::decode;
    bool decode(QtAtomBuffer& buffer) override;
    AutoPtr<char> toString() const override;

private:
    enum Part { Width = 0, Height = 1, HorizOffset = 2, VertOffset = 3, PartCount = 4 };
    static constexpr unsigned int kFieldBytes = 32;

    double ratio(Part part) const;

    // Numerator and denominator of each part, in on-disk order.
    unsigned int m_numerator[PartCount] = {0, 0, 0, 0};
    unsigned int m_denominator[PartCount] = {1, 1, 1, 1};
};
