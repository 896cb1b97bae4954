// Qtx::ARES: the codec's picture parameters, the bit depth derived from the compression id and the
// names of the format codes.
#include <gtest/gtest.h>

#include "quicktime/descriptions/QtxARES.h"
#include "tests/descriptions/QtxTestBytes.h"

namespace {

Bytes aresBody(unsigned int compressionId, unsigned int fields, unsigned int format,
               unsigned int tailLength) {
    Bytes body;
    putFourCC(body, "ARES");
    putFourCC(body, "0001");
    for (unsigned int v : {compressionId, 1440u, 1080u, fields, 7u, format}) put32(body, v);
    for (unsigned int i = 0; i < tailLength; ++i) put8(body, i);
    return body;
}

TEST(QtxARES, NamesTheFormatCode) {
    EXPECT_STREQ(Qtx::ARES::formatName(3), "??");
    EXPECT_STREQ(Qtx::ARES::formatName(4), "1080i");
    EXPECT_STREQ(Qtx::ARES::formatName(5), "1080p");
    EXPECT_STREQ(Qtx::ARES::formatName(6), "720p");
    AutoPtr<Qtx::Atom> atom = createFrom(atomBytes("ARES", aresBody(1253, 2, 3, 80)));
    ASSERT_TRUE(atom);
    EXPECT_STREQ(atom->toString().get(),
                 "ARES={cid=1253, width=1440, height=1080, fields=2, format=3 (\?\?\?)}");
}

TEST(QtxARES, DerivesTenBitsFromThreeCompressionIds) {
    for (unsigned int id : {1235u, 1241u, 1250u}) EXPECT_EQ(Qtx::ARES::bitDepthOf(id), 10u) << id;
    for (unsigned int id : {0u, 1237u, 1253u, 1274u}) EXPECT_EQ(Qtx::ARES::bitDepthOf(id), 8u) << id;
    AutoPtr<Qtx::Atom> atom = createFrom(atomBytes("ARES", aresBody(1241, 2, 4, 80)));
    auto* ares = dynamic_cast<Qtx::ARES*>(atom.get());
    ASSERT_NE(ares, nullptr);
    EXPECT_EQ(ares->getBitDepth(), 10u);
    EXPECT_EQ(ares->getEncodedWidth(), 1440u);
    EXPECT_EQ(ares->getNumFields(), 2u);
}

TEST(QtxARES, WritesBackWhatItReadWhateverTheTailLength) {
    for (unsigned int tail : {0u, 3u, 80u, 100u}) {
        Bytes bytes = atomBytes("ARES", aresBody(1253, 1, 5, tail));
        AutoPtr<Qtx::Atom> atom = createFrom(bytes);
        ASSERT_TRUE(atom) << tail;
        EXPECT_EQ(encoded(*atom), bytes) << tail;
    }
    Bytes fields = aresBody(1253, 1, 5, 0);
    fields.pop_back();
    EXPECT_EQ(createFrom(atomBytes("ARES", fields)).get(), nullptr) << "one byte short of the format code";
}

}  // namespace
