#include <gtest/gtest.h>

#include "tests/tables/TableTestSupport.h"
#include "quicktime/tables/QtAtomCompShift.h"



namespace {

QtAtomCompShift const* shiftAtom(QtAtomRoot const& root) {
    return dynamic_cast<QtAtomCompShift const*>(root.findAtom("moov.trak.mdia.minf.stbl.cslg", 0));
}

Bytes encoded(BaseQtAtom const& atom) {
    QtAtomBuffer buffer(64);
    atom.encode(buffer);
    return Bytes(buffer.ptrData(), buffer.ptrData() + buffer.nOccupied());
}

}  // namespace

TEST(QtAtomCompShift, VersionOneFieldsAreSixtyFourBitsWide) {
    Bytes body{1, 0, 0, 0};
    for (int64_t field : {int64_t(200), int64_t(-100), int64_t(300), int64_t(0), int64_t(1) << 40}) {
        put32(body, static_cast<uint32_t>(static_cast<uint64_t>(field) >> 32));
        put32(body, static_cast<uint32_t>(field));
    }
    TempFile file;
    Bytes bytes = movieWithTable({stszAtom(1), atomBytes("cslg", body)});
    AutoPtr<QtAtomRoot> root = readMovie(file, bytes);
    QtAtomCompShift const* cslg = shiftAtom(*root);
    ASSERT_NE(cslg, nullptr);
    EXPECT_EQ(cslg->getShift(), 200);
    EXPECT_EQ(cslg->getLsDelta(), -100);
    EXPECT_EQ(cslg->getEndTm(), INT32_MAX);  // kept to 32 bits
    Bytes written = encoded(*cslg);
    EXPECT_EQ(written.size(), 52u);
    EXPECT_EQ(Bytes(written.begin(), written.begin() + 36), Bytes(bytes.end() - 52, bytes.end() - 16));
}
