// Qtx::ACLR and Qtx::APRG: the two values after the repeated type, and their text forms.
#include <gtest/gtest.h>

#include "quicktime/descriptions/QtxACLR.h"
#include "tests/descriptions/QtxTestBytes.h"

namespace {

Bytes pairBody(char const* type, unsigned int second, unsigned int tailLength) {
    Bytes body;
    putFourCC(body, type);
    putFourCC(body, "0001");
    put32(body, second);
    putBytes(body, zeros(tailLength));
    return body;
}

TEST(QtxACLR, ShowsTheSecondValueAsColourOrProgram) {
    AutoPtr<Qtx::Atom> aclr = createFrom(atomBytes("ACLR", pairBody("ACLR", 2, 4)));
    AutoPtr<Qtx::Atom> aprg = createFrom(atomBytes("APRG", pairBody("APRG", 1, 4)));
    ASSERT_TRUE(aclr);
    ASSERT_TRUE(aprg);
    EXPECT_STREQ(aclr->toString().get(), "ACLR={color=2}");
    EXPECT_STREQ(aprg->toString().get(), "APRG={prg=1}");
    EXPECT_EQ(dynamic_cast<Qtx::ACLR*>(aclr.get())->getFirstValue(), 0x30303031u);
}

TEST(QtxACLR, AnAtomWithoutTheZeroWordIsWrittenBackWithoutIt) {
    Bytes bytes = atomBytes("ACLR", pairBody("ACLR", 1, 0));
    ASSERT_EQ(bytes.size(), 20u);
    AutoPtr<Qtx::Atom> atom = createFrom(bytes);
    ASSERT_TRUE(atom);
    EXPECT_EQ(encoded(*atom), bytes);
    EXPECT_EQ(createFrom(Bytes(bytes.begin(), bytes.end() - 1)).get(), nullptr);
}

}  // namespace
