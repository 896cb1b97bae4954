// Qtx::CleanAperture ('clap'): fractions read and shown with or without their denominators.
#include <gtest/gtest.h>

#include "quicktime/descriptions/QtxCleanAperture.h"
#include "tests/descriptions/QtxTestBytes.h"

namespace {

TEST(QtxCleanAperture, ShowsADenominatorOnlyWhenItIsNotOne) {
    Bytes body;
    for (unsigned int v : {1439u, 2u, 1080u, 1u, 0xFFFFFFFEu, 2u, 0u, 1u}) put32(body, v);
    AutoPtr<Qtx::Atom> atom = createFrom(atomBytes("clap", body));
    ASSERT_TRUE(atom);
    auto* clap = dynamic_cast<Qtx::CleanAperture*>(atom.get());
    ASSERT_NE(clap, nullptr);
    EXPECT_STREQ(clap->toString().get(), "clap={width=1439/2, height=1080, horizOff=-2/2, vertOff=0}");
    EXPECT_DOUBLE_EQ(clap->getAptWidth(), 719.5);
    EXPECT_DOUBLE_EQ(clap->getAptHeight(), 1080.0);
    EXPECT_EQ(encoded(*clap), atomBytes("clap", body));
}

TEST(QtxCleanAperture, AZeroDenominatorGivesZeroRatherThanADivision) {
    Bytes body;
    for (unsigned int v : {720u, 0u, 576u, 1u, 0u, 0u, 0u, 0u}) put32(body, v);
    AutoPtr<Qtx::Atom> atom = createFrom(atomBytes("clap", body));
    auto* clap = dynamic_cast<Qtx::CleanAperture*>(atom.get());
    ASSERT_NE(clap, nullptr);
    EXPECT_EQ(clap->getAptWidth(), 0.0);
    EXPECT_EQ(clap->getVertOffset(), 0.0);
}

}  // namespace
